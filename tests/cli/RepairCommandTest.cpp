// Runs the ferrotip program as a user would and checks what it writes.
#include <sndfile.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "support/CommandRunner.h"
#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

using testsupport::ferrotip;
using Outcome = testsupport::CommandOutcome;

class CliTest : public testing::Test {
protected:
    std::string path(const std::string& name) const { return scratch / name; }
    testsupport::TempDir scratch{"ferrotip-repair"};
    const fs::path& dir = scratch.path();
};

// A two-channel tone with a click at frame 20000, written as integers.
void writeFile(const std::string& path, int format, int frames = 48000, int rate = 44100)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 2;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    std::vector<double> data(2 * frames);
    for (int t = 0; t < frames; ++t) {
        data[2 * t] = 0.5 * std::sin(0.031 * t) + 0.1 * std::sin(0.17 * t);
        data[2 * t + 1] = 0.4 * std::cos(0.023 * t);
    }
    for (int t = 20000; t < 20030; ++t) data[2 * t] = data[2 * t + 1] = 0.95;
    sf_writef_double(file, data.data(), frames);
    sf_close(file);
}

// Full 32-bit integer scale, exact for PCM.
using Audio = testsupport::SoundFile<int>;

// Frames whose samples differ between two files.
std::vector<int> changedFrames(const Audio& a, const Audio& b)
{
    std::vector<int> frames;
    for (std::size_t i = 0; i < a.samples.size(); i += a.info.channels)
        for (int c = 0; c < a.info.channels; ++c)
            if (a.samples[i + c] != b.samples[i + c]) {
                frames.push_back(static_cast<int>(i / a.info.channels));
                break;
            }
    return frames;
}

TEST_F(CliTest, MethodsListsTheTable)
{
    const Outcome run = ferrotip("methods");
    EXPECT_EQ(run.status, 0);
    EXPECT_NE(run.output.find("Waveform Replacment Right"), std::string::npos);
    EXPECT_NE(run.output.find("Optimal Small Clicks"), std::string::npos);
}

TEST_F(CliTest, RepairChangesOnlyTheRegionAndKeepsTheFormat)
{
    for (int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_WAV | SF_FORMAT_PCM_24,
                       SF_FORMAT_FLAC | SF_FORMAT_PCM_16, SF_FORMAT_WAV | SF_FORMAT_FLOAT,
                       SF_FORMAT_AIFF | SF_FORMAT_PCM_32}) {
        SCOPED_TRACE(format);
        writeFile(path("in.snd"), format);
        const Outcome run = ferrotip(path("in.snd") + " " + path("out.snd"));  // no subcommand
        EXPECT_NE(run.status, 0);
        const Outcome repair = ferrotip("repair " + path("in.snd") + " " + path("out.snd") +
                                    " --start 20000 --length 30 --method 2");
        ASSERT_EQ(repair.status, 0) << repair.output;
        const Audio in = testsupport::readSoundFile<int>(path("in.snd")), out = testsupport::readSoundFile<int>(path("out.snd"));
        EXPECT_EQ(out.info.format, in.info.format);
        EXPECT_EQ(out.info.samplerate, in.info.samplerate);
        EXPECT_EQ(out.info.channels, in.info.channels);
        ASSERT_EQ(out.info.frames, in.info.frames);
        const std::vector<int> changed = changedFrames(in, out);
        ASSERT_FALSE(changed.empty());
        EXPECT_GE(changed.front(), 20000);
        EXPECT_LT(changed.back(), 20030);
        fs::remove(path("out.snd"));
    }
}

TEST_F(CliTest, TimesInSecondsAndMillisecondsAndMethodNames)
{
    writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const Outcome run = ferrotip("repair " + path("in.wav") + " " + path("out.wav") +
                             " --start 0.45351473922902494s --length 0.5ms -m 'optimal small clicks'");
    ASSERT_EQ(run.status, 0) << run.output;  // 20000 samples, 22 samples
    EXPECT_NE(run.output.find("repaired 22 samples at frame 20000"), std::string::npos) << run.output;
}

TEST_F(CliTest, WaveformReplacementNearTheFileStartIsPaddedAndReportsFades)
{
    writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const Outcome run = ferrotip("repair " + path("in.wav") + " " + path("out.wav") +
                             " --start 20000 --length 400 --method 4");
    ASSERT_EQ(run.status, 0) << run.output;
    EXPECT_NE(run.output.find("crossfade: 100 samples before and 100 after"), std::string::npos)
        << run.output;
    const std::vector<int> changed = changedFrames(testsupport::readSoundFile<int>(path("in.wav")), testsupport::readSoundFile<int>(path("out.wav")));
    ASSERT_FALSE(changed.empty());
    EXPECT_GE(changed.front(), 20000 - 99);
    EXPECT_LT(changed.back(), 20400 + 99);
}


TEST_F(CliTest, BadInputGetsAOneLineErrorAndWritesNothing)
{
    writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    std::ofstream(path("text.wav")) << "not audio";
    const std::string in = path("in.wav"), out = path("out.wav");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {path("missing.wav") + " " + out + " --start 1 --length 1 -m 0", "no such file"},
        {path("text.wav") + " " + out + " --start 1 --length 1 -m 0", "cannot read"},
        {in + " " + out + " --start 47990 --length 20 -m 0", "lies outside"},
        {in + " " + out + " --start 100 --length 133 -m 2", "3 ms, 132 samples"},
        {in + " " + out + " --start 100 --length 3 -m 9", "unknown method '9'"},
        {in + " " + out + " --start 100 --length 3 -m clicks", "unknown method"},
        {in + " " + in + " --start 100 --length 3 -m 0", "is the input file"},
        {in + " " + dir.string() + "/./in.wav --start 100 --length 3 -m 0", "is the input file"},
        {in + " " + out + " --start 1x --length 3 -m 0", "--start '1x'"},
        {in + " " + out + " --start 100 --length 0 -m 0", "at least one sample"},
        {in + " " + out + " --start 100 --length 2.5 -m 0", "whole number"},
        {in + " " + path("no/such/dir.wav") + " --start 100 --length 3 -m 0", "does not exist"},
    };
    for (const auto& [arguments, message] : cases) {
        SCOPED_TRACE(arguments);
        const Outcome run = ferrotip("repair " + arguments);
        EXPECT_NE(run.status, 0);
        EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
        EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
        EXPECT_FALSE(fs::exists(out));
    }
    // Nothing but the inputs is left in the folder, no partial file either.
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 2);
    const Audio after = testsupport::readSoundFile<int>(in);
    EXPECT_EQ(after.info.frames, 48000);
}

TEST_F(CliTest, LowSampleRatesAreExplained)
{
    writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 800);
    const Outcome run = ferrotip("repair " + path("in.wav") + " " + path("out.wav") +
                             " --start 20000 --length 1 -m 1");
    EXPECT_NE(run.status, 0);
    EXPECT_NE(run.output.find("0 samples at 800 Hz"), std::string::npos) << run.output;
}

TEST_F(CliTest, DemoPrintsEveryMethodAndWritesItsExample)
{
    const Outcome run = ferrotip("demo --write " + path("demo.wav"));
    ASSERT_EQ(run.status, 0) << run.output;
    for (const char* name : {"Linear Interpolation", "Normal Clicks", "Waveform Replacment Left"})
        EXPECT_NE(run.output.find(name), std::string::npos);
    EXPECT_EQ(testsupport::readSoundFile<int>(path("demo.wav")).info.channels, 2);
}

}  // namespace
