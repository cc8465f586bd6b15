#include "signal/SpreadOverThreads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

namespace {

TEST(SpreadOverThreads, RunsEveryIndexOnceOnTheThreadsAsked)
{
    for (int threads : {1, 2, 4, 9}) {
        for (int count : {0, 1, 3, 100}) {
            std::vector<std::atomic<int>> runs(static_cast<std::size_t>(count));
            std::vector<std::atomic<int>> busy(static_cast<std::size_t>(threads));
            std::atomic<bool> shared{false};
            spreadOverThreads(count, threads, [&](int index, int thread) {
                ASSERT_GE(thread, 0);
                ASSERT_LT(thread, threads);
                if (busy[thread]++ != 0) shared = true;  // two tasks on one thread's scratch
                ++runs[index];
                --busy[thread];
            });
            EXPECT_FALSE(shared);
            for (int index = 0; index < count; ++index) EXPECT_EQ(runs[index], 1) << index;
        }
    }
}

TEST(SpreadOverThreads, TakesATaskOfTheIndexAlone)
{
    std::vector<int> squares(50);
    spreadOverThreads(50, 3, [&](int index) { squares[index] = index * index; });
    for (int index = 0; index < 50; ++index) EXPECT_EQ(squares[index], index * index);
}

}  // namespace
