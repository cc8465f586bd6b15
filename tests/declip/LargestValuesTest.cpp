#include "declip/LargestValues.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace {

float kthLargestBySorting(std::vector<float> values, int k)
{
    std::sort(values.begin(), values.end(), std::greater<float>());
    return values[k - 1];
}

// Magnitudes like a spectrum's: a wide spread of exponents, many exact ties and zeros.
std::vector<float> spectrumLike(int count, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> exponent(-30.0f, 4.0f);
    std::uniform_int_distribution<int> pick(0, 9);
    std::vector<float> values(count);
    for (float& value : values) {
        const int kind = pick(generator);
        value = kind == 0 ? 0.0f : (kind == 1 ? 0.25f : std::exp2(exponent(generator)));
    }
    return values;
}

TEST(LargestValues, MatchesAFullSortAtEveryRank)
{
    std::vector<std::uint32_t> scratch;
    for (int count : {1, 2, 7, 257, 1025}) {
        for (unsigned seed = 1; seed <= 3; ++seed) {
            const auto values = spectrumLike(count, seed);
            for (int k = 1; k <= count; k += std::max(1, count / 50))
                ASSERT_EQ(kthLargest(values.data(), count, k, scratch), kthLargestBySorting(values, k))
                    << "count " << count << " seed " << seed << " k " << k;
            ASSERT_EQ(kthLargest(values.data(), count, count, scratch), kthLargestBySorting(values, count));
        }
    }
}

TEST(LargestValues, AllEqualValues)
{
    std::vector<std::uint32_t> scratch;
    const std::vector<float> values(100, 3.5f);
    EXPECT_EQ(kthLargest(values.data(), 100, 1, scratch), 3.5f);
    EXPECT_EQ(kthLargest(values.data(), 100, 100, scratch), 3.5f);
}

}  // namespace
