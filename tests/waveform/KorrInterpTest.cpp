#include "waveform/KorrInterp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "support/AllocationCounter.h"
#include "waveform/CorrelationScan.h"
#include "waveform/TestSignals.h"

namespace {

using waveform_test::bitsOf;
using waveform_test::firstBitDifference;
using waveform_test::periodicIntegerSignal;
using waveform_test::randomSignal;
using waveform_test::smallIntegerSignal;

constexpr int templateLen = 1000;
constexpr float scoreFill = 2.3694278e-38f;  // the bytes 01 01 01 01

// The splice as its index rules read, applied in place in their order: the move
// (from a snapshot, so overlaps read the old samples), the left crossfade, then the
// right crossfade whose source runs one sample ahead.
std::vector<float> referenceSplice(std::vector<float> x, int start, int length, int src,
                                   int leftFade, int rightFade)
{
    const std::vector<float> before = x;
    for (int i = 0; i < length; ++i) x[start + i] = before[src + i];
    for (int j = 1; j < leftFade; ++j)
        x[start - j] =
            (static_cast<float>(leftFade - j) * x[src - j] + static_cast<float>(j) * x[start - j]) /
            static_cast<float>(leftFade);
    for (int j = 1; j < rightFade; ++j) {
        const int d = start + length + j - 1;
        x[d] = (static_cast<float>(rightFade - j) * x[src + length + j] +
                static_cast<float>(j) * x[d]) /
               static_cast<float>(rightFade);
    }
    return x;
}

// One repair on single-channel data; keeps the input for comparison.
struct MonoRun {
    std::vector<float> before;
    std::vector<float> after;
    KorrInterp interp;

