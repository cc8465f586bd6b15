#include "ar/ClassicRand.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <thread>
#include <vector>

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

namespace {

TEST(ClassicRand, FillGivesTheValuesOfSuccessiveCalls)
{
    for (int count : {0, 1, 7, 8, 9, 16, 1000, 1024, 1031}) {
        ferrotip::srand(4321);
        std::vector<int> expected(count);
        for (int& v : expected) v = ferrotip::rand();
        const int next = ferrotip::rand();
        ferrotip::srand(4321);
        std::vector<int> filled(count);
        ferrotip::randFill(filled.data(), count);
        EXPECT_EQ(filled, expected) << count;
        EXPECT_EQ(ferrotip::rand(), next) << count;
    }
}

TEST(ClassicRand, SkipLandsWhereTheCallsWould)
{
    for (std::uint64_t count : {0u, 1u, 2u, 3u, 1024u, 3072u, 65537u}) {
        ferrotip::srand(77);
        for (std::uint64_t i = 0; i < count; ++i) ferrotip::rand();
        const int expected = ferrotip::rand();
        ferrotip::srand(77);
        ferrotip::randSkip(count);
        EXPECT_EQ(ferrotip::rand(), expected) << count;
    }
    // A whole period brings the state back.
    ferrotip::srand(5);
    const int first = ferrotip::rand();
    ferrotip::srand(5);
    ferrotip::randSkip(std::uint64_t{1} << 32);
    EXPECT_EQ(ferrotip::rand(), first);
}

}  // namespace
