#include "declip/SocialDeclipper.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "declip/DeclipTestSignals.h"
#include "declip/DeclipperChecks.h"
#include "declip/HardClipper.h"

namespace {

// Blocks of 8192 samples in frames of 512 (those of 8 kHz, where the restoration is
// not used otherwise): small enough for tests.
SocialDeclipper::Settings testSettings()
{
    SocialDeclipper::Settings settings = SocialDeclipper::Settings::forSampleRate(8000);
    settings.weight = 0.3f;
    return settings;
}

// The restoration's value where it has one and the clipped sample elsewhere, as a
// streaming caller restores in pieces; the shares go to `shares`.
struct Restorer {
    SocialDeclipper& declipper;
    std::vector<float> shares;

    std::int64_t context() const { return declipper.context(); }
    void restore(const float* window, std::int64_t length, std::int64_t origin, ClipLevels levels,
                 std::int64_t from, std::int64_t to, float* out)
    {
        std::vector<float> share(to - from);
        declipper.restore(window, length, origin, levels, from, to, out, share.data());
        for (std::int64_t i = from; i < to; ++i)
            if (std::isnan(out[i - from])) out[i - from] = window[i];
        shares.insert(shares.end(), share.begin(), share.end());
    }
};

std::vector<float> restoreInPieces(SocialDeclipper& declipper, const std::vector<float>& clipped, ClipLevels levels,
                                   std::int64_t piece, std::vector<float>* shares = nullptr)
{
    Restorer restorer{declipper, {}};
    auto restored = declipchecks::restoreInPieces(restorer, clipped, levels, piece);
    if (shares) *shares = restorer.shares;
    return restored;
}

bool sameBits(const std::vector<float>& a, const std::vector<float>& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin());
}

// The level at which `share` of the signal's samples are clipped.
float levelClipping(const std::vector<float>& signal, double share)
{
    std::vector<float> magnitude(signal.size());
    std::transform(signal.begin(), signal.end(), magnitude.begin(), [](float x) { return std::fabs(x); });
    const auto at = magnitude.begin() + static_cast<std::ptrdiff_t>((1.0 - share) * magnitude.size());
    std::nth_element(magnitude.begin(), at, magnitude.end());
    return *at;
}

TEST(SocialDeclipper, RestoresClippedTonesFarBetterThanTheClipping)
{
    SocialDeclipper declipper(testSettings());
    const auto clean = declipsignals::tonal(24000, 31);
    const float level = levelClipping(clean, 0.15);
    const auto clipped = hardclip::clip(clean, level);
    const auto levels = ClipLevels::symmetric(level);
    std::vector<float> shares;
    const auto restored = restoreInPieces(declipper, clipped, levels, 24000, &shares);
    declipchecks::expectConsistent(restored, clipped, levels);
    EXPECT_GT(hardclip::sdr(clean.data(), restored.data(), clean.size()),
              hardclip::sdr(clean.data(), clipped.data(), clean.size()) + 10.0);
    // Every block holds about 15% clipped samples: each is solved and the full weight is used.
    for (std::size_t n = 0; n < clipped.size(); ++n)
        EXPECT_EQ(shares[n], levels.sign(clipped[n]) != 0 ? 0.3f : 0.0f) << n;
}

TEST(SocialDeclipper, PiecesWithContextGiveTheSameBitsAsTheWhole)
{
    SocialDeclipper declipper(testSettings());
    const auto clean = declipsignals::tonal(20000, 33);
    const auto levels = ClipLevels::symmetric(levelClipping(clean, 0.1));
    const auto clipped = hardclip::clip(clean, levels.positive);
    std::vector<float> wholeShares, pieceShares;
    const auto whole = restoreInPieces(declipper, clipped, levels, 20000, &wholeShares);
    for (std::int64_t piece : {3000, 4096, 9999}) {
        EXPECT_TRUE(sameBits(restoreInPieces(declipper, clipped, levels, piece, &pieceShares), whole)) << piece;
        EXPECT_TRUE(sameBits(pieceShares, wholeShares)) << piece;
    }
}

// As a streaming caller restores a stereo file: the two channels' pieces in turn, each
// with its own levels, through one declipper that remembers blocks of either.
TEST(SocialDeclipper, ChannelsRestoredInTurnGiveTheBitsOfEachAlone)
{
    const auto left = declipsignals::tonal(20000, 47), right = declipsignals::tonal(20000, 53);
    const auto leftLevels = ClipLevels::symmetric(levelClipping(left, 0.15));
    const auto rightLevels = ClipLevels::symmetric(levelClipping(right, 0.25));
    const auto leftClipped = hardclip::clip(left, leftLevels.positive);
    const auto rightClipped = hardclip::clip(right, rightLevels.positive);
    SocialDeclipper alone(testSettings());
    const auto leftWhole = restoreInPieces(alone, leftClipped, leftLevels, 20000);
    const auto rightWhole = restoreInPieces(alone, rightClipped, rightLevels, 20000);
    for (int remembered : {1, 2}) {
        SocialDeclipper both(testSettings(), 1, remembered);
        Restorer leftRestorer{both, {}}, rightRestorer{both, {}};
        std::vector<float> leftJoined, rightJoined;
        for (std::int64_t from = 0; from < 20000; from += 5000) {
            declipchecks::restorePiece(leftRestorer, leftClipped, leftLevels, from, from + 5000, leftJoined);
            declipchecks::restorePiece(rightRestorer, rightClipped, rightLevels, from, from + 5000, rightJoined);
        }
        EXPECT_TRUE(sameBits(leftJoined, leftWhole)) << remembered;
        EXPECT_TRUE(sameBits(rightJoined, rightWhole)) << remembered;
    }
}