    MonoRun(std::vector<float> data, int start, int length, int fade, int searchSide)
        : before(data), after(std::move(data)), interp(1, 44100, static_cast<int>(before.size()))
    {
        float* channels[1] = {after.data()};
        EXPECT_EQ(interp.interpolate(channels, 1, 44100, start, length, fade, fade, searchSide), 0);
    }
};

// Copies the template (the 1000 samples before the gap) to position `at`.
void plantTemplate(std::vector<float>& x, int start, int at)
{
    std::copy(x.begin() + start - templateLen, x.begin() + start, x.begin() + at);
}

// --- searchSide 1: the right side stays out ---------------------------------------

TEST(KorrInterp, LeftSearchLeavesTheRightScoreZero)
{
    const std::uint32_t seed = 301;
    SCOPED_TRACE("seed " + std::to_string(seed));
    auto x = randomSignal(12000, seed);
    plantTemplate(x, 6000, 2000);
    MonoRun run(x, 6000, 500, 125, 1);
    EXPECT_EQ(run.interp.rightMaxScore(0), 0.0f);
    EXPECT_EQ(run.interp.rightMaxLag(0), 0);
    EXPECT_EQ(run.interp.rightWindowLen(), 0);
    EXPECT_GT(run.interp.leftMaxScore(0), 0.99f);
    EXPECT_EQ(run.interp.leftMaxLag(0), 2000);
    EXPECT_EQ(run.interp.bestLag(), 2000);
    EXPECT_EQ(run.after, referenceSplice(run.before, 6000, 500, 3000, 125, 125));
}

// A left lag wins as soon as its score is above 0.0, however small.
TEST(KorrInterp, LeftSearchTakesAnyPositiveScore)
{
    const std::uint32_t seed = 302;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto x = randomSignal(8000, seed);
    MonoRun run(x, 4000, 300, 80, 1);
    ASSERT_GT(run.interp.leftMaxScore(0), 0.0f);
    ASSERT_LT(run.interp.leftMaxScore(0), 0.2f);  // noise: no real match
    EXPECT_EQ(run.interp.bestLag(), run.interp.leftMaxLag(0));
}

// --- no positive score ----------------------------------------------------------

TEST(KorrInterp, SilentLeftSideGivesLagZeroAndStillFades)
{
    const std::uint32_t seed = 303;
    SCOPED_TRACE("seed " + std::to_string(seed));
    auto x = randomSignal(12000, seed);
    std::fill(x.begin(), x.begin() + 5000, 0.0f);  // the whole left window
    MonoRun run(x, 6000, 400, 100, 1);
    EXPECT_EQ(run.interp.leftMaxScore(0), 0.0f);
    EXPECT_EQ(run.interp.bestLag(), 0);
    // Replacement from index templateLen; both crossfades ran.
    EXPECT_EQ(run.after, referenceSplice(run.before, 6000, 400, templateLen, 100, 100));
    EXPECT_NE(run.after[6000 - 1], run.before[6000 - 1]);
    EXPECT_NE(run.after[6400], run.before[6400]);
}

// --- searchSide outside 0..2 -----------------------------------------------------

TEST(KorrInterp, UnknownSearchSideScansNothingAndSplicesFromTemplateLen)
{
    const std::uint32_t seed = 304;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto x = randomSignal(9000, seed);
    for (const int side : {3, -1, 17}) {
        MonoRun run(x, 4000, 300, 80, side);
        EXPECT_EQ(run.interp.leftWindowLen(), 0) << side;
        EXPECT_EQ(run.interp.rightWindowLen(), 0) << side;
        EXPECT_EQ(run.interp.leftMaxScore(0), 0.0f);
        EXPECT_EQ(run.interp.rightMaxScore(0), 0.0f);
        EXPECT_EQ(run.interp.bestLag(), 0);
        EXPECT_EQ(run.after, referenceSplice(run.before, 4000, 300, templateLen, 80, 80));
    }
}

// --- windows too short for candidates --------------------------------------------

// A window of at most 1000 samples: the scan never reaches lag 1000, so the side's
// best is the score buffer's fill, which is positive and wins the decision.
TEST(KorrInterp, ShortWindowReportsTheScoreBufferFill)
{
    const std::uint32_t seed = 305;
    SCOPED_TRACE("seed " + std::to_string(seed));
    for (const int start : {1500, 2000}) {
        const auto x = randomSignal(5000, seed);
        MonoRun run(x, start, 100, 80, 1);
        EXPECT_EQ(run.interp.leftWindowLen(), start - templateLen);
        EXPECT_EQ(bitsOf(run.interp.leftMaxScore(0)), 0x01010101u);
        EXPECT_EQ(run.interp.leftMaxScore(0), scoreFill);
        EXPECT_EQ(run.interp.leftMaxLag(0), templateLen);
        EXPECT_EQ(run.interp.bestLag(), templateLen);
        EXPECT_EQ(run.after, referenceSplice(run.before, start, 100, 2 * templateLen, 80, 80));
    }
}

// More than 1000 and at most 2000 samples: no candidates, the true score at lag
// 1000 stands.
TEST(KorrInterp, MidLengthWindowTakesTheTrueScoreAtLag1000)
{
    const std::uint32_t seed = 306;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int start = 2500, windowLen = start - templateLen;
    const auto x = randomSignal(6000, seed);
    MonoRun run(x, start, 100, 80, 1);
    std::vector<float> scores(windowLen);
    normCorrelate(x.data() + start - templateLen, templateLen, x.data(), windowLen, scores.data(),
                  windowLen, 0);
    EXPECT_EQ(bitsOf(run.interp.leftMaxScore(0)), bitsOf(scores[templateLen]));
    EXPECT_EQ(run.interp.leftMaxLag(0), templateLen);
}

TEST(KorrInterp, StartAt1000LeavesAnEmptyLeftWindow)
{
    const std::uint32_t seed = 307;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto x = randomSignal(4000, seed);
    MonoRun run(x, 1000, 200, 80, 1);
    EXPECT_EQ(run.interp.leftWindowLen(), 0);
    EXPECT_EQ(run.interp.leftMaxScore(0), scoreFill);
    EXPECT_EQ(run.interp.bestLag(), templateLen);
    EXPECT_EQ(run.after, referenceSplice(run.before, 1000, 200, 2 * templateLen, 80, 80));
}

// --- a match at the highest candidate --------------------------------------------

// The highest left candidate is start - 2001, so src = start - 1001: with a gap
// longer than 1001 samples the copy reads on into the gap and carries its damaged
// samples, as they stood before the copy, into the gap's far part.
TEST(KorrInterp, MatchAtTheHighestCandidateCopiesDamagedSamples)
{
    const std::uint32_t seed = 308;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int start = 6000, length = 1500;
    auto x = randomSignal(12000, seed);
    plantTemplate(x, start, start - 2001);
    for (int i = 0; i < length; ++i) x[start + i] = 100.0f + static_cast<float>(i);  // damage
    MonoRun run(x, start, length, 375, 1);
    EXPECT_EQ(run.interp.leftMaxLag(0), start - 2001);
    EXPECT_EQ(run.interp.bestLag(), start - 2001);
    for (int i = 1001; i < length; ++i)
        ASSERT_EQ(run.after[start + i], 100.0f + static_cast<float>(i - 1001)) << i;
    EXPECT_EQ(run.after, referenceSplice(run.before, start, length, start - 1001, 375, 375));
}

// --- the common decision ---------------------------------------------------------

// Small integers make every sum exact: a planted copy of the template scores
// exactly 1.0 on both channels, and channel 0 supplies the lag.
TEST(KorrInterp, EqualScoresOnTwoChannelsTakeChannelZerosLag)
{
    const std::uint32_t seed = 309;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int start = 6000, length = 500;
    auto left = smallIntegerSignal(12000, seed);
    auto right = smallIntegerSignal(12000, seed + 1);
    plantTemplate(left, start, 3000);
    plantTemplate(right, start, 2000);
    KorrInterp interp(2, 44100, 12000);
    float* channels[2] = {left.data(), right.data()};
    interp.interpolate(channels, 2, 44100, start, length, 125, 125, 0);
    EXPECT_EQ(interp.leftMaxScore(0), 1.0f);
    EXPECT_EQ(interp.leftMaxScore(1), 1.0f);
    EXPECT_LT(interp.rightMaxScore(0), 1.0f);
    EXPECT_LT(interp.rightMaxScore(1), 1.0f);
    EXPECT_EQ(interp.bestLag(), 3000);
}

// Within a channel the right side is tested first and keeps an equal score. Its lag
// is an index into the right window, applied from the array's start.
TEST(KorrInterp, RightSideWinsATieAndItsLagCountsFromTheArrayStart)
{
    const std::uint32_t seed = 310;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int start = 6000, length = 500, rightBase = start + length;
    auto x = smallIntegerSignal(12000, seed);
    plantTemplate(x, start, 2500);
    plantTemplate(x, start, rightBase + 1700);
    MonoRun run(x, start, length, 125, 0);
    EXPECT_EQ(run.interp.leftMaxScore(0), 1.0f);
    EXPECT_EQ(run.interp.rightMaxScore(0), 1.0f);
    EXPECT_EQ(run.interp.leftMaxLag(0), 2500);
    EXPECT_EQ(run.interp.rightMaxLag(0), 1700);
    EXPECT_EQ(run.interp.bestLag(), 1700);
    EXPECT_EQ(run.after, referenceSplice(run.before, start, length, 1700 + templateLen, 125, 125));
}

// A NaN at the first candidate (the slid energy gone negative over digital silence)
// is never replaced, not even by a perfect match further on, and then loses.
TEST(KorrInterp, NaNAtTheFirstCandidateStaysAndLosesTheDecision)
{
    const std::uint32_t seed = 311;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int start = 6000, length = 400;
    auto x = randomSignal(12000, seed);
    std::fill(x.begin(), x.begin() + 2100, 0.0f);
    x[1] = 1e8f;  // 1e16 + 1 rounds to 1e16 in the energy: sliding past leaves -1
    x[2] = 1.0f;
    plantTemplate(x, start, 3000);
    for (const int side : {0, 1}) {
        MonoRun run(x, start, length, 100, side);
        EXPECT_TRUE(std::isnan(run.interp.leftMaxScore(0)));
        EXPECT_EQ(run.interp.leftMaxLag(0), templateLen);
        if (side == 0) {
            EXPECT_GT(run.interp.rightMaxScore(0), 0.0f);
            EXPECT_EQ(run.interp.bestLag(), run.interp.rightMaxLag(0));
        } else {
            EXPECT_EQ(run.interp.bestLag(), 0);
        }
    }
}

// --- dataLen is the only length known --------------------------------------------

// With start below the method's left context, the right window grows by the
// difference and reads up to dataLen - 2; the array holds exactly dataLen samples.
TEST(KorrInterp, ShortLeftContextLengthensTheRightWindow)
{
    const std::uint32_t seed = 312;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int context = 4000, length = 300, shortfall = 500;
    const int dataLen = 2 * context + length, start = context - shortfall;
    const auto x = randomSignal(static_cast<std::size_t>(dataLen), seed);
    MonoRun run(x, start, length, 80, 2);
    EXPECT_EQ(run.interp.rightWindowLen(), context - 1 + shortfall);
    EXPECT_EQ(run.interp.rightWindowLen(), dataLen - start - length - 1);
}

// The dispatcher's numbers for 4000 ms each side at 44100 Hz and a gap of 2000 at
// 176000: dataLen 354000, a left window of 175000 samples and a right one of 175999.
TEST(KorrInterp, FourSecondContextWindows)
{
    const std::uint32_t seed = 318;
    SCOPED_TRACE("seed " + std::to_string(seed));
    auto x = randomSignal(354000, seed);
    plantTemplate(x, 176000, 90000);
    MonoRun run(x, 176000, 2000, 500, 0);
    EXPECT_EQ(run.interp.leftWindowLen(), 175000);
    EXPECT_EQ(run.interp.rightWindowLen(), 175999);
    EXPECT_EQ(run.interp.bestLag(), 90000);
}

// --- crossfade lengths --------------------------------------------------------------

TEST(KorrInterp, FadesOfOneOrLessChangeNothingOutsideTheGap)
{
    const std::uint32_t seed = 313;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int start = 5000, length = 300;
    const auto x = randomSignal(10000, seed);
    for (const int fade : {1, 0, -4}) {
        std::vector<float> after = x;
        KorrInterp interp(1, 44100, 10000);
        float* channels[1] = {after.data()};
        interp.interpolate(channels, 1, 44100, start, length, fade, fade, 0);
        const int src = interp.bestLag() + templateLen;
        for (int n = 0; n < 10000; ++n) {
            const bool inGap = n >= start && n < start + length;
            ASSERT_EQ(after[n], inGap ? x[src + n - start] : x[n])
                << "fade " << fade << ", n " << n;
        }
    }
}

// length 0: nothing is moved, but both crossfades blend around the position; the
// right one starts at `start` itself, with x[src + 1] as its source.
TEST(KorrInterp, ZeroLengthStillCrossfades)
{
    const std::uint32_t seed = 314;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int start = 5000;
    auto x = randomSignal(10000, seed);
    plantTemplate(x, start, 2000);
    MonoRun run(x, start, 0, 80, 1);
    ASSERT_EQ(run.interp.bestLag(), 2000);
    const int src = 3000;
    EXPECT_EQ(run.after, referenceSplice(run.before, start, 0, src, 80, 80));
    EXPECT_EQ(run.after[start], (79.0f * run.before[src + 1] + 1.0f * run.before[start]) / 80.0f);
    EXPECT_EQ(run.after[start - 1],
              (79.0f * run.before[src - 1] + 1.0f * run.before[start - 1]) / 80.0f);
}

// --- a periodic signal with a gap of whole periods -------------------------------

// Period 100 divides the 1000-sample template, so every window has the template's
// energy and exact copies score exactly 1.0; the earliest candidate wins.
class PeriodicGap : public ::testing::Test {
protected:
    static constexpr int period = 100, start = 6050, length = 400, fade = 100;
    const std::vector<float> clean = periodicIntegerSignal(12000, period, 315);

