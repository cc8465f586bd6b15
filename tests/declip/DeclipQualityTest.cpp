// Restoration quality on real music and speech, hard clipped to each input SDR of
// the usual evaluation (1 to 20 dB): the improvement in SDR must stay above floors
// set about 1 dB under what the declipper reached on these short seeded excerpts
// (music 3 s at 44.1 kHz, speech 4 s at 8 kHz, dialogue 4 s at 22.05 kHz);
// scripts/bench-declip.sh prints the full table on longer excerpts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "declip/ArDeclipper.h"
#include "declip/ChannelFinisher.h"
#include "declip/ClipLevelFinder.h"
#include "declip/Declipper.h"
#include "declip/HardClipper.h"
#include "declip/SocialDeclipper.h"
#include "declip/DeclipMaterial.h"
#include "support/InstrumentedBuild.h"

namespace {

struct Case {
    const char* material;
    double inputSdr;
    double floor;  // dB of improvement
};

// The sparse restorations in long and short frames, the calibration of their excess,
// their mean, the blend with the autoregressive fill and with the restoration by social
// sparsity, as the command line runs them.
std::vector<float> declip(const std::vector<float>& clipped, ClipLevels levels, int sampleRate)
{
    const auto length = static_cast<std::int64_t>(clipped.size());
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(sampleRate));
    std::vector<float> restored(clipped.size());
    declipper.restore(clipped.data(), length, 0, levels, 0, length, restored.data());
    Declipper shortDeclipper(FrameDeclipper::Settings::shorterFor(sampleRate));
    std::vector<float> restoredShort(clipped.size());
    shortDeclipper.restore(clipped.data(), length, 0, levels, 0, length, restoredShort.data());
    ArDeclipper arDeclipper(ArDeclipper::Settings::forSampleRate(sampleRate));
    std::vector<float> filled(clipped.size());
    if (arDeclipper.used()) arDeclipper.restore(clipped.data(), length, 0, levels, 0, length, filled.data());
    SocialDeclipper socialDeclipper(SocialDeclipper::Settings::forSampleRate(sampleRate));
    std::vector<float> social(clipped.size()), socialShare(clipped.size());
    socialDeclipper.restore(clipped.data(), length, 0, levels, 0, length, social.data(), socialShare.data());
    ChannelFinisher finisher(levels);
    for (std::size_t i = 0; i < clipped.size(); ++i) finisher.add(clipped[i], restored[i], restoredShort[i]);
    finisher.finish(arDeclipper, socialDeclipper);
    for (std::size_t i = 0; i < clipped.size(); ++i)
        restored[i] = finisher.finished(restored[i], restoredShort[i], filled[i], social[i], socialShare[i]);
    return restored;
}

class DeclipQuality : public ::testing::TestWithParam<Case> {};

TEST_P(DeclipQuality, ImprovesSdrAboveFloor)
{
    const Case c = GetParam();
    const unsigned seed = 20;
    const auto files = declipmaterial::filesOf(c.material);
    const double seconds = testsupport::instrumentedBuild ? 0.5 : std::string(c.material) == "music" ? 3.0 : 4.0;
    const auto excerpt = declipmaterial::excerpt(files, seed, seconds);
    if (excerpt.samples.empty()) GTEST_SKIP() << "no " << c.material << " recordings installed";
    const auto& clean = excerpt.samples;
    const float level = hardclip::levelForSdr(clean, c.inputSdr);
    const auto clipped = hardclip::clip(clean, level);

    ClipLevelFinder finder;
    finder.add(clipped.data(), static_cast<std::int64_t>(clipped.size()));
    const ClipLevels found = finder.levels();
    EXPECT_NEAR(found.positive, level, 1e-3 * level) << "seed " << seed;
    EXPECT_NEAR(found.negative, level, 1e-3 * level) << "seed " << seed;

    const auto restored = declip(clipped, found, excerpt.sampleRate);
    const double before = hardclip::sdr(clean.data(), clipped.data(), clean.size());
    const double after = hardclip::sdr(clean.data(), restored.data(), clean.size());
    std::printf("%s at %.0f dB: SDR %.2f -> %.2f dB, improvement %.2f dB\n", c.material, c.inputSdr, before,
                after, after - before);
    if (testsupport::instrumentedBuild)
        EXPECT_TRUE(std::isfinite(after)) << "seed " << seed;
    else
        EXPECT_GE(after - before, c.floor) << "seed " << seed;
}

INSTANTIATE_TEST_SUITE_P(
    MusicAndSpeech, DeclipQuality,
    ::testing::Values(Case{"music", 1, 9.7}, Case{"music", 3, 10.9}, Case{"music", 5, 11.8}, Case{"music", 7, 11.9},
                      Case{"music", 10, 13.4}, Case{"music", 15, 14.0}, Case{"music", 20, 14.7},
                      Case{"speech", 1, 5.0}, Case{"speech", 3, 5.8}, Case{"speech", 5, 4.9}, Case{"speech", 7, 9.6},
                      Case{"speech", 10, 13.3}, Case{"speech", 15, 13.1}, Case{"speech", 20, 15.6},
                      Case{"dialogue", 1, 7.2}, Case{"dialogue", 3, 9.3}, Case{"dialogue", 5, 10.5},
                      Case{"dialogue", 7, 12.4}, Case{"dialogue", 10, 15.3}, Case{"dialogue", 15, 17.9},
                      Case{"dialogue", 20, 20.1}),
    [](const auto& info) {
        return std::string(info.param.material) + "_" + std::to_string(static_cast<int>(info.param.inputSdr)) + "dB";
    });

}  // namespace
