// Runs `ferrotip declip` as a user would and checks the file it writes.
#include <sndfile.h>
#include <stdlib.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/SoundFileWriter.h"
#include "support/CommandRunner.h"
#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

using testsupport::ferrotip;

// Two channels of tones, `seconds` long, peak `peak`, hard clipped at `clip`.
std::vector<float> clippedTones(double seconds, float peak, float clip)
{
    const int frames = static_cast<int>(seconds * 44100);
    std::vector<float> data(static_cast<std::size_t>(frames) * 2);
    for (int t = 0; t < frames; ++t)
        for (int c = 0; c < 2; ++c) {
            const double x = 0.6 * std::sin(0.031 * t + c) + 0.4 * std::sin(0.0071 * t * (1 + c));
            data[t * 2 + c] = std::clamp(static_cast<float>(peak * x), -clip, clip);
        }
    return data;
}

// The same tones through a soft limiter first (crests pressed towards the level), then
// hard clipped at 1: a restoration that extrapolates round crests overshoots them, and
// the calibration of the excess scales it back.
std::vector<float> limitedTones(double seconds)
{
    std::vector<float> data = clippedTones(seconds, 1.0f, 1.0f);
    for (float& v : data) v = std::clamp(1.1f * std::tanh(2.0f * v) / std::tanh(2.0f), -1.0f, 1.0f);
    return data;
}

void writeAudio(const std::string& path, const std::vector<float>& interleaved, int format)
{
    testsupport::writeSoundFile(path, interleaved, 2, 44100, format);
}

class DeclipCommand : public testing::Test {
protected:
    std::string path(const std::string& name) const { return dir / name; }

    testsupport::TempDir dir{"ferrotip-declip"};
};

constexpr int pcm16 = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int float32 = SF_FORMAT_WAV | SF_FORMAT_FLOAT;

