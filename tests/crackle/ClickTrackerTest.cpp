#include "crackle/ClickTracker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

// With level 1 and sensitivity 3 the trigger threshold is 3, the walk-back
// threshold about 2.1 and the weak threshold 1.5.
constexpr float level = 1.0f;
constexpr float sensitivity = 3.0f;
constexpr float quiet = 0.1f;
constexpr float strong = 10.0f;
constexpr int standardSettle = 5;
constexpr int variantSettle = 6;
constexpr int emissionDelay = ClickTracker::historyLength - 1;

// Feeds the values and returns every emitted flag, shifted back by the emission
// delay so that entry t belongs to value t. Ends with enough quiet to flush.
std::vector<int> flagsFor(std::vector<float> values, int settleLimit)
{
    ClickTracker tracker(settleLimit);
    const size_t count = values.size();
    values.resize(count + emissionDelay, quiet);
    std::vector<int> flags;
    for (size_t t = 0; t < values.size(); ++t) {
        const int flag = tracker.judge(values[t], sensitivity, level);
        if (t >= static_cast<size_t>(emissionDelay)) flags.push_back(flag);
    }
    return flags;
}

std::vector<float> quietRun(int count) { return std::vector<float>(count, quiet); }

// Runs of consecutive flags, as (first, length) pairs.
std::vector<std::pair<int, int>> runsOf(const std::vector<int>& flags)
{
    std::vector<std::pair<int, int>> runs;
    for (int t = 0; t < static_cast<int>(flags.size()); ++t) {
        if (flags[t] == 0) continue;
        if (!runs.empty() && runs.back().first + runs.back().second == t)
            ++runs.back().second;
        else
            runs.push_back({t, 1});
    }
    return runs;
}

TEST(ClickTracker, SingleSampleSpikeTriggersAtFrontStaysActiveOverBackAndSettlesAfterFive)
{
    // First differences of a residual holding one spike at sample 40.
    std::vector<float> residual(80, 0.0f);
    residual[40] = 8.0f;
    ClickTracker tracker(standardSettle);
    float previous = 0.0f;
    for (int t = 0; t < 80; ++t) {
        const float d = residual[t] > previous ? residual[t] - previous : previous - residual[t];
        previous = residual[t];
        tracker.judge(d, sensitivity, level);
        SCOPED_TRACE(t);
        // Active from the front edge (40) over the back edge (41, a strong hit)
        // until five quiet samples have followed the back edge.
        const bool expectActive = t >= 40 && t < 41 + standardSettle;
        EXPECT_EQ(tracker.active(), expectActive);
        if (t == 41) {
            EXPECT_EQ(tracker.settleCount(), 0);
        }
    }
}

TEST(ClickTracker, SpikeFlagsExactlyItsTwoDifferences)
{
    std::vector<float> values = quietRun(40);
    values.push_back(strong);
    values.push_back(strong);
    values.resize(60, quiet);
    const auto runs = runsOf(flagsFor(values, standardSettle));
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0], std::make_pair(40, 2));
}

TEST(ClickTracker, HitsWithFourQuietSamplesBetweenFormOneRun)
{
    std::vector<float> values = quietRun(40);
    values.push_back(strong);
    values.resize(45, quiet);  // four quiet samples, 41..44
    values.push_back(strong);
    values.resize(70, quiet);
    const auto runs = runsOf(flagsFor(values, standardSettle));
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0], std::make_pair(40, 6));
}

TEST(ClickTracker, HitsWithFiveQuietSamplesBetweenFormTwoRuns)
{
    std::vector<float> values = quietRun(40);
    values.push_back(strong);
    values.resize(46, quiet);  // five quiet samples, 41..45
    values.push_back(strong);
    values.resize(70, quiet);
    const auto runs = runsOf(flagsFor(values, standardSettle));
    ASSERT_EQ(runs.size(), 2u);
    EXPECT_EQ(runs[0], std::make_pair(40, 1));
    EXPECT_EQ(runs[1], std::make_pair(46, 1));
}

TEST(ClickTracker, WeakHitExtendsTheRunWithoutRestartingTheCount)
{
    std::vector<float> values = quietRun(40);
    values.push_back(strong);
    values.resize(43, quiet);
    values.push_back(2.0f);  // above half the threshold, below it: weak
    values.resize(70, quiet);
    ClickTracker tracker(standardSettle);
    for (int t = 0; t <= 43; ++t) tracker.judge(values[t], sensitivity, level);
    EXPECT_EQ(tracker.settleCount(), 3);
    const auto runs = runsOf(flagsFor(values, standardSettle));
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0], std::make_pair(40, 4));
}

