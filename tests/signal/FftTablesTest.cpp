// The table builders' limits and values, and the two fixed tables.
#include "signal/FftTables.h"
#include "signal/PortableCosine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using standardLib::bitReverseByte;
using standardLib::buildComplexCosTable;
using standardLib::buildRealCosTable;
using standardLib::powerOfTwo;

constexpr float untouched = -7.0f;

// Result of a builder and whether it left a table of sentinels untouched.
template <typename Builder>
int build(Builder builder, int size, int& log2Size, bool& tableUntouched) {
    std::vector<float> table(static_cast<std::size_t>(size > 0 ? size / 4 + 1 : 1), untouched);
    log2Size = -1;
    const int result = builder(&log2Size, size, table.data());
    tableUntouched = true;
    for (float v : table)
        tableUntouched = tableUntouched && v == untouched;
    return result;
}

TEST(FftTables, BitReverseByteReversesEightBits) {
    EXPECT_EQ(bitReverseByte[0], 0);
    EXPECT_EQ(bitReverseByte[1], 128);
    EXPECT_EQ(bitReverseByte[2], 64);
    EXPECT_EQ(bitReverseByte[3], 192);
    EXPECT_EQ(bitReverseByte[4], 32);
    for (int i = 0; i < 256; ++i)
        EXPECT_EQ(bitReverseByte[bitReverseByte[i]], i);
}

TEST(FftTables, PowerOfTwoHoldsTwoToTheZeroThroughTwenty) {
    ASSERT_EQ(powerOfTwo.size(), 21u);
    for (int e = 0; e <= 20; ++e)
        EXPECT_EQ(powerOfTwo[e], 1 << e);
}

TEST(FftTables, RealBuilderRefusesEightNonPowersAndTwoToTheTwentyOne) {
    int log2Size = 0;
    bool tableUntouched = false;
    EXPECT_EQ(build(buildRealCosTable<float>, 8, log2Size, tableUntouched), 1);
    EXPECT_EQ(log2Size, 3);
    EXPECT_TRUE(tableUntouched);
    EXPECT_EQ(build(buildRealCosTable<float>, 1000, log2Size, tableUntouched), 1);
    EXPECT_EQ(log2Size, 10);
    EXPECT_TRUE(tableUntouched);
    EXPECT_EQ(build(buildRealCosTable<float>, 1 << 21, log2Size, tableUntouched), 1);
    EXPECT_EQ(log2Size, 21);
    EXPECT_TRUE(tableUntouched);
    EXPECT_EQ(build(buildRealCosTable<float>, 1536, log2Size, tableUntouched), 1);
    EXPECT_TRUE(tableUntouched);
}

TEST(FftTables, RealBuilderAcceptsSixteenAndTwoToTheTwenty) {
    int log2Size = 0;
    bool tableUntouched = true;
    EXPECT_EQ(build(buildRealCosTable<float>, 16, log2Size, tableUntouched), 0);
    EXPECT_EQ(log2Size, 4);
    EXPECT_FALSE(tableUntouched);
    EXPECT_EQ(build(buildRealCosTable<float>, 1 << 20, log2Size, tableUntouched), 0);
    EXPECT_EQ(log2Size, 20);
}

TEST(FftTables, ComplexBuilderAcceptsEightAndRefusesTwoToTheTwenty) {
    int log2Size = 0;
    bool tableUntouched = true;
    EXPECT_EQ(build(buildComplexCosTable<float>, 8, log2Size, tableUntouched), 0);
    EXPECT_EQ(log2Size, 3);
    EXPECT_EQ(build(buildComplexCosTable<float>, 1 << 19, log2Size, tableUntouched), 0);
    EXPECT_EQ(log2Size, 19);
    EXPECT_EQ(build(buildComplexCosTable<float>, 1 << 20, log2Size, tableUntouched), 1);
    EXPECT_EQ(log2Size, 20);
    EXPECT_TRUE(tableUntouched);
    EXPECT_EQ(build(buildComplexCosTable<float>, 4, log2Size, tableUntouched), 1);
    EXPECT_TRUE(tableUntouched);
}

TEST(FftTables, NonPositiveSizesAreRefused) {
    int log2Size = -1;
    bool tableUntouched = false;
    EXPECT_EQ(build(buildRealCosTable<float>, 0, log2Size, tableUntouched), 1);
    EXPECT_EQ(log2Size, 0);
    EXPECT_TRUE(tableUntouched);
    EXPECT_EQ(build(buildComplexCosTable<float>, -8, log2Size, tableUntouched), 1);
    EXPECT_TRUE(tableUntouched);
}

// Every entry is the library's portable double cosine of i * 6.283185307179586 / N
// rounded once, so the last one is the computed cosine of the rounded quarter
// turn, not 0.
TEST(FftTables, EntriesAreDoubleCosinesRoundedOnce) {
    const int n = 1024;
    std::vector<double> doubles(n / 4 + 1);
    std::vector<float> floats(n / 4 + 1);
    int log2Size = 0;
    ASSERT_EQ(buildRealCosTable<double>(&log2Size, n, doubles.data()), 0);
    ASSERT_EQ(buildComplexCosTable<float>(&log2Size, n, floats.data()), 0);
    for (int i = 0; i <= n / 4; ++i) {
        const double want = standardLib::cosine(static_cast<double>(i) * 6.283185307179586 / n);
        EXPECT_EQ(doubles[i], want) << i;
        EXPECT_EQ(floats[i], static_cast<float>(want)) << i;
    }
    EXPECT_EQ(doubles[0], 1.0);
    EXPECT_NE(doubles[n / 4], 0.0);
    EXPECT_NEAR(doubles[n / 4], 6.123233995736766e-17, 1e-30);
}

}  // namespace
