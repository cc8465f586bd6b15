// Quality of `ferrotip declick` at its default preset on real recordings with seeded
// damage: music (an excerpt of a game soundtrack) and speech (the ALSA channel
// announcements). The floors sit half a dB to a dB under what the default preset reached
// when they were set; scripts/bench-declick.sh prints the full table beside ffmpeg's
// adeclick.
#include <stdlib.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "declick/DamageMaterial.h"
#include "support/CommandRunner.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;
namespace dm = declickmaterial;

namespace {

const char* const musicRecording = "/usr/share/games/etr/music/race1-jt.ogg";
const std::vector<std::string> speechRecordings = {
    "/usr/share/sounds/alsa/Front_Center.wav", "/usr/share/sounds/alsa/Front_Left.wav",
    "/usr/share/sounds/alsa/Front_Right.wav",  "/usr/share/sounds/alsa/Rear_Center.wav",
    "/usr/share/sounds/alsa/Rear_Left.wav",    "/usr/share/sounds/alsa/Rear_Right.wav",
};
constexpr std::uint64_t seed = 1;

class DeclickQuality : public testing::Test {
protected:
    void SetUp() override
    {
        for (const auto& path : speechRecordings)
            if (!fs::exists(path)) GTEST_SKIP() << "needs alsa-utils' sounds (scripts/install-deps.sh): " << path;
        if (!fs::exists(musicRecording)) GTEST_SKIP() << "needs extremetuxracer-data (scripts/install-deps.sh)";
    }

    // SNR of the default preset's output against `clean`, with `damaged` as input.
    double declickedSnr(const dm::Audio& clean, const dm::Audio& damaged)
    {
        const std::string in = dir / "in.wav", out = dir / "out.wav";
        dm::writeAudio(in, damaged);
        const auto outcome = testsupport::ferrotip("declick -q " + in + " " + out);
        EXPECT_EQ(outcome.status, 0) << outcome.output;
        return dm::snrDb(clean, dm::readAudio(out));
    }

    static dm::Audio damaged(dm::Audio audio, const dm::DamageKind& kind)
    {
        dm::addDamage(audio, kind, seed);
        return audio;
    }

    static dm::Audio music() { return dm::excerpt(dm::readAudio(musicRecording), 20.0, 6.0); }
    static dm::Audio speech() { return dm::readConcatenated(speechRecordings); }

    testsupport::TempDir dir{"ferrotip-declick-quality"};
};

TEST_F(DeclickQuality, CleanRecordingsComeBackAt40DbOrBetter)
{
    const dm::Audio cleanMusic = music(), cleanSpeech = speech();
    EXPECT_GE(declickedSnr(cleanMusic, cleanMusic), 40.0);
    EXPECT_GE(declickedSnr(cleanSpeech, cleanSpeech), 40.0);
}

// Gains over the damaged input, dB, half a dB or so under those reached when set
// (3 dB under for clicks in speech, where a few loud clicks decide the figure).
struct Floors {
    double clicks;
    double crackle;
};

TEST_F(DeclickQuality, ClicksAndFineCrackleAreRemoved)
{
    const std::pair<dm::Audio, Floors> materials[] = {{music(), {9.5, 6.5}}, {speech(), {15.0, 8.3}}};
    for (const auto& [clean, floors] : materials) {
        for (const auto& [kind, gain] : {std::pair{dm::clicks, floors.clicks}, std::pair{dm::crackle, floors.crackle}}) {
            const dm::Audio input = damaged(clean, kind);
            const double before = dm::snrDb(clean, input);
            const double after = declickedSnr(clean, input);
            SCOPED_TRACE("seed " + std::to_string(seed) + ", " + std::to_string(kind.perSecond) + " a second: " +
                         std::to_string(before) + " dB damaged, " + std::to_string(after) + " dB repaired");
            EXPECT_GE(after, before + gain);
        }
    }
}

TEST_F(DeclickQuality, AQuieterCopyOfARecordingFaresAlike)
{
    const dm::Audio clean = music();
    dm::Audio quiet = clean;
    for (auto& row : quiet.rows)
        for (float& v : row) v *= 0.1f;
    const double loud = declickedSnr(clean, damaged(clean, dm::clicks));
    const double soft = declickedSnr(quiet, damaged(quiet, dm::clicks));
    EXPECT_NEAR(soft, loud, 1.5);
}

}  // namespace
