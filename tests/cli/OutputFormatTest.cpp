// The output's extension picks its container: the commands convert as they write,
// keeping the input's encoding where the new container holds it, and every sample
// they leave alone equals the input's at the output's resolution.
#include <sndfile.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "support/CommandRunner.h"
#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

using testsupport::ferrotip;
using Outcome = testsupport::CommandOutcome;

class OutputFormat : public testing::Test {
protected:
    std::string path(const std::string& name) const { return scratch / name; }

    // A tone of peak `peak` (clipped at `clip`), two channels, one second at `rate`.
    void writeTone(const std::string& name, int format, double peak = 0.5, double clip = 1.0, int rate = 44100)
    {
        SF_INFO info{};
        info.samplerate = rate;
        info.channels = 2;
        info.format = format;
        SNDFILE* file = sf_open(path(name).c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
        std::vector<double> data(2 * static_cast<std::size_t>(rate));
        for (int t = 0; t < rate; ++t)
            for (int c = 0; c < 2; ++c)
                data[2 * t + c] = std::clamp(peak * std::sin(0.0301 * t + c) + 0.1 * peak * std::sin(0.211 * t), -clip, clip);
        sf_writef_double(file, data.data(), rate);
        sf_close(file);
    }

    testsupport::TempDir scratch{"ferrotip-output-format"};
};

int encodingOf(const std::string& path) { return testsupport::readSoundFile<float>(path).info.format; }

TEST_F(OutputFormat, TheExtensionPicksTheContainerAndTheSamplesStayTheSame)
{
    writeTone("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    for (const std::string command : {"declick -q", "declip -q", "repair --start 0.5s --length 20ms"}) {
        SCOPED_TRACE(command);
        const std::string name = command.substr(0, command.find(' '));
        const std::string arguments = command.substr(command.find(' '));
        ASSERT_EQ(ferrotip(name + " " + path("in.wav") + " " + path("same.wav") + arguments).status, 0);
        const Outcome run = ferrotip(name + " " + path("in.wav") + " " + path("out.flac") + arguments);
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(encodingOf(path("out.flac")), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
        EXPECT_EQ(testsupport::readSoundFile<int>(path("out.flac")).samples,
                  testsupport::readSoundFile<int>(path("same.wav")).samples);
    }
}

TEST_F(OutputFormat, FloatBecomesTwentyFourBitWhereTheContainerHoldsNoFloat)
{
    writeTone("in.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    ASSERT_EQ(ferrotip("repair " + path("in.wav") + " " + path("out.flac") + " --start 0.5s --length 20ms").status, 0);
    EXPECT_EQ(encodingOf(path("out.flac")), SF_FORMAT_FLAC | SF_FORMAT_PCM_24);
    const auto input = testsupport::readSoundFile<float>(path("in.wav"));
    const auto output = testsupport::readSoundFile<float>(path("out.flac"));
    ASSERT_EQ(output.samples.size(), input.samples.size());
    for (std::size_t i = 0; i < 2 * 20000; ++i)  // before the region: the input at 24 bits
        ASSERT_EQ(output.samples[i], std::nearbyint(input.samples[i] * 8388608.0) / 8388608.0) << i;
    ASSERT_EQ(ferrotip("repair " + path("in.wav") + " " + path("out.aiff") + " --start 0.5s --length 20ms").status, 0);
    EXPECT_EQ(encodingOf(path("out.aiff")), SF_FORMAT_AIFF | SF_FORMAT_FLOAT);
}

// Float audio beyond full scale is clipped to fit an integer container, with a
// warning that names the output; within full scale it converts quietly.
TEST_F(OutputFormat, ClippingToFitTheNewFormatIsWarned)
{
    writeTone("loud.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1.4, 10.0);
    const Outcome loud = ferrotip("repair " + path("loud.wav") + " " + path("loud.flac") + " --start 0.5s --length 2ms");
    ASSERT_EQ(loud.status, 0) << loud.output;
    EXPECT_NE(loud.output.find("clipped to fit the format of '" + path("loud.flac") + "'"), std::string::npos)
        << loud.output;
    writeTone("quiet.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0.5);
    for (const std::string output : {"quiet.flac", "quiet.ogg"}) {
        const Outcome quiet = ferrotip("declick -q " + path("quiet.wav") + " " + path(output));
        ASSERT_EQ(quiet.status, 0) << quiet.output;
        EXPECT_EQ(quiet.output.find("clipped"), std::string::npos) << quiet.output;
    }
}

// Restored peaks above full scale fit the output's format, not the input's.
TEST_F(OutputFormat, DeclipFitsRestoredPeaksToTheOutputsFormat)
{
    writeTone("clipped.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 1.1, 0.9);
    // The long frames alone: what is checked is the fit to each format, not the restoration.
    const Outcome asFloat = ferrotip("declip --fast " + path("clipped.wav") + " " + path("out.wav"));
    ASSERT_EQ(asFloat.status, 0) << asFloat.output;
    EXPECT_EQ(asFloat.output.find("gain"), std::string::npos) << asFloat.output;
    const Outcome asFlac = ferrotip("declip --fast " + path("clipped.wav") + " " + path("out.flac"));
    ASSERT_EQ(asFlac.status, 0) << asFlac.output;
    EXPECT_NE(asFlac.output.find("gain -"), std::string::npos) << asFlac.output;
    const auto fitted = testsupport::readSoundFile<float>(path("out.flac"));
    // Lowered just enough: the larger polarity's peak reaches nearly full scale.
    const auto [lowest, highest] = std::minmax_element(fitted.samples.begin(), fitted.samples.end());
    const float peak = std::max(*highest, -*lowest);
    EXPECT_GT(peak, 0.95f);
    EXPECT_LE(peak, 1.0f);
}

TEST_F(OutputFormat, AFormatThatCannotHoldTheAudioIsRefusedBeforeAnyWork)
{
    writeTone("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const Outcome run = ferrotip("declick " + path("in.wav") + " " + path("out.opus"));
    EXPECT_NE(run.status, 0);
    EXPECT_NE(run.output.find("cannot write '" + path("out.opus") + "'"), std::string::npos) << run.output;
    EXPECT_NE(run.output.find("44100 Hz"), std::string::npos) << run.output;
    EXPECT_EQ(run.output.find("declicked"), std::string::npos) << run.output;
    EXPECT_EQ(std::distance(fs::directory_iterator(scratch.path()), fs::directory_iterator()), 1);
}

TEST_F(OutputFormat, ALossyOutputIsNotedAndUnknownExtensionsKeepTheInputsFormat)
{
    writeTone("in.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    const Outcome lossy = ferrotip("declick -q " + path("in.wav") + " " + path("out.ogg"));
    ASSERT_EQ(lossy.status, 0) << lossy.output;
    EXPECT_EQ(encodingOf(path("out.ogg")), SF_FORMAT_OGG | SF_FORMAT_VORBIS);
    EXPECT_NE(lossy.output.find("written in a lossy format"), std::string::npos) << lossy.output;
    ASSERT_EQ(ferrotip("declick -q " + path("in.wav") + " " + path("out.take2")).status, 0);
    EXPECT_EQ(encodingOf(path("out.take2")), SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    ASSERT_EQ(ferrotip("declick -q " + path("in.wav") + " " + path("OUT.WAV")).status, 0);
    EXPECT_EQ(encodingOf(path("OUT.WAV")), SF_FORMAT_WAV | SF_FORMAT_PCM_24);
}

// Decoded lossy audio goes into a lossless container as PCM, not in its codec.
TEST_F(OutputFormat, LossyInputBecomesPcmInALosslessContainer)
{
    writeTone("in.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS);
    for (const std::string command : {"declick -q", "declip -q", "repair --start 0.5s --length 20ms"}) {
        SCOPED_TRACE(command);
        const std::string name = command.substr(0, command.find(' '));
        const Outcome run = ferrotip(name + " " + path("in.ogg") + " " + path("out.wav") + command.substr(command.find(' ')));
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_EQ(encodingOf(path("out.wav")), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        EXPECT_EQ(run.output.find("lossy"), std::string::npos) << run.output;
    }
}

}  // namespace
