#include "ar/FrameChain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

#include "ar/SplitRadixFft.h"
#include "support/AllocationCounter.h"

namespace {

constexpr float floatEpsilon = 0x1p-24f;

std::vector<float> randomBlock(int n, unsigned seed, float scale = 1.0f)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(-scale, scale);
    std::vector<float> x(n);
    for (float& v : x) v = uniform(rng);
    return x;
}

FramePlan plan(int position, int gapLength, int frameLength, int overlap)
{
    FramePlan p;
    p.position = position;
    p.gapLength = gapLength;
    p.frameLength = frameLength;
    p.overlap = overlap;
    planFrames(p);
    return p;
}

// A block with a Hann-like window over two hops, zero-padded on both sides.
FrameBlock frameBlock(int frameSize, int hop, int leadZeros, int tailZeros)
{
    FrameBlock block;
    block.frameSize = frameSize;
    block.hop = hop;
    block.leadZeros = leadZeros;
    block.tailZeros = tailZeros;
    block.spectrum.frameSize = frameSize;  // the caller's part: forwardFrame leaves it alone
    for (int i = 0; i < 2 * hop; ++i)
        block.window[i] = static_cast<float>(0.5 - 0.5 * std::cos(6.283185307179586 * i / (2 * hop)));
    return block;
}

SpectralFrame spectralFrame(int frameSize, float floor, unsigned seed, float scale)
{
    SpectralFrame frame;
    frame.frameSize = frameSize;
    frame.floor = floor;
    const std::vector<float> re = randomBlock(frameSize / 2 + 1, seed, scale);
    const std::vector<float> im = randomBlock(frameSize / 2 + 1, seed + 1, scale);
    std::copy(re.begin(), re.end(), frame.spectrumRe.begin());
    std::copy(im.begin(), im.end(), frame.spectrumIm.begin());
    return frame;
}

float power(float re, float im) { return re * re + im * im; }

}  // namespace

// ---- planFrames

TEST(PlanFrames, GapShorterThanAFrameSpansOneFrame)
{
    const FramePlan p = plan(10000, 100, 512, 256);
    EXPECT_EQ(p.gapEnd, 10099);
    EXPECT_EQ(p.spanStart, 10000 - 1024);
    EXPECT_EQ(p.spanEnd, 10000 + 512 + 1024);  // d = frameLength
    EXPECT_EQ(p.spanLength, 512 + 2048);
    EXPECT_EQ(p.frameCount, (2560 - 256) / 256);
    EXPECT_EQ(p.firstGapFrame, 3);
    EXPECT_EQ(p.lastGapFrame, 5);
    EXPECT_EQ(p.gapFrameCount, 3);
    EXPECT_EQ(p.position, 10000);  // inputs stay
    EXPECT_EQ(p.overlap, 256);
}

TEST(PlanFrames, FrameLengthIsDoubledUntilItCoversTheGap)
{
    for (const auto& [gap, reach] : {std::pair{512, 512}, {513, 1024}, {1500, 2048}, {2048, 2048}, {0, 512}}) {
        SCOPED_TRACE(gap);
        const FramePlan p = plan(5000, gap, 512, 128);
        EXPECT_EQ(p.spanEnd - p.position - 2 * 512, reach);
        EXPECT_EQ(p.spanLength, reach + 4 * 512);
        EXPECT_EQ(p.lastGapFrame, (reach + 1024) / 384 - 1);
        EXPECT_EQ(p.gapFrameCount, (reach + 1024) / 384 - (1024 - 128) / 384);
    }
}

TEST(PlanFrames, DivisionsTruncateTowardZero)
{
    // hop 60: 460 / 60, 160 / 60 and 300 / 60 all truncate.
    const FramePlan p = plan(1000, 10, 100, 40);
    EXPECT_EQ(p.frameCount, 7);
    EXPECT_EQ(p.firstGapFrame, 2);
    EXPECT_EQ(p.lastGapFrame, 4);
    EXPECT_EQ(p.gapFrameCount, 3);
    // An overlap above the frame gives a negative hop: -4.7 becomes -4, not -5.
    const FramePlan q = plan(1000, 10, 100, 170);
    EXPECT_EQ(q.frameCount, -4);
    EXPECT_EQ(q.firstGapFrame, 0);
    EXPECT_EQ(q.lastGapFrame, -5);
    EXPECT_EQ(q.gapFrameCount, -4);
}

