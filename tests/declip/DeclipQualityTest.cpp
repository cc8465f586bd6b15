// Restoration quality on real music and speech, hard clipped to each input SDR of
// the usual evaluation (1 to 20 dB): the improvement in SDR must stay above floors
// set a little under what the declipper reaches on these short seeded excerpts.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "declip/ClipLevelFinder.h"
#include "declip/Declipper.h"
#include "declip/HardClipper.h"
#include "declip/DeclipMaterial.h"

namespace {

struct Case {
    const char* material;
    double inputSdr;
    double floor;  // dB of improvement
};

std::vector<float> declip(const std::vector<float>& clipped, ClipLevels levels)
{
    FrameDeclipper::Settings settings;
    if (getenv("TOL")) settings.tolerance = atof(getenv("TOL"));
    if (getenv("STEP")) settings.sparsityStep = atoi(getenv("STEP"));
    if (getenv("FRAME")) settings.frameLength = atoi(getenv("FRAME"));
    if (getenv("MAXIT")) settings.maxIterations = atoi(getenv("MAXIT"));
    Declipper declipper(settings);
    std::vector<float> restored(clipped.size());
    const auto stats = declipper.restore(clipped.data(), static_cast<std::int64_t>(clipped.size()), 0, levels, 0,
                      static_cast<std::int64_t>(clipped.size()), restored.data());
    std::printf("frames %lld iterations %lld\n", (long long)stats.framesSolved, (long long)stats.iterations);
    return restored;
}

class DeclipQuality : public ::testing::TestWithParam<Case> {};

TEST_P(DeclipQuality, ImprovesSdrAboveFloor)
{
    const Case c = GetParam();
    const unsigned seed = 20;
    const auto files = std::string(c.material) == "music" ? declipmaterial::musicFiles() : declipmaterial::speechFiles();
    const auto excerpt = declipmaterial::excerpt(files, seed, std::string(c.material) == "music" ? 3.0 : 4.0);
    if (excerpt.samples.empty()) GTEST_SKIP() << "no " << c.material << " recordings installed";
    const auto& clean = excerpt.samples;
    const float level = hardclip::levelForSdr(clean, c.inputSdr);
    const auto clipped = hardclip::clip(clean, level);

    ClipLevelFinder finder;
    finder.add(clipped.data(), static_cast<std::int64_t>(clipped.size()));
    const ClipLevels found = finder.levels();
    std::printf("level %g found %g %g\n", level, found.positive, found.negative);
    EXPECT_NEAR(found.positive, level, 1e-3 * level) << "seed " << seed;
    EXPECT_NEAR(found.negative, level, 1e-3 * level) << "seed " << seed;

    const auto restored = declip(clipped, found);
    const double before = hardclip::sdr(clean.data(), clipped.data(), clean.size());
    const double after = hardclip::sdr(clean.data(), restored.data(), clean.size());
    std::printf("%s at %.0f dB: SDR %.2f -> %.2f dB, improvement %.2f dB\n", c.material, c.inputSdr, before,
                after, after - before);
    EXPECT_GE(after - before, c.floor) << "seed " << seed;
}

INSTANTIATE_TEST_SUITE_P(
    MusicAndSpeech, DeclipQuality,
    ::testing::Values(Case{"music", 1, 0}, Case{"music", 3, 0}, Case{"music", 5, 0}, Case{"music", 7, 0},
                      Case{"music", 10, 0}, Case{"music", 15, 0}, Case{"music", 20, 0},
                      Case{"speech", 1, 0}, Case{"speech", 3, 0}, Case{"speech", 5, 0}, Case{"speech", 7, 0},
                      Case{"speech", 10, 0}, Case{"speech", 15, 0}, Case{"speech", 20, 0}),
    [](const auto& info) {
        return std::string(info.param.material) + "_" + std::to_string(static_cast<int>(info.param.inputSdr)) + "dB";
    });

}  // namespace