TEST_F(DeclipCommand, AFileWithoutClippingComesBackBitForBit)
{
    writeAudio(path("in.wav"), clippedTones(1.0, 0.9f, 1.0f), pcm16);
    const auto outcome = ferrotip("declip " + path("in.wav") + " " + path("out.wav"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("0 clipped runs"), std::string::npos) << outcome.output;
    EXPECT_EQ(testsupport::readSoundFile<int>(path("out.wav")).samples,
              testsupport::readSoundFile<int>(path("in.wav")).samples);
}

TEST_F(DeclipCommand, ASilentFileComesBackSilentWithNoPeakInDecibels)
{
    writeAudio(path("in.wav"), std::vector<float>(2 * 4410, 0.0f), pcm16);
    const auto outcome = ferrotip("declip " + path("in.wav") + " " + path("out.wav"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("restored peak -inf dBFS (silence)"), std::string::npos) << outcome.output;
    EXPECT_EQ(testsupport::readSoundFile<int>(path("out.wav")).samples,
              testsupport::readSoundFile<int>(path("in.wav")).samples);
}

// scan names the clipped channels at the levels declip finds, and only those.
TEST_F(DeclipCommand, ScanNamesTheClippedChannels)
{
    std::vector<float> audio = clippedTones(1.0, 0.9f, 1.0f);
    for (std::size_t i = 1; i < audio.size(); i += 2) audio[i] = std::clamp(audio[i] * 1.2f, -0.7f, 0.7f);
    writeAudio(path("in.wav"), audio, float32);
    const auto scan = ferrotip("scan " + path("in.wav"));
    ASSERT_EQ(scan.status, 0) << scan.output;
    EXPECT_EQ(scan.output.find("clipping in channel 1"), std::string::npos) << scan.output;
    EXPECT_NE(scan.output.find("clipping in channel 2: positive peaks -3.10 dBFS, negative peaks -3.10 dBFS"),
              std::string::npos)
        << scan.output;
    const auto declip = ferrotip("declip -q " + path("in.wav") + " " + path("out.wav"));
    EXPECT_NE(declip.output.find("channel 2: positive peaks -3.10 dBFS"), std::string::npos) << declip.output;
    writeAudio(path("clean.wav"), clippedTones(1.0, 0.9f, 1.0f), float32);
    EXPECT_EQ(ferrotip("scan " + path("clean.wav")).output.find("clipping"), std::string::npos);
}

TEST_F(DeclipCommand, ASteadyToneComesBackBitForBit)
{
    std::vector<float> tone(2 * 44100);
    for (std::size_t t = 0; t < tone.size(); ++t)
        tone[t] = static_cast<float>(0.5 * std::sin(2.0 * M_PI * 1000.0 * static_cast<double>(t / 2) / 44100.0));
    writeAudio(path("tone.wav"), tone, float32);
    const auto outcome = ferrotip("declip " + path("tone.wav") + " " + path("out.wav"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("0 clipped runs"), std::string::npos) << outcome.output;
    EXPECT_EQ(testsupport::readSoundFile<float>(path("out.wav")).samples, tone);
}

TEST_F(DeclipCommand, RestoresOnlyTheClippedSamplesOfAnIntegerFile)
{
    // Clipped below full scale, so the restored peaks fit and no gain is needed.
    writeAudio(path("in.wav"), clippedTones(0.75, 0.8f, 0.5f), pcm16);
    const auto outcome = ferrotip("declip -q " + path("in.wav") + " " + path("out.wav") + " --report " + path("runs.csv"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const auto in = testsupport::readSoundFile<int>(path("in.wav")).samples;
    const auto out = testsupport::readSoundFile<int>(path("out.wav")).samples;
    ASSERT_EQ(in.size(), out.size());
    const int clip = *std::max_element(in.begin(), in.end());
    std::size_t changed = 0;
    for (std::size_t i = 0; i < in.size(); ++i) {
        if (std::abs(in[i]) < clip) {
            EXPECT_EQ(out[i], in[i]) << i;
        }
        if (in[i] == clip) {
            EXPECT_GE(out[i], clip) << i;
        }
        if (in[i] == -clip) {
            EXPECT_LE(out[i], -clip) << i;
        }
        changed += out[i] != in[i];
    }
    EXPECT_GT(changed, in.size() / 20);
    std::ifstream report(path("runs.csv"));
    std::string header;
    std::getline(report, header);
    EXPECT_EQ(header, "channel,first,last,start,end,label");
}

TEST_F(DeclipCommand, WritesFloatPeaksAboveFullScale)
{
    writeAudio(path("in.wav"), clippedTones(1.0, 1.25f, 1.0f), float32);
    const auto outcome = ferrotip("declip " + path("in.wav") + " " + path("out.wav"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const auto out = testsupport::readSoundFile<float>(path("out.wav")).samples;
    EXPECT_GT(*std::max_element(out.begin(), out.end()), 1.1f);
}

TEST_F(DeclipCommand, TheSummarysRestoredPeakIsTheWrittenOne)
{
    // The restored excess is calibrated once the whole file is known; the summary and
    // --gain auto must see the calibrated peak.
    writeAudio(path("in.wav"), limitedTones(1.0), float32);
    const auto outcome = ferrotip("declip " + path("in.wav") + " " + path("out.wav"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const auto at = outcome.output.find("restored peak ");
    ASSERT_NE(at, std::string::npos) << outcome.output;
    const double printed = std::stod(outcome.output.substr(at + 14));
    const auto out = testsupport::readSoundFile<float>(path("out.wav")).samples;
    float peak = 0.0f;
    for (float v : out) peak = std::max(peak, std::fabs(v));
    EXPECT_NEAR(printed, 20.0 * std::log10(peak), 0.006);
}

TEST_F(DeclipCommand, WritesTheSameBitsOnAnyNumberOfThreads)
{
    writeAudio(path("in.wav"), clippedTones(0.5, 1.25f, 1.0f), float32);
    for (const char* jobs : {"1", "3"}) {
        const auto outcome = ferrotip("declip -q --jobs " + std::string(jobs) + " " + path("in.wav") + " " +
                                      path(std::string("out") + jobs + ".wav"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
    }
    const auto one = testsupport::readSoundFile<float>(path("out1.wav")).samples;
    EXPECT_EQ(testsupport::readSoundFile<float>(path("out3.wav")).samples, one);
    EXPECT_NE(one, testsupport::readSoundFile<float>(path("in.wav")).samples);
}

TEST_F(DeclipCommand, FastRestoresTheSameClippedSamplesOtherwise)
{
    const auto clipped = clippedTones(0.5, 1.25f, 1.0f);
    writeAudio(path("in.wav"), clipped, float32);
    for (const char* name : {"full.wav", "fast.wav"}) {
        const std::string fast = std::string(name) == "fast.wav" ? " --fast" : "";
        const auto outcome = ferrotip("declip -q" + fast + " " + path("in.wav") + " " + path(name));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
    }
    const auto full = testsupport::readSoundFile<float>(path("full.wav")).samples;
    const auto fast = testsupport::readSoundFile<float>(path("fast.wav")).samples;
    ASSERT_EQ(full.size(), clipped.size());
    ASSERT_EQ(fast.size(), clipped.size());
    int differing = 0;
    for (std::size_t i = 0; i < clipped.size(); ++i) {
        if (std::fabs(clipped[i]) < 1.0f) {
            EXPECT_EQ(full[i], clipped[i]) << i;
            EXPECT_EQ(fast[i], clipped[i]) << i;
        } else {
            EXPECT_GE(std::fabs(full[i]), 1.0f) << i;
            EXPECT_GE(std::fabs(fast[i]), 1.0f) << i;
            differing += full[i] != fast[i];
        }
    }
    EXPECT_GT(differing, 0);
}

TEST_F(DeclipCommand, LowersAnIntegerFileToFitOrWarnsAtZeroDecibels)
{
    // Heavy clipping: a gain fitted to the restored peak once left one sample an ulp
    // past full scale.
    writeAudio(path("in.wav"), clippedTones(0.5, 1.6f, 1.0f), pcm16);
    const auto fitted = ferrotip("declip " + path("in.wav") + " " + path("auto.wav"));
    ASSERT_EQ(fitted.status, 0) << fitted.output;
    EXPECT_NE(fitted.output.find("gain -"), std::string::npos) << fitted.output;
    EXPECT_EQ(fitted.output.find("warning"), std::string::npos) << fitted.output;
    const auto again = ferrotip("declip " + path("in.wav") + " " + path("zero.wav") + " --gain 0dB");
    ASSERT_EQ(again.status, 0) << again.output;
    EXPECT_NE(again.output.find("warning"), std::string::npos) << again.output;
}

TEST_F(DeclipCommand, RefusesBadArgumentsAndWritesNothing)
{
    writeAudio(path("in.wav"), clippedTones(0.2, 1.25f, 1.0f), pcm16);
    for (const std::string arguments : {"--level 2dB", "--level 0", "--level 30dBFS", "--gain 3dB", "--gain loud",
                                        "--report runs.xml", "--jobs 0", "--jobs many"}) {
        const auto outcome = ferrotip("declip " + path("in.wav") + " " + path("out.wav") + " " + arguments);
        EXPECT_NE(outcome.status, 0) << arguments;
        EXPECT_NE(outcome.output.find(arguments.substr(0, arguments.find(' '))), std::string::npos)
            << arguments << ": " << outcome.output;
        EXPECT_FALSE(fs::exists(path("out.wav"))) << arguments;
    }
    EXPECT_NE(ferrotip("declip " + path("in.wav") + " " + path("in.wav")).status, 0);
}

TEST_F(DeclipCommand, RefusesAReportThatWouldReplaceItsInputOrOutput)
{
    // The sound file reader goes by the header, so audio may carry a report's name.
    writeAudio(path("take.csv"), clippedTones(0.2, 1.25f, 1.0f), pcm16);
    const auto before = testsupport::readSoundFile<int>(path("take.csv")).samples;
    const std::string onInput = path("take.csv") + " " + path("out.wav") + " --report " + path("take.csv");
    const std::string onOutput = path("take.csv") + " " + path("out.json") + " --report " + path("out.json");
    for (const std::string& arguments : {onInput, onOutput}) {
        const auto outcome = ferrotip("declip " + arguments);
        EXPECT_EQ(outcome.status, 1) << arguments;
        EXPECT_NE(outcome.output.find("--report"), std::string::npos) << outcome.output;
    }
    EXPECT_FALSE(fs::exists(path("out.wav")));
    EXPECT_FALSE(fs::exists(path("out.json")));
    EXPECT_EQ(testsupport::readSoundFile<int>(path("take.csv")).samples, before);
}

TEST_F(DeclipCommand, AGivenLevelOverridesTheSearch)
{
    writeAudio(path("in.wav"), clippedTones(0.5, 0.8f, 0.5f), float32);
    const auto outcome = ferrotip("declip " + path("in.wav") + " " + path("out.wav") + " --level 0.99");
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_NE(outcome.output.find("0 clipped runs"), std::string::npos) << outcome.output;
}

// Companded and ADPCM files hold samples within full scale, as integers do, though
// libsndfile hands them over normalised: the output keeps its sound and fits.
TEST_F(DeclipCommand, CompandedAndAdpcmFilesKeepTheirSoundAndFitTheirRange)
{
    for (const int format : {SF_FORMAT_WAV | SF_FORMAT_ULAW, SF_FORMAT_WAV | SF_FORMAT_ALAW,
                             SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM}) {
        writeAudio(path("in.wav"), clippedTones(0.5, 1.25f, 1.0f), format);
        // The long frames alone: what is checked is the format's range, not the restoration.
        const auto outcome = ferrotip("declip -q --fast " + path("in.wav") + " " + path("out.wav"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        EXPECT_NE(outcome.output.find("gain -"), std::string::npos) << format << ": " << outcome.output;
        EXPECT_EQ(outcome.output.find("inf"), std::string::npos) << format << ": " << outcome.output;
        const auto in = testsupport::readSoundFile<float>(path("in.wav")).samples;
        const auto out = testsupport::readSoundFile<float>(path("out.wav")).samples;
        ASSERT_EQ(in.size(), out.size());
        const auto [low, high] = std::minmax_element(out.begin(), out.end());
        EXPECT_GT(*high, 0.5f) << format;
        EXPECT_LT(*low, -0.5f) << format;
        EXPECT_LE(std::max(*high, -*low), 1.0f) << format;
    }
}

TEST_F(DeclipCommand, ACompandedFileWithoutClippingComesBackWithTheSameSamples)
{
    writeAudio(path("in.wav"), clippedTones(0.5, 0.9f, 1.0f), SF_FORMAT_WAV | SF_FORMAT_ULAW);
    const auto outcome = ferrotip("declip -q " + path("in.wav") + " " + path("out.wav") + " --level 0.99");
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    EXPECT_EQ(testsupport::readSoundFile<float>(path("out.wav")).samples,
              testsupport::readSoundFile<float>(path("in.wav")).samples);
}

}  // namespace