TEST(PlanFrames, GapEndIsTheLastGapSample)
{
    EXPECT_EQ(plan(7, 1, 64, 32).gapEnd, 7);
    EXPECT_EQ(plan(7, 0, 64, 32).gapEnd, 6);
}

// ---- forwardFrame

TEST(ForwardFrame, FillsTheFrameInOrderAndKeepsTheBlock)
{
    FrameBlock block = frameBlock(1024, 256, 300, 212);
    const std::vector<float> before = randomBlock(256, 21u), current = randomBlock(256, 22u);
    std::copy(before.begin(), before.end(), block.previous.begin());
    block.input = current.data();

    std::vector<float> expected(1024, 0.0f);
    for (int i = 0; i < 256; ++i) {
        expected[300 + i] = before[i] * block.window[i];
        expected[556 + i] = current[i] * block.window[256 + i];
    }
    forwardFrame(block);
    EXPECT_TRUE(std::equal(current.begin(), current.end(), block.previous.begin()));

    forwardRealFft(expected.data(), 1024);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), block.transform.begin()));
    const SpectralFrame& s = block.spectrum;
    EXPECT_EQ(s.spectrumRe[0], expected[0]);
    EXPECT_EQ(s.spectrumIm[0], 0.0f);
    EXPECT_EQ(s.spectrumRe[512], expected[512]);
    EXPECT_EQ(s.spectrumIm[512], 0.0f);
    for (int k = 1; k < 512; ++k) {
        ASSERT_EQ(s.spectrumRe[k], expected[k]) << k;
        ASSERT_EQ(s.spectrumIm[k], expected[1024 - k]) << k;
    }
}

TEST(ForwardFrame, ConsecutiveBlocksOverlapByOneHop)
{
    FrameBlock block = frameBlock(256, 128, 0, 0);
    const std::vector<float> first = randomBlock(128, 23u), second = randomBlock(128, 24u);
    block.input = first.data();
    forwardFrame(block);
    block.input = second.data();
    forwardFrame(block);

    std::vector<float> expected(256);
    for (int i = 0; i < 128; ++i) {
        expected[i] = first[i] * block.window[i];
        expected[128 + i] = second[i] * block.window[128 + i];
    }
    forwardRealFft(expected.data(), 256);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), block.transform.begin()));
}

TEST(ForwardFrame, LeavesTheSpectrumRecordsFrameSizeAndFloorAlone)
{
    FrameBlock block = frameBlock(512, 128, 128, 128);
    const std::vector<float> current = randomBlock(128, 26u);
    block.input = current.data();
    block.spectrum.frameSize = 77;
    block.spectrum.floor = 0.25f;
    forwardFrame(block);
    EXPECT_EQ(block.spectrum.frameSize, 77);
    EXPECT_EQ(block.spectrum.floor, 0.25f);
}

TEST(ForwardFrame, DoesNotAllocate)
{
    FrameBlock block = frameBlock(2048, 512, 512, 512);
    const std::vector<float> current = randomBlock(512, 25u);
    block.input = current.data();
    EXPECT_EQ(testsupport::allocationsDuring([&] { forwardFrame(block); }), 0u);
}

using FrameChainDeathTest = ::testing::Test;

TEST_F(FrameChainDeathTest, ForwardFrameExitsWithStatusOneOnABadFrameSize)
{
    FrameBlock block = frameBlock(1000, 250, 250, 250);
    const std::vector<float> current(250, 0.5f);
    block.input = current.data();
    EXPECT_EXIT(forwardFrame(block), ::testing::ExitedWithCode(1), "^$");
}

