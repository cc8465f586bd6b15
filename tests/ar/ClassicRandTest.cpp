#include "ar/ClassicRand.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>

namespace {

TEST(ClassicRand, FirstValuesOfAFreshThread)
{
    // state 1 -> 1 * 214013 + 2531011 = 2745024, bits 16..30 = 41; the classic
    // sequence continues 18467, 6334, 26500, 19169.
    int values[5] = {};
    std::thread([&] {
        for (int& v : values) v = ferrotip::rand();
    }).join();
    EXPECT_EQ(values[0], 41);
    EXPECT_EQ(values[1], 18467);
    EXPECT_EQ(values[2], 6334);
    EXPECT_EQ(values[3], 26500);
    EXPECT_EQ(values[4], 19169);
}

TEST(ClassicRand, SeedOneRestartsTheSequence)
{
    ferrotip::srand(1);
    const int first = ferrotip::rand();
    ferrotip::rand();
    ferrotip::srand(1);
    EXPECT_EQ(ferrotip::rand(), first);
}

TEST(ClassicRand, StaysWithinFifteenBits)
{
    ferrotip::srand(12345);
    for (int i = 0; i < 100000; ++i) {
        const int v = ferrotip::rand();
        ASSERT_GE(v, 0);
        ASSERT_LE(v, ferrotip::classicRandMax);
    }
}

TEST(ClassicRand, EachThreadHasItsOwnState)
{
    ferrotip::srand(999);
    ferrotip::rand();
    int other = -1;
    std::thread([&] { other = ferrotip::rand(); }).join();
    EXPECT_EQ(other, 41);
}

}  // namespace
