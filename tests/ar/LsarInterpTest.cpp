#include "ar/LsarInterp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "ar/AnalysisSegment.h"
#include "ar/ClassicRand.h"
#include "signal/PortableCosine.h"

namespace {

// A recording-like test signal: a few partials with slow vibrato plus a little noise.
std::vector<float> musicLike(int count, unsigned seed, double rate = 44100.0)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 0.002);
    std::vector<float> x(count);
    for (int t = 0; t < count; ++t) {
        const double time = t / rate;
        const double vibrato = 1.0 + 0.003 * std::sin(2.0 * M_PI * 5.0 * time);
        double v = 0.0;
        for (int h = 1; h <= 5; ++h)
            v += 0.3 / h * std::sin(2.0 * M_PI * 220.0 * h * vibrato * time + h);
        x[t] = static_cast<float>(v + noise(rng));
    }
    return x;
}

double rmsError(const std::vector<float>& a, const std::vector<float>& b, int from, int count)
{
    double sum = 0.0;
    for (int i = from; i < from + count; ++i) sum += (a[i] - b[i]) * double(a[i] - b[i]);
    return std::sqrt(sum / count);
}

TEST(LsarInterp, LargestOrderFollowsTheGapLimit)
{
    const int limits[][2] = {{44, 88}, {48, 96}, {132, 264}, {144, 288}, {192, 211},
                             {288, 316}, {149, 298}, {150, 165}, {0, 0}};
    for (const auto& [gap, order] : limits) {
        SCOPED_TRACE(gap);
        EXPECT_EQ(LsarInterp(5000, gap).maxOrder(), order);
    }
}

TEST(LsarInterp, AnalysisLengthIsCappedAt1024)
{
    EXPECT_EQ(LsarInterp(924, 44).analysisLength(), 924);
    EXPECT_EQ(LsarInterp(4401, 132).analysisLength(), 1024);
}

TEST(LsarInterp, CoefficientsStartAtZero)
{
    LsarInterp interp(1000, 10);
    for (double c : interp.coefficients()) EXPECT_EQ(c, 0.0);
}

TEST(LsarInterp, OneSampleGapIsWrittenAsSilence)
{
    for (int mode : {1, 2}) {
        std::vector<float> x = musicLike(4000, 1);
        LsarInterp interp(1024, 44);
        EXPECT_EQ(interp.interpolate(x.data(), 2000, 1, mode), 0);
        EXPECT_EQ(x[2000], 0.0f);
    }
}

TEST(LsarInterp, ZeroLengthWritesNothing)
{
    std::vector<float> x = musicLike(4000, 2);
    const std::vector<float> before = x;
    LsarInterp interp(1024, 44);
    EXPECT_EQ(interp.interpolate(x.data(), 2000, 0, 2), 0);
    EXPECT_EQ(x, before);
}

TEST(LsarInterp, GapAtTheLimitIsAcceptedOneMoreIsRefused)
{
    std::vector<float> x = musicLike(4000, 3);
    const std::vector<float> before = x;
    LsarInterp refusing(1024, 44);
    EXPECT_EQ(refusing.interpolate(x.data(), 2000, 45, 2), 1);
    EXPECT_EQ(x, before);
    LsarInterp accepting(1024, 44);
    EXPECT_EQ(accepting.interpolate(x.data(), 2000, 44, 2), 0);
}

TEST(LsarInterp, SilenceIsModelledFromTheDitherAndRepairedAsZeros)
{
    std::vector<float> x(4000, 0.0f);
    x[2000] = 0.9f;  // a click on digital silence: the seed comes from this sample
    std::vector<float> silent(4000, 0.0f);
    LsarInterp interp(1024, 132);
    EXPECT_EQ(interp.interpolate(silent.data(), 2000, 10, 2), 0);
    // The dither alone has energy N * (3e-6)^2 / 12 ~ 7.7e-10 at N = 1024.
    EXPECT_GT(interp.autocorrelation()[0], 5e-10);
    EXPECT_LT(interp.autocorrelation()[0], 1.1e-9);
    EXPECT_NE(interp.coefficients()[1], 0.0);  // a model was estimated
    for (int i = 2000; i < 2010; ++i) EXPECT_EQ(silent[i], 0.0f);
}

TEST(LsarInterp, ShortAnalysisOnSilenceSkipsTheModel)
{
    // At N = 100 the dither energy stays below 1e-10: the recursion is skipped and
    // the zero coefficients make the solve refuse, leaving the solution's zeros.
    std::vector<float> x(1000, 0.0f);
    LsarInterp interp(100, 20);
    EXPECT_EQ(interp.interpolate(x.data(), 500, 5, 2), 0);
    EXPECT_LT(interp.autocorrelation()[0], 1e-10);
    for (double c : interp.coefficients()) EXPECT_EQ(c, 0.0);
    for (int i = 500; i < 505; ++i) EXPECT_EQ(x[i], 0.0f);
}

TEST(LsarInterp, ModelOrderIsTwiceTheGapUpToTheCapacity)
{
    std::vector<float> x = musicLike(6000, 4);
    LsarInterp small(1024, 44);
    small.interpolate(x.data(), 3000, 10, 2);
    EXPECT_EQ(small.modelOrder(), 20);
    LsarInterp capped(1024, 150);
    capped.interpolate(x.data(), 3000, 100, 2);
    EXPECT_EQ(capped.modelOrder(), 165);
}

