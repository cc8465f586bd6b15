#include "declip/BoundedArFill.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "declip/ClipLevels.h"
#include "declip/DeclipTestSignals.h"
#include "declip/FrameGrid.h"
#include "declip/HardClipper.h"

namespace {

constexpr int length = 4096;
constexpr int order = 64;

struct Frame {
    std::vector<double> samples;
    std::vector<float> lower, upper;
};

Frame clippedFrame(const std::vector<float>& clipped, ClipLevels levels)
{
    Frame frame{std::vector<double>(clipped.begin(), clipped.end()), clipped, clipped};
    for (int n = 0; n < length; ++n) {
        const int sign = levels.sign(clipped[n]);
        if (sign > 0) frame.upper[n] = ClipLevels::none;
        if (sign < 0) frame.lower[n] = -ClipLevels::none;
    }
    return frame;
}

double errorEnergy(const std::vector<float>& truth, const std::vector<double>& estimate, ClipLevels levels,
                   const std::vector<float>& clipped)
{
    double energy = 0.0;
    for (int n = 0; n < length; ++n)
        if (levels.sign(clipped[n]) != 0) energy += (estimate[n] - truth[n]) * (estimate[n] - truth[n]);
    return energy;
}

TEST(BoundedArFill, RestoresLightlyClippedTonesAndKeepsEverythingElse)
{
    const auto clean = declipsignals::tonal(length, 31);
    const float level = 0.7f;
    const auto clipped = hardclip::clip(clean, level);
    const auto levels = ClipLevels::symmetric(level);
    Frame frame = clippedFrame(clipped, levels);
    BoundedArFill fill(length, order);
    fill.fill(frame.samples.data(), frame.lower.data(), frame.upper.data(), frame_grid::periodicHann(length).data());

    std::vector<double> asClipped(clipped.begin(), clipped.end());
    int clippedCount = 0;
    for (int n = 0; n < length; ++n) {
        const int sign = levels.sign(clipped[n]);
        clippedCount += sign != 0;
        if (sign == 0) {
            EXPECT_EQ(frame.samples[n], clipped[n]) << n;
        }
        if (sign > 0) {
            EXPECT_GE(frame.samples[n], clipped[n]) << n;
        }
        if (sign < 0) {
            EXPECT_LE(frame.samples[n], clipped[n]) << n;
        }
    }
    ASSERT_GT(clippedCount, 20);
    // A few sinusoids are what an autoregressive model predicts well: the fill takes
    // most of the clipped error away.
    EXPECT_LT(errorEnergy(clean, frame.samples, levels, clipped),
              0.1 * errorEnergy(clean, asClipped, levels, clipped));
}

TEST(BoundedArFill, HoldsAFillThatFallsShortOfTheLevelAtIt)
{
    // A silent frame but for one clipped sample: its model predicts nothing, so the
    // unconstrained fill is zero, on the wrong side of the bound.
    std::vector<float> clipped(length, 0.0f);
    clipped[2000] = 0.5f;
    const auto levels = ClipLevels::symmetric(0.5f);
    Frame frame = clippedFrame(clipped, levels);
    BoundedArFill fill(length, order);
    fill.fill(frame.samples.data(), frame.lower.data(), frame.upper.data(), frame_grid::periodicHann(length).data());
    EXPECT_EQ(frame.samples[2000], 0.5);
}

TEST(BoundedArFill, GivesTheSameBitsEachTime)
{
    const auto clipped = hardclip::clip(declipsignals::tonal(length, 32), 0.5f);
    const auto levels = ClipLevels::symmetric(0.5f);
    const auto window = frame_grid::periodicHann(length);
    BoundedArFill fill(length, order);
    Frame first = clippedFrame(clipped, levels), second = first;
    fill.fill(first.samples.data(), first.lower.data(), first.upper.data(), window.data());
    Frame other = clippedFrame(hardclip::clip(declipsignals::tonal(length, 33), 0.3f), ClipLevels::symmetric(0.3f));
    fill.fill(other.samples.data(), other.lower.data(), other.upper.data(), window.data());
    fill.fill(second.samples.data(), second.lower.data(), second.upper.data(), window.data());
    EXPECT_EQ(first.samples, second.samples);
}

}  // namespace