TEST_F(FrameChainDeathTest, InverseFrameExitsWithStatusOneOnABadFrameSize)
{
    SpectralFrame frame;
    std::vector<float> output(maxFrameSize, 0.0f);
    EXPECT_EXIT(inverseFrame(frame.spectrumRe.data(), frame.spectrumIm.data(), 0, output.data()),
                ::testing::ExitedWithCode(1), "^$");
}

// ---- splitSpectrum

// Floor 0: for a power p above 1e-11, ratio = p / ((p - 1e-11) + 1e-11); the divisor
// rounds to p or a neighbour, so g is 1 or at least 1 - 2^-23, the rest is at most
// 2^-23 of the bin and the kept part within one more rounding of it.
TEST(SplitSpectrum, FloorZeroKeepsAllOfEveryBinAboveTheLimit)
{
    SpectralFrame frame = spectralFrame(2048, 0.0f, 31u, 1.0f);
    frame.spectrumRe[5] = 3.3e-6f;  // power 1.1e-11, just above the limit
    frame.spectrumIm[5] = 0.0f;
    const SpectralFrame input = frame;
    splitSpectrum(frame);
    for (int k = 0; k <= 1024; ++k) {
        SCOPED_TRACE(k);
        const float re = input.spectrumRe[k], im = input.spectrumIm[k];
        ASSERT_GT(power(re, im), 1e-11f);
        EXPECT_NEAR(frame.spectrumRe[k], re, std::fabs(re) * 3.0f * floatEpsilon);
        EXPECT_NEAR(frame.spectrumIm[k], im, std::fabs(im) * 3.0f * floatEpsilon);
        EXPECT_LE(std::fabs(frame.restRe[k]), std::fabs(re) * 2.0f * floatEpsilon);
        EXPECT_LE(std::fabs(frame.restIm[k]), std::fabs(im) * 2.0f * floatEpsilon);
    }
}

TEST(SplitSpectrum, BinBelowTheFloorGoesWholeToTheRest)
{
    SpectralFrame frame = spectralFrame(64, 0.25f, 32u, 0.8f);
    frame.spectrumRe[3] = 0.5f;  // power 0.25, exactly at the floor: still g = 0
    frame.spectrumIm[3] = 0.0f;
    const SpectralFrame input = frame;
    splitSpectrum(frame);
    int below = 0;
    for (int k = 0; k <= 32; ++k) {
        const float re = input.spectrumRe[k], im = input.spectrumIm[k];
        if (power(re, im) > input.floor) continue;
        ++below;
        EXPECT_EQ(frame.spectrumRe[k], 0.0f) << k;
        EXPECT_EQ(frame.spectrumIm[k], 0.0f) << k;
        EXPECT_EQ(frame.restRe[k], re) << k;
        EXPECT_EQ(frame.restIm[k], im) << k;
    }
    EXPECT_GT(below, 3);
}

// Between the floor and full power, g = min(ratio, 1) up to the float grid of 1 - ratio
// (spacing 2^-24 below 1), and the two parts sum to the bin within a few roundings:
// re g, 1 - g, re (1 - g) and the sum itself.
TEST(SplitSpectrum, PartsSumToTheBinAndTheShareFollowsTheRatio)
{
    SpectralFrame frame = spectralFrame(512, 0.2f, 33u, 0.6f);
    const SpectralFrame input = frame;
    splitSpectrum(frame);
    for (int k = 0; k <= 256; ++k) {
        SCOPED_TRACE(k);
        const float re = input.spectrumRe[k], im = input.spectrumIm[k];
        const double p = power(re, im);
        const double ratio = std::max(p - input.floor, 0.0) / p;
        const double share = std::min(ratio, 1.0);
        EXPECT_NEAR(frame.spectrumRe[k], re * share, std::fabs(re) * 4.0 * floatEpsilon);
        EXPECT_NEAR(frame.restRe[k], re * (1.0 - share), std::fabs(re) * 4.0 * floatEpsilon);
        EXPECT_NEAR(frame.spectrumRe[k] + frame.restRe[k], re, std::fabs(re) * 4.0 * floatEpsilon);
        EXPECT_NEAR(frame.spectrumIm[k] + frame.restIm[k], im, std::fabs(im) * 4.0 * floatEpsilon);
    }
}