TEST(LsarInterp, RepairsAClickInMusicLikeAudio)
{
    const std::vector<float> clean = musicLike(8000, 5);
    for (int mode : {1, 2, 3, 4}) {
        SCOPED_TRACE(mode);
        std::vector<float> x = clean;
        for (int i = 4000; i < 4030; ++i) x[i] += (i % 2 ? 0.8f : -0.7f);
        const double damaged = rmsError(x, clean, 4000, 30);
        LsarInterp interp(4400, 132);
        testing::internal::CaptureStdout();
        ASSERT_EQ(interp.interpolate(x.data(), 4000, 30, mode), 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        const double repaired = rmsError(x, clean, 4000, 30);
        // Two-sided modes recover the partials closely; one-sided ones less so.
        EXPECT_LT(repaired, damaged * (mode <= 2 ? 0.02 : 0.1));
    }
}

TEST(LsarInterp, SameAudioAndDitherStateGiveTheSameBits)
{
    const std::vector<float> clean = musicLike(6000, 6);
    std::vector<float> a = clean, b = clean;
    ferrotip::srand(77);
    LsarInterp(1024, 44).interpolate(a.data(), 3000, 20, 1);
    ferrotip::srand(77);
    LsarInterp(1024, 44).interpolate(b.data(), 3000, 20, 1);
    EXPECT_EQ(a, b);
}

TEST(AnalysisSegment, IntegerNoiseOfASilentSeedCountsUp)
{
    // seedValue 0 gives seed and multiplier 0, so the generator yields s = i.
    EXPECT_EQ(noiseSeed(0), 0u);
    EXPECT_EQ(noiseMultiplier(0), 0u);
    std::vector<float> span(8, 0.0f);
    applyIntegerNoise(span.data(), 8, 0, 0, +1.0f);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(span[i], static_cast<float>(i) * 0x1p-32f);
}

TEST(AnalysisSegment, NoiseConstantsKeepTheLowBitsOfTheProducts)
{
    // 3000 * 1000 and 3000 * 10000 = 30,000,000 both fit in 32 bits.
    EXPECT_EQ(noiseSeed(3000), 3000000u);
    EXPECT_EQ(noiseMultiplier(3000), 30000000u);
    // 500000 * 10000 = 5e9 wraps modulo 2^32.
    EXPECT_EQ(noiseMultiplier(500000), static_cast<std::uint32_t>(5000000000ULL));
}

TEST(AnalysisSegment, AddingAndTakingOutTheNoiseRoundsToTheSumsGrid)
{
    std::vector<float> span(16);
    for (int i = 0; i < 16; ++i) span[i] = 1e-6f * (i + 1);
    std::vector<float> original = span;
    applyIntegerNoise(span.data(), 16, noiseSeed(1234), noiseMultiplier(1234), +1.0f);
    applyIntegerNoise(span.data(), 16, noiseSeed(1234), noiseMultiplier(1234), -1.0f);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(span[i], original[i], 6e-8);  // ulp of ~1.0 / 2
}

TEST(AnalysisSegment, TruncationOutsideTheRangeGivesTheIntegerIndefinite)
{
    EXPECT_EQ(truncateToInt32(2.9), 2);
    EXPECT_EQ(truncateToInt32(-2.9), -2);
    EXPECT_EQ(truncateToInt32(3e9), INT32_MIN);
    EXPECT_EQ(truncateToInt32(std::nan("")), INT32_MIN);
}

TEST(AnalysisWindow, HannOfModesOneAndTwoIncludesTheDivisionByN)
{
    std::vector<float> w(1024);
    buildAnalysisWindow(1, 1024, w.data());
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_EQ(w[512], (0.5f - 0.5f * standardLib::cosine(static_cast<float>(512 * 6.283185307179586 / 1024))) / 1024.0f);
    std::vector<float> wide(1024);
    buildAnalysisWindow(1, 1024, wide.data(), HannPrecision::float64);
    int differing = 0;
    for (int i = 0; i < 1024; ++i) differing += w[i] != wide[i];
    EXPECT_GT(differing, 0);  // the 32-bit cosine rounds differently
}

TEST(AnalysisWindow, RiseAndFallCoverEveryPointAndMirror)
{
    for (int n : {1, 7, 10, 100, 133, 924, 1000, 1023, 1024}) {
        SCOPED_TRACE(n);
        std::vector<float> rise(n, -1.0f), fall(n, -1.0f);
        buildAnalysisWindow(3, n, rise.data());
        buildAnalysisWindow(4, n, fall.data());
        for (int i = 0; i < n; ++i) {
            EXPECT_GE(rise[i], 0.0f);
            EXPECT_LE(rise[i], 1.0f);
            EXPECT_EQ(fall[i], rise[n - 1 - i]);
        }
    }
    std::vector<float> w(1000);
    buildAnalysisWindow(3, 1000, w.data());
    EXPECT_EQ(w[0], 0.0f);
    EXPECT_EQ(w[900], 1.0f);  // the fall starts at its top: cos(pi) = -1
    EXPECT_GT(w[899], 0.9999f);
    EXPECT_LT(w[999], 0.01f);
}

TEST(AnalysisWindow, SegmentOffsets)
{
    EXPECT_EQ(windowedSegmentOffset(1, 1024, 10), 512);
    EXPECT_EQ(windowedSegmentOffset(2, 925, 10), 463);
    EXPECT_EQ(windowedSegmentOffset(3, 1024, 10), 10);
    EXPECT_EQ(windowedSegmentOffset(4, 1024, 10), 1024);
}

}  // namespace
