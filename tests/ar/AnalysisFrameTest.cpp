#include "ar/AnalysisFrame.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <tuple>
#include <vector>

#include "ar/ArRecursions.h"
#include "ar/ClassicRand.h"
#include "ar/LsarInterp.h"
#include "signal/PortableCosine.h"

namespace {

std::vector<float> randomSignal(int count, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(-0.8f, 0.8f);
    std::vector<float> x(count);
    for (float& v : x) v = uniform(rng);
    return x;
}

AnalysisFrame frameAround(const std::vector<float>& samples, int start, int n, int gap, int mode)
{
    AnalysisFrame frame;
    std::copy(samples.begin() + start - n, samples.begin() + start + n, frame.span.begin());
    const int seedValue = truncateToInt32(samples[start] * 10000.0f);
    frame.seedSource = seedValue;
    frame.multiplierSource = seedValue;
    frame.analysisLength = n;
    frame.maxOrder = 88;
    frame.gapLength = gap;
    frame.maxGap = 44;
    frame.mode = mode;
    return frame;
}

// The preparation written out: generator constants, window, windowed segment and
// integer noise, with the Hann window of modes 1 and 2 in double and the one-sided
// windows of modes 3 and 4 taken from buildAnalysisWindow.
std::vector<float> preparedByHand(const AnalysisFrame& frame)
{
    const int n = frame.analysisLength;
    const auto seed = static_cast<std::uint32_t>(
        static_cast<std::int64_t>(static_cast<float>(frame.seedSource) * 1000.0));
    const auto multiplier = static_cast<std::uint32_t>(
        static_cast<std::int64_t>(static_cast<float>(frame.multiplierSource) * 10000.0));

    std::vector<float> window(n);
    if (frame.mode <= 2) {
        for (int i = 0; i < n; ++i)
            window[i] = static_cast<float>((0.5 - 0.5 * standardLib::cosine(i * 6.283185307179586 / n)) / n);
    } else {
        buildAnalysisWindow(frame.mode, n, window.data());
    }
    const int offset = frame.mode <= 2 ? n - n / 2 : (frame.mode == 3 ? frame.gapLength : n);

    std::vector<float> span(frame.span.begin(), frame.span.end());
    for (int i = 0; i < n; ++i) span[i] = window[i] * frame.span[offset + i];
    std::uint32_t s = seed;
    for (int i = 0; i < 2 * n; ++i) {
        s *= multiplier;
        if (s == 0) s = static_cast<std::uint32_t>(i);
        span[i] += static_cast<float>(s) * 2.3283064e-10f;
    }
    return span;
}

// What LsarInterp does after the preparation: the noise taken out of the first half
// and the dither added from a fixed generator state.
std::vector<double> analysisOf(AnalysisFrame frame, unsigned randSeed)
{
    const int n = frame.analysisLength;
    const int seedValue = frame.seedSource;
    applyIntegerNoise(frame.span.data(), n, noiseSeed(seedValue), noiseMultiplier(seedValue), -1.0f);
    std::vector<double> analysis(frame.span.begin(), frame.span.begin() + n);
    ferrotip::srand(randSeed);
    for (double& value : analysis) value += (ferrotip::rand() * 3.051850947599719e-05 - 0.5) * 3e-06;
    return analysis;
}

// Its autocorrelation, lags 0 .. maxOrder.
std::vector<double> autocorrelationOf(const std::vector<double>& analysis, int maxOrder)
{
    std::vector<double> lags(maxOrder + 1);
    autocorrelate(analysis.data(), static_cast<int>(analysis.size()), lags.data(), maxOrder);
    return lags;
}

std::vector<double> lsarAutocorrelation(std::vector<float> samples, int start, int n, int gap,
                                        int mode, unsigned randSeed)
{
    LsarInterp interp(n, 44);
    ferrotip::srand(randSeed);
    EXPECT_EQ(interp.interpolate(samples.data(), start, gap, mode), 0);
    return interp.autocorrelation();
}

}  // namespace

