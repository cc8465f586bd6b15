// Least-squares AR interpolation of a few samples of fine crackle.
#include "declick/ShortGapFill.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

namespace {

// Two tones and a little noise, about 0.3 rms.
std::vector<float> tones(int count)
{
    std::mt19937 rng(11);
    std::normal_distribution<double> noise(0.0, 1e-4);
    std::vector<float> samples(static_cast<std::size_t>(count));
    for (int n = 0; n < count; ++n)
        samples[n] = static_cast<float>(0.3 * std::sin(2.0 * std::numbers::pi * 0.013 * n) +
                                        0.2 * std::cos(2.0 * std::numbers::pi * 0.071 * n + 0.5) + noise(rng));
    return samples;
}

TEST(ShortGapFill, RestoresAFewSamplesOfTonesToTheNoise)
{
    ShortGapFill fill;
    const std::vector<float> clean = tones(4000);
    for (int length = 1; length <= ShortGapFill::maxGap; ++length) {
        std::vector<float> damaged = clean;
        const int first = 1800;
        for (int i = 0; i < length; ++i) damaged[first + i] += 0.5f;
        ASSERT_TRUE(fill.fill(damaged, first, length)) << length;
        for (int i = 0; i < length; ++i) EXPECT_NEAR(damaged[first + i], clean[first + i], 2e-3) << length << " " << i;
        for (std::size_t n = 0; n < clean.size(); ++n) {
            if (static_cast<int>(n) < first || static_cast<int>(n) >= first + length) {
                ASSERT_EQ(damaged[n], clean[n]) << n;
            }
        }
    }
}

TEST(ShortGapFill, RefusesGapsOutsideItsRangeAndSilence)
{
    ShortGapFill fill;
    std::vector<float> samples = tones(3000);
    const std::vector<float> before = samples;
    EXPECT_FALSE(fill.fill(samples, 1500, 0));
    EXPECT_FALSE(fill.fill(samples, 1500, ShortGapFill::maxGap + 1));
    EXPECT_EQ(samples, before);
    std::vector<float> silence(3000, 0.0f);
    silence[1500] = 0.25f;
    silence[1500] = 0.0f;
    EXPECT_FALSE(fill.fill(silence, 1500, 2));
}

}  // namespace
