// The calibration of the restored excess: on a signal whose magnitudes have an
// exponential tail, clipped and "restored" with twice the true excess, the factor
// brings the mean excess back to the true one; it never grows the excess, leaves
// heavily clipped channels and sparse bands alone, and never touches an unclipped sample.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "declip/ExcessScale.h"

namespace {

constexpr float level = 0.25f;

// Laplacian noise of scale 0.05: about 0.7% of it lies beyond 0.25 on each side,
// with a mean excess of 0.05.
std::vector<float> laplacian(int count, unsigned seed)
{
    std::mt19937 generator(seed);
    std::exponential_distribution<float> magnitude(20.0f);
    std::bernoulli_distribution positive(0.5);
    std::vector<float> x(count);
    for (float& v : x) v = positive(generator) ? magnitude(generator) : -magnitude(generator);
    return x;
}

float clip(float v) { return std::fmax(-level, std::fmin(level, v)); }

// Clips `truth` at the level, "restores" it with `stretch` times the true excess and
// returns the calibration of that.
ExcessScale calibrate(const std::vector<float>& truth, float stretch)
{
    ExcessScale scale(ClipLevels::symmetric(level));
    for (float v : truth) {
        const float clipped = clip(v);
        const float restored = clipped == v ? v : std::copysign(level + stretch * (std::fabs(v) - level), v);
        scale.add(clipped, restored);
    }
    scale.finish();
    return scale;
}

TEST(ExcessScale, BringsAnOverRestoredExcessBackToTheTail)
{
    const auto truth = laplacian(2000000, 3);
    const ExcessScale scale = calibrate(truth, 2.0f);
    // The restored excess is twice the true one: the factor should be about a half,
    // a little under, as the density over the band lies 14% above the level's.
    EXPECT_NEAR(scale.factor(1), 0.45f, 0.05f);
    EXPECT_NEAR(scale.factor(-1), 0.45f, 0.05f);
    double trueExcess = 0.0, calibratedExcess = 0.0;
    for (float v : truth) {
        if (std::fabs(v) < level) continue;
        trueExcess += std::fabs(v) - level;
        const float restored = std::copysign(level + 2.0f * (std::fabs(v) - level), v);
        calibratedExcess += std::fabs(scale.scaled(restored)) - level;
    }
    EXPECT_NEAR(calibratedExcess / trueExcess, 0.9, 0.1);
}

TEST(ExcessScale, NeverGrowsTheExcess)
{
    const ExcessScale scale = calibrate(laplacian(400000, 4), 0.5f);
    EXPECT_EQ(scale.factor(1), 1.0f);
    EXPECT_EQ(scale.factor(-1), 1.0f);
}

TEST(ExcessScale, LeavesAHeavilyClippedChannelAlone)
{
    // Clipped at a twentieth of the level, most of the noise lies beyond it.
    ExcessScale scale(ClipLevels::symmetric(0.0125f));
    for (float v : laplacian(100000, 5)) {
        const float clipped = std::fmax(-0.0125f, std::fmin(0.0125f, v));
        scale.add(clipped, clipped == v ? v : 4.0f * v);
    }
    scale.finish();
    EXPECT_EQ(scale.factor(1), 1.0f);
    EXPECT_EQ(scale.factor(-1), 1.0f);
}

TEST(ExcessScale, ASparseBandLeavesThePolarityAlone)
{
    // 20000 samples hold about 60 in each polarity's band: too few to tell the tail.
    const ExcessScale scale = calibrate(laplacian(20000, 6), 2.0f);
    EXPECT_EQ(scale.factor(1), 1.0f);
    EXPECT_EQ(scale.factor(-1), 1.0f);
}

TEST(ExcessScale, UnclippedSamplesKeepTheirBitsAndRestoredOnesStayBeyondTheLevel)
{
    const ExcessScale scale = calibrate(laplacian(400000, 7), 3.0f);
    for (float v : {0.0f, 0.1f, -0.2f, 0.2499f, -0.2499f}) EXPECT_EQ(scale.scaled(v), v);
    for (float v : {0.25f, 0.3f, 1.7f}) {
        EXPECT_GE(scale.scaled(v), level);
        EXPECT_LE(scale.scaled(-v), -level);
        EXPECT_LE(scale.scaled(v), v);
    }
}

}  // namespace

namespace {

TEST(ExcessScale, CountsTheClippedShareOfTheSamplesAdded)
{
    ExcessScale scale(ClipLevels::symmetric(0.5f));
    EXPECT_EQ(scale.clippedShare(), 0.0);
    for (float input : {0.5f, -0.5f, 0.2f, 0.49f, -0.1f, 0.5f, 0.0f, 0.3f})
        scale.add(input, input >= 0.5f || input <= -0.5f ? 2.0f * input : input);
    EXPECT_EQ(scale.clippedShare(), 3.0 / 8.0);
}

}  // namespace