TEST(AnalysisFrame, MatchesThePreparationWrittenOutForEveryMode)
{
    const std::vector<float> samples = randomSignal(4000, 11u);
    for (int mode = 1; mode <= 4; ++mode) {
        for (int n : {1024, 925, 100, 1}) {
            SCOPED_TRACE(::testing::Message() << "mode " << mode << ", N " << n);
            AnalysisFrame frame = frameAround(samples, 2000, n, std::min(n, 17), mode);
            frame.multiplierSource = -frame.seedSource / 3;  // the two sources are separate
            const std::vector<float> expected = preparedByHand(frame);
            prepareAnalysis(frame);
            for (int i = 0; i < 2 * maxAnalysisLength; ++i) ASSERT_EQ(frame.span[i], expected[i]) << i;
        }
    }
}

TEST(AnalysisFrame, ModelOrderIsTwiceTheGapUpToTheLargestOrder)
{
    const std::vector<float> samples = randomSignal(3000, 12u);
    for (const auto& [gap, order] : {std::pair{0, 0}, {1, 2}, {20, 40}, {44, 88}, {60, 88}}) {
        AnalysisFrame frame = frameAround(samples, 1500, 512, gap, 2);
        prepareAnalysis(frame);
        EXPECT_EQ(frame.modelOrder, order) << gap;
    }
}

// prepareAnalysis has no refusal: a gap above maxGap is prepared all the same.
TEST(AnalysisFrame, GapAboveMaxGapIsPreparedAnyway)
{
    const std::vector<float> samples = randomSignal(3000, 13u);
    AnalysisFrame frame = frameAround(samples, 1500, 512, 60, 3);
    const std::vector<float> expected = preparedByHand(frame);
    prepareAnalysis(frame);
    EXPECT_EQ(std::vector<float>(frame.span.begin(), frame.span.end()), expected);
}

TEST(AnalysisFrame, FirstThreeSeedSlotsAreNotRead)
{
    const std::vector<float> samples = randomSignal(3000, 14u);
    AnalysisFrame plain = frameAround(samples, 1500, 700, 10, 1);
    AnalysisFrame slotted = plain;
    slotted.seedSlots = {123456, -7, 99};
    prepareAnalysis(plain);
    prepareAnalysis(slotted);
    EXPECT_EQ(plain.span, slotted.span);
    EXPECT_EQ(slotted.seedSlots, (std::array<std::int32_t, 3>{123456, -7, 99}));
}

// The taking-out of the noise is not part of the preparation: both halves keep it.
TEST(AnalysisFrame, NoiseIsNotTakenOut)
{
    const std::vector<float> samples = randomSignal(3000, 15u);
    AnalysisFrame frame = frameAround(samples, 1500, 256, 8, 4);
    const AnalysisFrame before = frame;
    prepareAnalysis(frame);
    std::array<float, 2 * maxAnalysisLength> secondHalf = before.span;
    applyIntegerNoise(secondHalf.data(), 2 * 256, noiseSeed(frame.seedSource),
                      noiseMultiplier(frame.multiplierSource), +1.0f);
    for (int i = 256; i < 512; ++i) ASSERT_EQ(frame.span[i], secondHalf[i]) << i;
    int changedByNoise = 0;
    for (int i = 256; i < 512; ++i) changedByNoise += frame.span[i] != before.span[i];
    EXPECT_GT(changedByNoise, 200);
    for (int i = 512; i < 2 * maxAnalysisLength; ++i) ASSERT_EQ(frame.span[i], before.span[i]) << i;
}

// The one-sided modes share every operation with LsarInterp: taking the noise out again and
// forming the autocorrelation from the record gives LsarInterp's lags bit for bit.
TEST(AnalysisFrame, AgreesWithLsarInterpInTheOneSidedModes)
{
    const std::vector<float> samples = randomSignal(4000, 16u);
    for (int mode : {3, 4}) {
        for (int gap : {1, 12, 44}) {
            SCOPED_TRACE(::testing::Message() << "mode " << mode << ", gap " << gap);
            AnalysisFrame frame = frameAround(samples, 2000, 900, gap, mode);
            prepareAnalysis(frame);
            const std::vector<double> expected = lsarAutocorrelation(samples, 2000, 900, gap, mode, 77u);
            EXPECT_EQ(autocorrelationOf(analysisOf(frame, 77u), frame.maxOrder), expected);
        }
    }
}

