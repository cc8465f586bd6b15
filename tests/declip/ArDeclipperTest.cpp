#include "declip/ArDeclipper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "declip/DeclipTestSignals.h"
#include "declip/DeclipperChecks.h"
#include "declip/HardClipper.h"

namespace {

constexpr float level = 0.6f;


// Equal as bits, NaN included.
bool sameBits(const std::vector<float>& a, const std::vector<float>& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](float x, float y) {
               return x == y || (std::isnan(x) && std::isnan(y));
           });
}

TEST(ArDeclipper, ChangesOnlyClippedSamplesAndKeepsThemBeyondTheLevel)
{
    ArDeclipper declipper(ArDeclipper::Settings::forSampleRate(44100));
    const auto clean = declipsignals::tonal(20000, 21);
    const auto clipped = hardclip::clip(clean, level);
    const auto levels = ClipLevels::symmetric(level);
    const auto restored = declipchecks::restoreInPieces(declipper, clipped, levels, 20000);
    declipchecks::expectConsistent(restored, clipped, levels);
    EXPECT_GT(hardclip::sdr(clean.data(), restored.data(), clean.size()),
              hardclip::sdr(clean.data(), clipped.data(), clean.size()) + 10.0);
}

TEST(ArDeclipper, PiecesWithContextGiveTheSameBitsAsTheWhole)
{
    ArDeclipper declipper(ArDeclipper::Settings::forSampleRate(44100));
    const auto clipped = hardclip::clip(declipsignals::tonal(15000, 23), level);
    const auto levels = ClipLevels::symmetric(level);
    const auto whole = declipchecks::restoreInPieces(declipper, clipped, levels, 15000);
    for (std::int64_t piece : {777, 4096, 5000})
        EXPECT_TRUE(sameBits(declipchecks::restoreInPieces(declipper, clipped, levels, piece), whole))
            << "pieces of " << piece;
}

TEST(ArDeclipper, GivesTheSameBitsOnAnyNumberOfThreads)
{
    ArDeclipper alone(ArDeclipper::Settings::forSampleRate(44100));
    const auto clipped = hardclip::clip(declipsignals::tonal(30000, 27), level);
    const auto levels = ClipLevels::symmetric(level);
    const auto whole = declipchecks::restoreInPieces(alone, clipped, levels, 30000);
    for (int threads : {2, 3}) {
        ArDeclipper declipper(ArDeclipper::Settings::forSampleRate(44100), threads);
        EXPECT_TRUE(sameBits(declipchecks::restoreInPieces(declipper, clipped, levels, 30000), whole)) << threads;
        EXPECT_TRUE(sameBits(declipchecks::restoreInPieces(declipper, clipped, levels, 7000), whole)) << threads;
    }
}

TEST(ArDeclipper, LeavesHeavilyClippedFramesToTheSparseRestoration)
{
    // Clipped at 2% of the peak, every frame holds far more than 40% clipped
    // samples: none is solved, and every clipped sample comes back NaN.
    ArDeclipper declipper(ArDeclipper::Settings::forSampleRate(44100));
    const auto clipped = hardclip::clip(declipsignals::tonal(12000, 24), 0.02f);
    const auto levels = ClipLevels::symmetric(0.02f);
    std::vector<float> out(clipped.size());
    const auto length = static_cast<std::int64_t>(clipped.size());
    EXPECT_EQ(declipper.restore(clipped.data(), length, 0, levels, 0, length, out.data()), 0);
    for (std::size_t n = 0; n < clipped.size(); ++n) {
        if (levels.sign(clipped[n]) != 0)
            EXPECT_TRUE(std::isnan(out[n])) << n;
        else
            EXPECT_EQ(out[n], clipped[n]) << n;
    }
}

TEST(ArDeclipper, BlendsOnlyLightlyClippedChannelsAboveNarrowBand)
{
    const ArDeclipper wide(ArDeclipper::Settings::forSampleRate(44100));
    EXPECT_TRUE(wide.used());
    EXPECT_EQ(wide.weightFor(0.05), 0.25f);
    EXPECT_FLOAT_EQ(wide.weightFor(0.12), 0.125f);
    EXPECT_EQ(wide.weightFor(0.3), 0.0f);
    EXPECT_FALSE(ArDeclipper(ArDeclipper::Settings::forSampleRate(8000)).used());

    EXPECT_EQ(ArDeclipper::blended(2.0f, 1.0f, 0.0f), 2.0f);
    EXPECT_EQ(ArDeclipper::blended(2.0f, std::nanf(""), 0.3f), 2.0f);
    EXPECT_FLOAT_EQ(ArDeclipper::blended(2.0f, 1.0f, 0.25f), 1.75f);
}

}  // namespace
