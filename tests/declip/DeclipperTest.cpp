#include "declip/Declipper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "declip/DeclipperChecks.h"
#include "declip/HardClipper.h"
#include "declip/DeclipTestSignals.h"

namespace {

constexpr float level = 0.6f;

std::vector<float> restoreWhole(Declipper& declipper, const std::vector<float>& clipped, ClipLevels levels)
{
    std::vector<float> out(clipped.size());
    const auto length = static_cast<std::int64_t>(clipped.size());
    declipper.restore(clipped.data(), length, 0, levels, 0, length, out.data());
    return out;
}

TEST(Declipper, ChangesOnlyClippedSamplesAndKeepsThemBeyondTheLevel)
{
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(44100));
    const auto clean = declipsignals::tonal(20000, 21);
    const auto clipped = hardclip::clip(clean, level);
    const auto levels = ClipLevels::symmetric(level);
    const auto restored = restoreWhole(declipper, clipped, levels);
    declipchecks::expectConsistent(restored, clipped, levels);
    EXPECT_GT(hardclip::sdr(clean.data(), restored.data(), clean.size()),
              hardclip::sdr(clean.data(), clipped.data(), clean.size()) + 10.0);
}

// A float file may hold values near the top of the float range: where the restoration
// overflows, the clipped samples stay at the level rather than turning into NaN.
TEST(Declipper, HugeSamplesComeBackFinite)
{
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(44100));
    constexpr float scale = 1e36f;
    auto clean = declipsignals::tonal(20000, 21);
    for (float& x : clean) x *= scale;
    const auto clipped = hardclip::clip(clean, level * scale);
    const auto restored = restoreWhole(declipper, clipped, ClipLevels::symmetric(level * scale));
    for (std::size_t n = 0; n < clipped.size(); ++n) {
        ASSERT_TRUE(std::isfinite(restored[n])) << n;
        EXPECT_GE(std::fabs(restored[n]), std::fabs(clipped[n])) << n;
    }
}

TEST(Declipper, CopiesAnUnclippedSignalWithoutSolvingAFrame)
{
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(44100));
    const auto clean = declipsignals::tonal(9000, 22);
    std::vector<float> out(clean.size());
    const auto stats = declipper.restore(clean.data(), 9000, 0, ClipLevels::symmetric(2.0f), 0, 9000, out.data());
    EXPECT_EQ(out, clean);
    EXPECT_EQ(stats.framesSolved, 0);
}


TEST(Declipper, FramesNearlyAllClippedGiveTheSameBitsInPieces)
{
    // At 8 kHz a frame with more than 85% of its samples clipped is solved in a four
    // times oversampled DFT: clipped at 2% of the peak, nearly every frame is.
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(8000));
    const float low = 0.02f;
    const auto clipped = hardclip::clip(declipsignals::tonal(3000, 25), low);
    const auto levels = ClipLevels::symmetric(low);
    const auto whole = restoreWhole(declipper, clipped, levels);
    EXPECT_EQ(declipchecks::restoreInPieces(declipper, clipped, levels, 1000), whole);
    EXPECT_NE(whole, clipped);
}

// A quiet tone with one short burst above the level at `at`: a single short clipped run.
std::vector<float> oneShortRun(std::size_t length, std::size_t at)
{
    auto signal = declipsignals::tonal(length, 24);
    for (float& x : signal) x *= 0.3f;
    constexpr int width = 48;
    for (int n = 0; n < width; ++n)
        signal[at + n] += 0.9f * static_cast<float>(std::sin(3.141592653589793 * n / width));
    return hardclip::clip(signal, level);
}

TEST(Declipper, GivesTheSameBitsOnAnyNumberOfThreads)
{
    // Light, heavy and nearly wholly clipped frames (8 kHz: oversampled DFTs), whole and in pieces.
    const auto levels = ClipLevels::symmetric(level);
    for (float gain : {1.0f, 3.0f, 30.0f}) {
        auto signal = declipsignals::tonal(6000, 26);
        for (float& x : signal) x *= gain;
        const auto clipped = hardclip::clip(signal, level);
        Declipper alone(FrameDeclipper::Settings::forSampleRate(8000));
        const auto whole = restoreWhole(alone, clipped, levels);
        for (int threads : {2, 3, 5}) {
            Declipper declipper(FrameDeclipper::Settings::forSampleRate(8000), threads);
            EXPECT_EQ(restoreWhole(declipper, clipped, levels), whole) << gain << " on " << threads;
            EXPECT_EQ(declipchecks::restoreInPieces(declipper, clipped, levels, 1500), whole) << gain << " on " << threads;
        }
    }
}

TEST(Declipper, PiecesWithContextGiveTheSameBitsAsTheWhole)
{
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(44100));
    const auto clipped = hardclip::clip(declipsignals::tonal(12000, 23), level);
    const auto levels = ClipLevels::symmetric(level);
    const auto whole = restoreWhole(declipper, clipped, levels);
    for (std::int64_t piece : {777, 4096, 5000})
        EXPECT_EQ(declipchecks::restoreInPieces(declipper, clipped, levels, piece), whole) << "pieces of " << piece;
}

TEST(Declipper, SolvesAShortRunInTheTwoFramesWhoseCentralHalvesHoldIt)
{
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(44100));
    const int hop = declipper.hop();
    // Well inside the central halves of frames 3 and 4, and near the ends of frames 2 and 5.
    const auto clipped = oneShortRun(30000, 5 * hop + 1000);
    const auto levels = ClipLevels::symmetric(level);
    std::vector<float> whole(clipped.size());
    const auto length = static_cast<std::int64_t>(clipped.size());
    const auto stats = declipper.restore(clipped.data(), length, 0, levels, 0, length, whole.data());
    EXPECT_EQ(stats.framesSolved, 2);
    int raised = 0;
    for (std::size_t n = 0; n < clipped.size(); ++n) raised += levels.sign(clipped[n]) != 0 && whole[n] != clipped[n];
    EXPECT_GT(raised, 0) << "the run is restored beyond the level";
    for (std::int64_t piece : {1000, 5 * hop + 1010, 11000})
        EXPECT_EQ(declipchecks::restoreInPieces(declipper, clipped, levels, piece), whole) << "pieces of " << piece;
}

}  // namespace