// Modes 1 and 2 differ from LsarInterp in the window alone: 64-bit here, 32-bit there.
// The windows differ by a few float ulps; after the noise each windowed value lies on a
// grid of 2^-24 (noise below 1.0), so each analysis value moves by at most a few grid
// steps, δ = 2^-21 here, and each lag by at most 2 N max|a| δ + N δ².
TEST(AnalysisFrame, DiffersFromLsarInterpOnlyByTheHannPrecision)
{
    const int n = 1024;
    std::vector<float> window32(n), window64(n);
    buildAnalysisWindow(1, n, window32.data(), HannPrecision::float32);
    buildAnalysisWindow(1, n, window64.data(), HannPrecision::float64);
    EXPECT_NE(window32, window64);

    const std::vector<float> samples = randomSignal(4000, 17u);
    for (int mode : {1, 2}) {
        SCOPED_TRACE(mode);
        AnalysisFrame frame = frameAround(samples, 2000, n, 30, mode);
        // LsarInterp's windowing and noise with its 32-bit window: equal wherever the two
        // windows agree, and in the whole second half.
        AnalysisFrame withFloatWindow = frame;
        windowSpan(mode, n, 30, withFloatWindow.span.data(), HannPrecision::float32);
        applyIntegerNoise(withFloatWindow.span.data(), 2 * n, noiseSeed(frame.seedSource),
                          noiseMultiplier(frame.multiplierSource), +1.0f);
        prepareAnalysis(frame);
        int differing = 0;
        for (int i = 0; i < 2 * n; ++i) {
            if (i < n && window32[i] != window64[i]) {
                differing += frame.span[i] != withFloatWindow.span[i];
                continue;
            }
            ASSERT_EQ(frame.span[i], withFloatWindow.span[i]) << i;
        }
        EXPECT_GT(differing, 0);

        const std::vector<double> analysis = analysisOf(frame, 88u);
        const std::vector<double> ours = autocorrelationOf(analysis, frame.maxOrder);
        const std::vector<double> theirs = lsarAutocorrelation(samples, 2000, n, 30, mode, 88u);
        double largest = 0.0;
        for (double value : analysis) largest = std::max(largest, std::fabs(value));
        const double delta = 0x1p-21;
        const double limit = 2.0 * n * largest * delta + n * delta * delta;
        for (std::size_t k = 0; k < ours.size(); ++k) ASSERT_NEAR(ours[k], theirs[k], limit) << k;
    }
}

namespace {

bool sameRecord(const AnalysisFrame& a, const AnalysisFrame& b)
{
    return a.span == b.span && a.modelOrder == b.modelOrder && a.analysisLength == b.analysisLength;
}

}  // namespace

// Sizes the span cannot hold are refused whole: nothing is windowed, no order set.
TEST(AnalysisFrameGuard, LengthsOutsideTheSpanLeaveTheRecordUntouched)
{
    for (const auto& [length, gap, mode] :
         {std::tuple{1025, 4, 2}, std::tuple{4096, 4, 4},
          std::tuple{1024, 1025, 3}, std::tuple{512, -3, 3}}) {
        AnalysisFrame frame;
        for (int i = 0; i < 2 * maxAnalysisLength; ++i) frame.span[i] = 0.001f * i;
        frame.analysisLength = length;
        frame.gapLength = gap;
        frame.mode = mode;
        frame.maxOrder = 40;
        frame.modelOrder = -9;
        const AnalysisFrame before = frame;
        prepareAnalysis(frame);
        EXPECT_TRUE(sameRecord(frame, before)) << length << " " << gap << " " << mode;
    }
}

// A negative length leaves every loop empty: the span stays, the order is set.
TEST(AnalysisFrameGuard, NegativeLengthSetsTheOrderAndWindowsNothing)
{
    AnalysisFrame frame;
    for (int i = 0; i < 2 * maxAnalysisLength; ++i) frame.span[i] = 0.001f * i;
    frame.analysisLength = -5;
    frame.gapLength = 7;
    frame.mode = 1;
    frame.maxOrder = 100;
    frame.modelOrder = -99;
    const auto span = frame.span;
    prepareAnalysis(frame);
    EXPECT_EQ(frame.modelOrder, 14);
    EXPECT_TRUE(frame.span == span);
}