// The sum is exact where g is 0 or 1, but not in general: re g and re (1 - g) are each
// rounded. Some bin of a random frame shows it.
TEST(SplitSpectrum, PartsSumExactlyOnlyWhereTheShareIsZeroOrOne)
{
    SpectralFrame frame = spectralFrame(2048, 0.2f, 34u, 0.6f);
    const SpectralFrame input = frame;
    splitSpectrum(frame);
    int inexact = 0;
    for (int k = 0; k <= 1024; ++k) {
        const bool whole = frame.restRe[k] == 0.0f && frame.restIm[k] == 0.0f;
        const bool none = frame.spectrumRe[k] == 0.0f && frame.spectrumIm[k] == 0.0f;
        const bool exact = frame.spectrumRe[k] + frame.restRe[k] == input.spectrumRe[k] &&
                           frame.spectrumIm[k] + frame.restIm[k] == input.spectrumIm[k];
        if (whole || none) {
            EXPECT_TRUE(exact) << k;
        }
        inexact += !exact;
    }
    EXPECT_GT(inexact, 0);
}

// g = 1 - max(1 - ratio, 0) is ratio only where 1 - ratio is exact in float: a ratio
// of 1e-9 (power 1e-20 under floor 0) rounds 1 - ratio to 1 and gives g = 0.
TEST(SplitSpectrum, TinyRatioRoundsToNothing)
{
    SpectralFrame frame;
    frame.frameSize = 4;
    frame.floor = 0.0f;
    frame.spectrumRe = {};
    frame.spectrumRe[1] = 1e-10f;
    frame.spectrumRe[2] = 2e-6f;  // power 4e-12 < 1e-11: ratio 0.4, a share of it stays
    splitSpectrum(frame);
    EXPECT_EQ(frame.spectrumRe[1], 0.0f);
    EXPECT_EQ(frame.restRe[1], 1e-10f);
    const float p = 2e-6f * 2e-6f;
    const float g = 1.0f - (1.0f - p / 1e-11f);
    EXPECT_EQ(frame.spectrumRe[2], 2e-6f * g);
    EXPECT_NEAR(g, 0.4f, 1e-6f);
}

// ---- inverseFrame

TEST(InverseFrame, UndoesForwardFrameUpToTheFrameSize)
{
    FrameBlock block = frameBlock(512, 128, 100, 156);
    const std::vector<float> before = randomBlock(128, 41u), current = randomBlock(128, 42u);
    std::copy(before.begin(), before.end(), block.previous.begin());
    block.input = current.data();
    forwardFrame(block);
    std::vector<float> frame(512, 0.0f);
    for (int i = 0; i < 128; ++i) {
        frame[100 + i] = before[i] * block.window[i];
        frame[228 + i] = current[i] * block.window[128 + i];
    }

    std::vector<float> output(512);
    inverseFrame(block.spectrum.spectrumRe.data(), block.spectrum.spectrumIm.data(), 512, output.data());
    // Forward and inverse together: about 2 × log2 512 roundings on values of size
    // √512 ‖frame‖; 8 ε log2 n per transform as in the transform tests.
    double energy = 0.0;
    for (float v : frame) energy += double(v) * v;
    const double limit = 2.0 * 8.0 * floatEpsilon * 9.0 * std::sqrt(512.0 * energy);
    for (int t = 0; t < 512; ++t) ASSERT_NEAR(output[t], 512.0 * frame[t], limit) << t;
}

