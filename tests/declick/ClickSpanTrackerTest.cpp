#include "declick/ClickSpanTracker.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

std::vector<RepairedSpan> track(const std::vector<int>& marks, int latency, int split)
{
    ClickSpanTracker tracker(3, latency);
    std::vector<RepairedSpan> spans;
    for (std::size_t from = 0; from < marks.size(); from += split) {
        const int count = static_cast<int>(std::min<std::size_t>(split, marks.size() - from));
        tracker.track(marks.data() + from, count, [&](const RepairedSpan& span) { spans.push_back(span); });
    }
    return spans;
}

}  // namespace

TEST(ClickSpanTracker, ReportsRunsShorterThanTheRepairLimitInInputSamplesWhateverTheBlocks)
{
    std::vector<int> marks(1000, 0);
    for (int i = 110; i < 113; ++i) marks[i] = 1;      // a 3-sample click
    marks[300] = 1;                                    // a single sample
    for (int i = 400; i < 400 + ArCrackleRepair::maxSpanLength; ++i) marks[i] = 1;  // too long: left alone
    for (int i = 700; i < 700 + ArCrackleRepair::maxSpanLength - 1; ++i) marks[i] = 1;
    for (int split : {1, 7, 64, 1000}) {
        SCOPED_TRACE(split);
        const auto spans = track(marks, 100, split);
        ASSERT_EQ(spans.size(), 3u);
        EXPECT_EQ(spans[0].channel, 3);
        EXPECT_EQ(spans[0].first, 10);
        EXPECT_EQ(spans[0].last, 12);
        EXPECT_EQ(spans[1].first, 200);
        EXPECT_EQ(spans[1].length(), 1);
        EXPECT_EQ(spans[2].first, 600);
        EXPECT_EQ(spans[2].length(), ArCrackleRepair::maxSpanLength - 1);
    }
}

TEST(ClickSpanTracker, IgnoresMarksBeforeTheFirstInputSampleAndRunsNotYetClosed)
{
    std::vector<int> marks(300, 0);
    marks[5] = 1;                                    // before the latency has passed
    for (int i = 290; i < 300; ++i) marks[i] = 1;   // still open at the end
    EXPECT_TRUE(track(marks, 100, 50).empty());
}
