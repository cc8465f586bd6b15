#include "crackle/FftCrackleDetector.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "crackle/CrackleTestSignals.h"
#include "support/AllocationCounter.h"

namespace {

using cracklefixture::Channels;

constexpr int frameSize = 2048;
constexpr int hop = 512;
constexpr int latency = 1566;

struct DetectorOutput {
    Channels tonal;
    Channels residual;
    std::vector<std::vector<int>> marks;
};

// Streams `input` through the detector in blocks of `blockSize` (the last block may
// be shorter) and collects its three outputs.
DetectorOutput runDetector(FftCrackleDetector& detector, const Channels& input, int blockSize)
{
    const int channels = static_cast<int>(input.size());
    const int count = static_cast<int>(input[0].size());
    DetectorOutput out{input, Channels(channels, std::vector<float>(count)),
                       std::vector<std::vector<int>>(channels, std::vector<int>(count))};
    std::vector<float*> audio(channels), residual(channels);
    std::vector<int*> marks(channels);
    for (int start = 0; start < count; start += blockSize) {
        const int n = std::min(blockSize, count - start);
        for (int c = 0; c < channels; ++c) {
            audio[c] = out.tonal[c].data() + start;
            residual[c] = out.residual[c].data() + start;
            marks[c] = out.marks[c].data() + start;
        }
        detector.process(marks.data(), audio.data(), residual.data(), n);
    }
    return out;
}

// Quiet noise with a spike: the spike's spectrum stays below the default floor
// (|X| <= 0.5 / 2048, power <= 6e-8 < 1e-7), so it lies wholly in the residual.
Channels noiseWithSpike(int count, int spikeAt, unsigned seed)
{
    auto x = cracklefixture::noise(1, count, 1e-6, seed);
    x[0][spikeAt] = 0.5f;
    return x;
}

// Marked indices within [from, to). The threshold is relative to each hop, so the
// tracker also marks the peaks of plain noise in hops without a click; around the
// spike its hop's level is set by the spike and the noise stays unmarked.
std::vector<int> markedIndices(const std::vector<int>& marks, int from, int to)
{
    std::vector<int> indices;
    for (int i = from; i < to; ++i)
        if (marks[i] != 0) indices.push_back(i);
    return indices;
}

TEST(FftCrackleDetector, DerivedSizesAndDefaults)
{
    FftCrackleDetector detector(2, frameSize);
    EXPECT_EQ(detector.hop(), hop);
    EXPECT_EQ(detector.latency(), latency);
    EXPECT_EQ(detector.sensitivity(), 3.0f);
    EXPECT_EQ(detector.spectralFloor(), 1e-7f);
    detector.setSensitivity(4.5f);
    detector.setSpectralFloor(2e-6f);
    EXPECT_EQ(detector.sensitivity(), 4.5f);
    EXPECT_EQ(detector.spectralFloor(), 2e-6f);
    detector.reset();
    EXPECT_EQ(detector.sensitivity(), 4.5f);  // kept by reset
}

TEST(FftCrackleDetector, FirstHopAfterResetIsZeroOnBothOutputsAndMarks)
{
    FftCrackleDetector detector(2, frameSize);
    auto loud = cracklefixture::musicLike(2, 4 * hop, 11);
    for (auto& row : loud) row[100] += 0.8f;  // a click, to have the tracker busy
    runDetector(detector, loud, 300);
    detector.reset();
    const auto out = runDetector(detector, loud, 300);
    for (int c = 0; c < 2; ++c) {
        for (int i = 0; i < hop; ++i) {
            ASSERT_EQ(out.tonal[c][i], 0.0f) << i;
            ASSERT_EQ(out.residual[c][i], 0.0f) << i;
            ASSERT_EQ(out.marks[c][i], 0) << i;
        }
    }
}

TEST(FftCrackleDetector, PathsSumToTheInputDelayedBy1566)
{
    FftCrackleDetector detector(2, frameSize);
    const int count = 12 * hop;
    const auto input = cracklefixture::musicLike(2, count, 5);
    const auto out = runDetector(detector, input, 512);
    // The split gains add to 1 in every bin; what remains is the float rounding of
    // two 2048-point transforms per path, a few 1e-7 of the signal's peak (about 1).
    const float tolerance = 5e-6f;
    for (int c = 0; c < 2; ++c) {
        for (int i = 0; i < count; ++i) {
            const float expected = i < latency ? 0.0f : input[c][i - latency];
            ASSERT_NEAR(out.tonal[c][i] + out.residual[c][i], expected, tolerance) << c << " " << i;
        }
    }
}

TEST(FftCrackleDetector, OutputDoesNotDependOnHowTheStreamIsCut)
{
    const int count = 8 * hop;
    auto input = cracklefixture::musicLike(2, count, 9);
    input[0][1000] += 0.7f;
    input[1][2500] -= 0.5f;
    FftCrackleDetector whole(2, frameSize);
    const auto reference = runDetector(whole, input, count);
    for (int blockSize : {1, 64, 100, 512, 777}) {
        SCOPED_TRACE(blockSize);
        FftCrackleDetector detector(2, frameSize);
        const auto out = runDetector(detector, input, blockSize);
        EXPECT_EQ(out.tonal, reference.tonal);
        EXPECT_EQ(out.residual, reference.residual);
        EXPECT_EQ(out.marks, reference.marks);
    }
}

TEST(FftCrackleDetector, SpikeMarksTheOlderSampleOfEachStrongDifference)
{
    // A spike at S makes strong differences S-1..S and S..S+1; their marks fall on
    // samples S-1 and S, which leave the detector 1566 samples later.
    const int spikeAt = 3 * hop + 250;
    FftCrackleDetector detector(1, frameSize);
    const auto out = runDetector(detector, noiseWithSpike(10 * hop, spikeAt, 3), 512);
    const int at = spikeAt + latency;
    EXPECT_EQ(markedIndices(out.marks[0], at - 60, at + 60), (std::vector<int>{at - 1, at}));
    EXPECT_NEAR(out.residual[0][spikeAt + latency], 0.5f, 1e-5f);
}

TEST(FftCrackleDetector, ZeroInputHopDropsTheMarksOfTheHopJudgedWithIt)
{
    // The spike lies in input hop 2; hop 4's step judges it and tests hop 4's input
    // for silence. Hop 4 all zero drops its marks; a control run keeps them.
    const int spikeAt = 2 * hop + 250;
    const std::vector<int> expectedMarks = {spikeAt - 1 + latency, spikeAt + latency};
    for (bool silentHop : {false, true}) {
        SCOPED_TRACE(silentHop);
        auto input = noiseWithSpike(10 * hop, spikeAt, 4);
        if (silentHop) std::fill(input[0].begin() + 4 * hop, input[0].begin() + 5 * hop, 0.0f);
        FftCrackleDetector detector(1, frameSize);
        const auto out = runDetector(detector, input, 512);
        const int at = spikeAt + latency;
        const auto marked = markedIndices(out.marks[0], at - 60, at + 60);
        EXPECT_EQ(marked, silentHop ? std::vector<int>{} : expectedMarks);
    }
}

TEST(FftCrackleDetector, LevelIsTheMeanAbsoluteDifferenceOfTheJudgedHop)
{
    FftCrackleDetector detector(1, frameSize);
    const auto input = cracklefixture::musicLike(1, 6 * hop, 2);
    std::vector<float> previousHop(hop, 0.0f);
    float previousSample = 0.0f;
    std::vector<float> block(hop);
    std::vector<float> residual(hop);
    std::vector<int> marks(hop);
    for (int h = 0; h < 6; ++h) {
        std::copy_n(input[0].begin() + h * hop, hop, block.begin());
        float* a = block.data();
        float* r = residual.data();
        int* m = marks.data();
        detector.process(&m, &a, &r, hop);
        const float* judged = detector.residualHop(0);
        float sum = 0.0f;
        for (int k = 0; k < hop; ++k) {
            sum += std::fabs(judged[k] - previousSample);
            previousSample = judged[k];
        }
        EXPECT_EQ(detector.level(0), std::max(sum / hop, 1e-9f)) << h;
    }
}

TEST(FftCrackleDetector, ProcessAllocatesNothing)
{
    FftCrackleDetector detector(2, frameSize);
    const auto input = cracklefixture::musicLike(2, 3 * hop, 1);
    Channels audio = input;
    Channels residual(2, std::vector<float>(3 * hop));
    std::vector<std::vector<int>> marks(2, std::vector<int>(3 * hop));
    float* a[2] = {audio[0].data(), audio[1].data()};
    float* r[2] = {residual[0].data(), residual[1].data()};
    int* m[2] = {marks[0].data(), marks[1].data()};
    EXPECT_EQ(testsupport::allocationsDuring([&] { detector.process(m, a, r, 3 * hop); }), 0u);
}

}  // namespace
