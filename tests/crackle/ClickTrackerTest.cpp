#include "crackle/ClickTracker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
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

TEST(ClickTracker, JudgeRunMatchesJudgeCallByCall)
{
    // A mix of quiet stretches, isolated spikes, dips and weak hits, handed over in
    // uneven runs (a run can end inside a click); flags and the whole state must
    // follow the per-sample calls exactly.
    std::vector<float> values;
    std::uint32_t noise = 12345u;
    for (int t = 0; t < 5000; ++t) {
        noise = noise * 1664525u + 1013904223u;
        const float u = static_cast<float>(noise >> 8) / 16777216.0f;
        float v = quiet * u;
        if (u > 0.985f) v = strong * u;
        else if (u > 0.96f) v = 1.6f + u;      // between the weak and the trigger threshold
        else if (u > 0.95f) v = 2.2f + u;      // above the walk-back threshold
        values.push_back(v);
    }
    for (int settle : {standardSettle, variantSettle}) {
        ClickTracker byCall(settle);
        ClickTracker byRun(settle);
        std::vector<int> expected;
        for (float v : values) expected.push_back(byCall.judge(v, sensitivity, level));
        ASSERT_GT(std::count(expected.begin(), expected.end(), 1), 100);
        std::vector<int> flags(values.size(), -1);
        const int runLengths[] = {1, 7, 64, 3, 512, 29, 30, 31, 2};
        size_t at = 0;
        for (int r = 0; at < values.size(); ++r) {
            const int n = std::min<int>(runLengths[r % 9], static_cast<int>(values.size() - at));
            byRun.judgeRun(values.data() + at, n, sensitivity, level, flags.data() + at);
            at += static_cast<size_t>(n);
        }
        EXPECT_EQ(flags, expected);
        EXPECT_EQ(byRun.active(), byCall.active());
        EXPECT_EQ(byRun.settleCount(), byCall.settleCount());
        for (int j = 0; j < ClickTracker::historyLength; ++j) {
            EXPECT_EQ(byRun.flagAt(j), byCall.flagAt(j));
            EXPECT_EQ(byRun.diffAt(j), byCall.diffAt(j));
        }
    }
}

}  // namespace