// Near the float range the solve overflows: restore() gives NaN there (no restoration),
// never an infinite one.
TEST(SocialDeclipper, HugeSamplesGetNoInfiniteRestoration)
{
    SocialDeclipper declipper(testSettings());
    constexpr float scale = 1e36f;
    auto clean = declipsignals::tonal(12000, 59);
    const float level = levelClipping(clean, 0.2);
    for (float& x : clean) x *= scale;
    const auto clipped = hardclip::clip(clean, level * scale);
    const auto levels = ClipLevels::symmetric(level * scale);
    const auto restored = restoreInPieces(declipper, clipped, levels, 12000);
    for (std::size_t n = 0; n < clipped.size(); ++n) {
        ASSERT_TRUE(std::isfinite(restored[n])) << n;
        EXPECT_GE(std::fabs(restored[n]), std::fabs(clipped[n])) << n;
    }
}

TEST(SocialDeclipper, GivesTheSameBitsOnAnyNumberOfThreads)
{
    SocialDeclipper alone(testSettings());
    const auto clean = declipsignals::tonal(30000, 37);
    const auto levels = ClipLevels::symmetric(levelClipping(clean, 0.2));
    const auto clipped = hardclip::clip(clean, levels.positive);
    const auto whole = restoreInPieces(alone, clipped, levels, 30000);
    SocialDeclipper twoThreads(testSettings(), 2);
    EXPECT_TRUE(sameBits(restoreInPieces(twoThreads, clipped, levels, 30000), whole));
}

TEST(SocialDeclipper, SolvesOnlyBlocksClippedWithinItsShares)
{
    // The blocks over the middle third lie wholly inside the signal, so each holds
    // about the signal's share of clipped samples.
    SocialDeclipper declipper(testSettings());
    const auto clean = declipsignals::tonal(3 * 8192, 41);
    const std::int64_t length = 3 * 8192, from = 8192, to = 2 * 8192;
    for (double share : {0.01, 0.9}) {
        const auto levels = ClipLevels::symmetric(levelClipping(clean, share));
        const auto clipped = hardclip::clip(clean, levels.positive);
        std::vector<float> out(to - from), shares(to - from);
        EXPECT_EQ(declipper.restore(clipped.data(), length, 0, levels, from, to, out.data(), shares.data()), 0)
            << share;
        for (std::int64_t n = from; n < to; ++n) {
            EXPECT_EQ(shares[n - from], 0.0f) << n;
            if (levels.sign(clipped[n]) != 0)
                EXPECT_TRUE(std::isnan(out[n - from])) << n;
            else
                EXPECT_EQ(out[n - from], clipped[n]) << n;
        }
    }
}

TEST(SocialDeclipper, IsNotUsedAtWeightZero)
{
    SocialDeclipper::Settings settings = testSettings();
    settings.weight = 0.0f;
    SocialDeclipper declipper(settings);
    EXPECT_FALSE(declipper.used());
    const auto clean = declipsignals::tonal(9000, 43);
    const auto levels = ClipLevels::symmetric(levelClipping(clean, 0.2));
    const auto clipped = hardclip::clip(clean, levels.positive);
    std::vector<float> shares;
    EXPECT_TRUE(sameBits(restoreInPieces(declipper, clipped, levels, 9000, &shares), clipped));
    EXPECT_TRUE(std::all_of(shares.begin(), shares.end(), [](float s) { return s == 0.0f; }));
}

TEST(SocialDeclipper, BlendsByItsShare)
{
    EXPECT_EQ(SocialDeclipper::blended(2.0f, 1.0f, 0.0f), 2.0f);
    EXPECT_EQ(SocialDeclipper::blended(2.0f, std::nanf(""), 0.3f), 2.0f);
    EXPECT_FLOAT_EQ(SocialDeclipper::blended(2.0f, 1.0f, 0.25f), 1.75f);
}

TEST(SocialDeclipper, SizesBlocksAndFramesByTheSampleRate)
{
    const auto at44 = SocialDeclipper::Settings::forSampleRate(44100);
    EXPECT_EQ(at44.solver.blockLength, 32768);
    EXPECT_EQ(at44.solver.windowLength, 2048);
    const auto at22 = SocialDeclipper::Settings::forSampleRate(22050);
    EXPECT_EQ(at22.solver.blockLength, 16384);
    EXPECT_EQ(at22.solver.windowLength, 1024);
    EXPECT_TRUE(SocialDeclipper(at22).used());
    EXPECT_FALSE(SocialDeclipper(SocialDeclipper::Settings::forSampleRate(8000)).used());
}

}  // namespace