TEST(InverseFrame, KeptAndRestSumBackToTheFrame)
{
    FrameBlock block = frameBlock(256, 128, 0, 0);
    const std::vector<float> current = randomBlock(128, 43u);
    block.previous = {};
    block.input = current.data();
    forwardFrame(block);
    const std::vector<float> packed(block.transform.begin(), block.transform.begin() + 256);
    block.spectrum.floor = 0.05f;
    splitSpectrum(block.spectrum);

    std::vector<float> kept(256), rest(256), whole(packed);
    inverseFrame(block.spectrum.spectrumRe.data(), block.spectrum.spectrumIm.data(), 256, kept.data());
    inverseFrame(block.spectrum.restRe.data(), block.spectrum.restIm.data(), 256, rest.data());
    inverseRealFft(whole.data(), 256);
    double energy = 0.0;
    for (float v : packed) energy += double(v) * v;
    const double limit = 4.0 * 8.0 * floatEpsilon * 8.0 * std::sqrt(energy);
    for (int t = 0; t < 256; ++t) ASSERT_NEAR(kept[t] + rest[t], whole[t], limit) << t;
}

TEST(InverseFrame, DropsTheImaginaryPartsOfTheEdgeBins)
{
    SpectralFrame frame = spectralFrame(128, 0.0f, 44u, 1.0f);
    std::vector<float> plain(128), edged(128);
    frame.spectrumIm[0] = 0.0f;
    frame.spectrumIm[64] = 0.0f;
    inverseFrame(frame.spectrumRe.data(), frame.spectrumIm.data(), 128, plain.data());
    frame.spectrumIm[0] = 5.0f;
    frame.spectrumIm[64] = -7.0f;
    inverseFrame(frame.spectrumRe.data(), frame.spectrumIm.data(), 128, edged.data());
    EXPECT_EQ(plain, edged);

    std::vector<float> packed(128);
    packed[0] = frame.spectrumRe[0];
    packed[64] = frame.spectrumRe[64];
    for (int k = 1; k < 64; ++k) {
        packed[k] = frame.spectrumRe[k];
        packed[128 - k] = frame.spectrumIm[k];
    }
    inverseRealFft(packed.data(), 128);
    EXPECT_EQ(plain, packed);
}

TEST(FrameChain, SplitAndInverseDoNotAllocate)
{
    SpectralFrame frame = spectralFrame(2048, 0.1f, 45u, 1.0f);
    std::vector<float> output(2048);
    EXPECT_EQ(testsupport::allocationsDuring([&] {
                  splitSpectrum(frame);
                  inverseFrame(frame.restRe.data(), frame.restIm.data(), 2048, output.data());
              }),
              0u);
}

// A frame of no length would never cover a longer gap: such plans, and those whose
// counts leave 32 bits, return at once with the outputs as they were.
TEST(PlanFramesGuard, UnusableFramesReturnAndLeaveTheOutputs)
{
    for (const auto& [frame, overlap, gap] :
         {std::array{0, 0, 10}, std::array{-4, 0, 10}, std::array{-1, -2, 100}, std::array{64, 64, 10},
          std::array{1, 0, 2000000000}}) {
        FramePlan p;
        p.position = 1000;
        p.gapLength = gap;
        p.frameLength = frame;
        p.overlap = overlap;
        p.frameCount = -77;
        p.spanLength = -77;
        planFrames(p);
        EXPECT_EQ(p.frameCount, -77) << frame;
        EXPECT_EQ(p.spanLength, -77) << frame;
    }
}

// A frame of no length that already reaches the gap's length is planned as any other.
TEST(PlanFramesGuard, FrameOfNoLengthOverAGapOfNoLengthIsPlanned)
{
    FramePlan p;
    p.position = 100;
    p.gapLength = 0;
    p.frameLength = 0;
    p.overlap = -2;
    planFrames(p);
    EXPECT_EQ(p.gapEnd, 99);
    EXPECT_EQ(p.spanStart, 100);
    EXPECT_EQ(p.spanEnd, 100);
    EXPECT_EQ(p.spanLength, 0);
    EXPECT_EQ(p.frameCount, 1);
    EXPECT_EQ(p.firstGapFrame, 1);
    EXPECT_EQ(p.lastGapFrame, -1);
    EXPECT_EQ(p.gapFrameCount, -1);
}