    std::vector<float> damaged() const
    {
        std::vector<float> x = clean;
        for (int i = 0; i < length; ++i) x[start + i] = 50.0f;
        return x;
    }
};

// Left: the first candidate in phase with the template is lag 1050, so src = 2050,
// which has the gap's own phase: the gap comes back exactly, the left crossfade
// blends equal samples, and the right one blends each sample with its successor.
TEST_F(PeriodicGap, LeftSearchRestoresTheGapExactly)
{
    MonoRun run(damaged(), start, length, fade, 1);
    EXPECT_EQ(run.interp.leftMaxScore(0), 1.0f);
    EXPECT_EQ(run.interp.bestLag(), 1050);
    for (int n = 0; n < start + length; ++n) ASSERT_EQ(run.after[n], clean[n]) << n;
    for (int j = 1; j < fade; ++j) {
        const int d = start + length + j - 1;
        ASSERT_EQ(run.after[d],
                  (static_cast<float>(fade - j) * clean[d + 1] + static_cast<float>(j) * clean[d]) /
                      static_cast<float>(fade))
            << j;
    }
    for (int n = start + length + fade - 1; n < 12000; ++n) ASSERT_EQ(run.after[n], clean[n]);
}

// Right: the first in-phase candidate of the right window (origin start + length)
// is lag 1000; counted from the array's start it gives src = 2000, phase 0, not the
// gap's phase 50.
TEST_F(PeriodicGap, RightSearchTakesTheLagFromTheArrayStart)
{
    MonoRun run(damaged(), start, length, fade, 2);
    EXPECT_EQ(run.interp.rightMaxScore(0), 1.0f);
    EXPECT_EQ(run.interp.rightMaxLag(0), 1000);
    EXPECT_EQ(run.interp.bestLag(), 1000);
    for (int i = 0; i < length; ++i) ASSERT_EQ(run.after[start + i], clean[2000 + i]) << i;
    EXPECT_NE(firstBitDifference(run.after.data() + start, clean.data() + start, length), -1);
    EXPECT_EQ(run.after, referenceSplice(damaged(), start, length, 2000, fade, fade));
}

// Both sides score 1.0; the right side is tested first and keeps the lag.
TEST_F(PeriodicGap, BothSidesTakeTheRightLagAtEqualScores)
{
    MonoRun run(damaged(), start, length, fade, 0);
    EXPECT_EQ(run.interp.leftMaxLag(0), 1050);
    EXPECT_EQ(run.interp.rightMaxLag(0), 1000);
    EXPECT_EQ(run.interp.bestLag(), 1000);
}

// --- the short-gap path ------------------------------------------------------------

// The public constructor sets the short-gap limit to 0; a derived class may set it.
class ShortGapKorrInterp : public KorrInterp {
public:
    ShortGapKorrInterp(int channelCount, int contextLength, int shortGapLimit)
        : KorrInterp(channelCount, 44100, contextLength, shortGapLimit)
    {
    }
};

// Best score and lag over lags templateLen .. windowLen - templateLen - 1.
std::pair<float, int> peakOf(const std::vector<float>& scores, int windowLen, int templateLength)
{
    std::pair<float, int> best{scores[templateLength], templateLength};
    for (int lag = templateLength; lag < windowLen - templateLength; ++lag)
        if (scores[lag] > best.first) best = {scores[lag], lag};
    return best;
}

// A gap below the limit is matched with the samples on both sides and the gap
// zeroed between them; the right window starts after the template's far half and
// the copy starts after the whole widened span.
TEST(KorrInterp, ShortGapWidensTheTemplateAcrossTheGap)
{
    const std::uint32_t seed = 316;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int dataLen = 20000, start = 9000, length = 200, fade = 80;
    const int widened = length + 2 * templateLen;
    auto x = randomSignal(dataLen, seed);
    // A copy of the widened span (gap included) on the right makes a clear winner.
    std::copy(x.begin() + start - templateLen, x.begin() + start + length + templateLen,
              x.begin() + 13000);
    const std::vector<float> before = x;

    ShortGapKorrInterp interp(1, dataLen, 600);
    float* channels[1] = {x.data()};
    interp.interpolate(channels, 1, 44100, start, length, fade, fade, 0);
    EXPECT_EQ(interp.templateLen(), widened);
    EXPECT_EQ(interp.leftWindowLen(), start - widened);
    EXPECT_EQ(interp.rightWindowLen(), dataLen - start - length - 1 - templateLen);

    std::vector<float> gapTemplate(widened, 0.0f);
    std::copy(before.begin() + start - templateLen, before.begin() + start, gapTemplate.begin());
    std::copy(before.begin() + start + length, before.begin() + start + length + templateLen,
              gapTemplate.begin() + templateLen + length);
    const int leftLen = interp.leftWindowLen(), rightLen = interp.rightWindowLen();
    std::vector<float> leftScores(leftLen), rightScores(rightLen);
    normCorrelate(gapTemplate.data(), widened, before.data(), leftLen, leftScores.data(), leftLen,
                  0);
    normCorrelate(gapTemplate.data(), widened, before.data() + start + length + templateLen,
                  rightLen, rightScores.data(), rightLen, 0);
    const auto leftPeak = peakOf(leftScores, leftLen, widened);
    const auto rightPeak = peakOf(rightScores, rightLen, widened);
    EXPECT_EQ(interp.leftMaxScore(0), leftPeak.first);
    EXPECT_EQ(interp.leftMaxLag(0), leftPeak.second);
    EXPECT_EQ(interp.rightMaxScore(0), rightPeak.first);
    EXPECT_EQ(interp.rightMaxLag(0), rightPeak.second);
    EXPECT_EQ(interp.rightMaxLag(0), 13000 - (start + length + templateLen));
    EXPECT_EQ(interp.bestLag(), rightPeak.second);
    EXPECT_EQ(x, referenceSplice(before, start, length, interp.bestLag() + widened, fade, fade));
}

// --- allocation ----------------------------------------------------------------------

// interpolate allocates only the working copy of each scan: two sides, two channels.
TEST(KorrInterp, InterpolateAllocatesOnlyTheScanWorkingCopies)
{
    const std::uint32_t seed = 317;
    SCOPED_TRACE("seed " + std::to_string(seed));
    auto left = randomSignal(8000, seed), right = randomSignal(8000, seed + 1);
    float* channels[2] = {left.data(), right.data()};
    KorrInterp interp(2, 44100, 8000);
    const long before = testsupport::allocationCount();
    interp.interpolate(channels, 2, 44100, 4000, 300, 80, 80, 0);
    EXPECT_EQ(testsupport::allocationCount() - before, 4);
}

}  // namespace
