#include "declip/ClipLevelFinder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "declip/HardClipper.h"
#include "declip/DeclipTestSignals.h"

namespace {

ClipLevels levelsOf(const std::vector<float>& signal)
{
    ClipLevelFinder finder;
    finder.add(signal.data(), static_cast<std::int64_t>(signal.size()));
    return finder.levels();
}

// One bin of the histogram at the level: how closely a plateau's level is found.
constexpr float binTolerance = 1.0f / ClipLevelFinder::binsPerOctave;

TEST(ClipLevelFinder, FindsNoClippingInAnUnclippedSignal)
{
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const ClipLevels levels = levelsOf(declipsignals::tonal(44100, seed));
        EXPECT_FALSE(levels.any()) << "seed " << seed << ": " << levels.positive << ", " << levels.negative;
    }
}

// A steady tone's crest piles samples up just below its peak much as a codec-spread
// clip does, but nothing lies above it.
TEST(ClipLevelFinder, FindsNoClippingInASteadyTone)
{
    for (const double hertz : {100.0, 440.0, 1000.0, 5000.0})
        for (const double amplitude : {0.5, 0.9})
            for (const double step : {0.0, 1.0 / 32768.0}) {
                std::vector<float> tone(88200);
                for (std::size_t t = 0; t < tone.size(); ++t) {
                    const double x = amplitude * std::sin(2.0 * M_PI * hertz * static_cast<double>(t) / 44100.0);
                    tone[t] = static_cast<float>(step > 0.0 ? std::round(x / step) * step : x);
                }
                const ClipLevels levels = levelsOf(tone);
                EXPECT_FALSE(levels.any()) << hertz << " Hz at " << amplitude << ", step " << step << ": "
                                           << levels.positive << ", " << levels.negative;
            }
}

TEST(ClipLevelFinder, FindsAHardClipLevelBelowFullScale)
{
    for (float level : {0.8f, 0.5f, 0.05f}) {
        const auto clipped = hardclip::clip(declipsignals::tonal(44100, 3), level);
        const ClipLevels found = levelsOf(clipped);
        EXPECT_NEAR(found.positive, level, level * binTolerance) << level;
        EXPECT_NEAR(found.negative, level, level * binTolerance) << level;
        EXPECT_LE(found.positive, level);
    }
}

TEST(ClipLevelFinder, JudgesEachPolarityOnItsOwn)
{
    auto signal = declipsignals::tonal(44100, 4);
    for (float& x : signal) x = std::min(x, 0.6f);
    const ClipLevels found = levelsOf(signal);
    EXPECT_NEAR(found.positive, 0.6f, 0.6f * binTolerance);
    EXPECT_EQ(found.negative, ClipLevels::none);
}

TEST(ClipLevelFinder, ToleratesRippleAroundThePlateau)
{
    // A lossy codec after clipping leaves a plateau that wobbles by a few percent.
    const float level = 0.7f;
    for (float ripple : {0.01f, 0.04f}) {
        auto clipped = hardclip::clip(declipsignals::tonal(44100, 5), level);
        std::int64_t plateau = 0, flagged = 0;
        for (std::size_t n = 0; n < clipped.size(); ++n)
            if (std::fabs(clipped[n]) >= level) {
                clipped[n] *= 1.0f + ripple * static_cast<float>(std::sin(0.9 * n));
                ++plateau;
            }
        const ClipLevels found = levelsOf(clipped);
        ASSERT_TRUE(found.any()) << ripple;
        // The lower edge of the hump, within a growth step of the ripple's trough.
        EXPECT_GE(found.positive, (1.0f - ripple - 0.005f) * level) << ripple;
        EXPECT_LE(found.positive, 1.0f * level) << ripple;
        for (float x : clipped) flagged += found.sign(x) != 0;
        EXPECT_GE(flagged, plateau * 8 / 10) << ripple;
        EXPECT_LE(flagged, plateau * 3 / 2) << ripple;  // with a few natural samples at the edge
    }
}

TEST(ClipLevelFinder, ResetForgetsEverything)
{
    ClipLevelFinder finder;
    const auto clipped = hardclip::clip(declipsignals::tonal(4410, 6), 0.5f);
    finder.add(clipped.data(), static_cast<std::int64_t>(clipped.size()));
    ASSERT_TRUE(finder.levels().any());
    finder.reset();
    EXPECT_FALSE(finder.levels().any());
}

// 8-bit mu-law: 16 steps per segment, so near the top a step is a few percent of
// the value, and each step piles up samples the way a clip level does.
std::vector<float> muLawQuantised(std::vector<float> signal)
{
    const double mu = 255.0;
    for (float& x : signal) {
        const double compressed = std::log1p(mu * std::min(std::fabs(x), 1.0f)) / std::log1p(mu);
        const double step = std::round(compressed * 127.0) / 127.0;
        x = static_cast<float>(std::copysign(std::expm1(step * std::log1p(mu)) / mu, x));
    }
    return signal;
}

TEST(ClipLevelFinder, TakesTheStepsOfACoarselyQuantisedSignalForNoClipping)
{
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const ClipLevels levels = levelsOf(muLawQuantised(declipsignals::tonal(44100, seed)));
        EXPECT_FALSE(levels.any()) << "seed " << seed << ": " << levels.positive << ", " << levels.negative;
    }
}

TEST(ClipLevelFinder, FindsTheClipLevelOfACoarselyQuantisedSignal)
{
    const float level = 0.5f;
    const auto clipped = muLawQuantised(hardclip::clip(declipsignals::tonal(44100, 3), level));
    const ClipLevels found = levelsOf(clipped);
    ASSERT_TRUE(found.any());
    EXPECT_NEAR(found.positive, level, 0.04f * level);  // within a mu-law step
    EXPECT_NEAR(found.negative, level, 0.04f * level);
}

}  // namespace
