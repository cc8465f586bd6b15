#include "declick/RepairedSpan.h"

#include <gtest/gtest.h>

TEST(RepairedSpan, OverlappingSpansOfAChannelAreJoinedAndTheListIsInTimeOrder)
{
    std::vector<RepairedSpan> spans{{1, 50, 60}, {0, 10, 12}, {1, 55, 70}, {0, 12, 12}, {0, 13, 14}, {1, 5, 9}};
    mergeOverlappingSpans(spans);
    ASSERT_EQ(spans.size(), 4u);
    const RepairedSpan expected[] = {{1, 5, 9}, {0, 10, 12}, {0, 13, 14}, {1, 50, 70}};
    for (std::size_t i = 0; i < spans.size(); ++i) {
        EXPECT_EQ(spans[i].channel, expected[i].channel) << i;
        EXPECT_EQ(spans[i].first, expected[i].first) << i;
        EXPECT_EQ(spans[i].last, expected[i].last) << i;
    }
}