TEST(ClickTracker, WalkBackStopsAfterThreeMissesAndDoesNotReachTenSamplesBack)
{
    std::vector<float> values = quietRun(30);
    values.push_back(2.5f);  // above 70 % of the threshold, not above it
    values.resize(40, quiet);
    values.push_back(strong);  // the trigger, 10 samples after the 2.5
    ClickTracker tracker(standardSettle);
    for (float v : values) tracker.judge(v, sensitivity, level);
    EXPECT_EQ(tracker.flagAt(0), 1);
    EXPECT_EQ(tracker.diffAt(10), 2.5f);
    for (int j = 1; j < ClickTracker::historyLength; ++j) {
        SCOPED_TRACE(j);
        EXPECT_EQ(tracker.flagAt(j), 0);
    }
}

TEST(ClickTracker, WalkBackReachesAValueTwoSamplesBackAndFillsTheDip)
{
    std::vector<float> values = quietRun(30);
    values.push_back(2.5f);
    values.push_back(quiet);
    values.push_back(strong);
    ClickTracker tracker(standardSettle);
    for (float v : values) tracker.judge(v, sensitivity, level);
    EXPECT_EQ(tracker.flagAt(0), 1);
    EXPECT_EQ(tracker.flagAt(1), 1);
    EXPECT_EQ(tracker.flagAt(2), 1);
    EXPECT_EQ(tracker.flagAt(3), 0);
}

TEST(ClickTracker, ValueExactlyAtTheThresholdDoesNotTrigger)
{
    ClickTracker tracker(standardSettle);
    tracker.judge(sensitivity * level, sensitivity, level);
    EXPECT_FALSE(tracker.active());
    EXPECT_EQ(tracker.flagAt(0), 0);
    tracker.judge(std::nextafter(sensitivity * level, 100.0f), sensitivity, level);
    EXPECT_TRUE(tracker.active());
}

TEST(ClickTracker, ValuesExactlyAtTheActiveThresholdsAreNotHits)
{
    ClickTracker tracker(standardSettle);
    tracker.judge(strong, sensitivity, level);
    tracker.judge(sensitivity * level, sensitivity, level);  // not strong: weak
    EXPECT_EQ(tracker.settleCount(), 1);
    EXPECT_EQ(tracker.flagAt(0), 1);
    tracker.judge(0.5f * sensitivity * level, sensitivity, level);  // not weak
    EXPECT_EQ(tracker.settleCount(), 2);
    EXPECT_EQ(tracker.flagAt(0), 0);
}

TEST(ClickTracker, VariantRunEndsSixSamplesAfterTheLastStrongHit)
{
    for (int settle : {standardSettle, variantSettle}) {
        SCOPED_TRACE(settle);
        ClickTracker tracker(settle);
        tracker.judge(strong, sensitivity, level);
        for (int quietCount = 1; quietCount <= settle; ++quietCount) {
            tracker.judge(quiet, sensitivity, level);
            EXPECT_EQ(tracker.active(), quietCount < settle);
        }
    }
}

TEST(ClickTracker, VariantFillsQuietGapsOfFiveSamples)
{
    std::vector<float> values = quietRun(40);
    values.push_back(strong);
    values.resize(46, quiet);  // five quiet samples
    values.push_back(strong);
    values.resize(70, quiet);
    const auto runs = runsOf(flagsFor(values, variantSettle));
    ASSERT_EQ(runs.size(), 1u);
    EXPECT_EQ(runs[0], std::make_pair(40, 7));
}

TEST(ClickTracker, ResetReturnsToIdleWithEmptyHistory)
{
    ClickTracker tracker(standardSettle);
    tracker.judge(strong, sensitivity, level);
    tracker.reset();
    EXPECT_FALSE(tracker.active());
    EXPECT_EQ(tracker.settleCount(), 0);
    for (int j = 0; j < ClickTracker::historyLength; ++j) {
        EXPECT_EQ(tracker.flagAt(j), 0);
        EXPECT_EQ(tracker.diffAt(j), 0.0f);
    }
}

}  // namespace
