// Runs the ferrotip program as a user would and checks what it writes.
#include <sndfile.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <memory>
#include <string>
#include <vector>

#include "support/CommandRunner.h"
#include "support/FileChecksum.h"
#include "support/SoundFileReader.h"
#include "support/SoundFileWriter.h"
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

// A tone with a click at frame 20000 (two channels unless told), written as integers.
void writeFile(const std::string& path, int format, int frames = 48000, int rate = 44100,
               int channels = 2)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    std::vector<double> data(channels * frames);
    for (int t = 0; t < frames; ++t)
        for (int c = 0; c < channels; ++c)
            data[channels * t + c] = c % 2 == 0 ? 0.5 * std::sin(0.031 * t) + 0.1 * std::sin(0.17 * t)
                                                : 0.4 * std::cos(0.023 * t);
    for (int t = 20000; t < 20030; ++t)
        for (int c = 0; c < channels; ++c) data[channels * t + c] = 0.95;
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
        {in + " " + out + " --start 100 --length 0 -m 0", "--length must be at least one sample"},
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
    // A word that is no command is named, with the commands there are.
    const Outcome unknown = ferrotip("frob " + in + " " + out);
    EXPECT_EQ(unknown.status, 1);
    EXPECT_NE(unknown.output.find("unknown command 'frob'; choose one of methods, repair"), std::string::npos)
        << unknown.output;
    // So is an option where the command belongs, and a missing command is asked for.
    const Outcome option = ferrotip("--frob");
    EXPECT_EQ(option.status, 1);
    EXPECT_NE(option.output.find("unknown option '--frob'; a command comes first: one of methods"), std::string::npos)
        << option.output;
    const Outcome nothing = ferrotip("");
    EXPECT_EQ(nothing.status, 1);
    EXPECT_NE(nothing.output.find("a command is required: one of methods"), std::string::npos) << nothing.output;
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
    writeFile(path("fast.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16, 48000, 768000);
    const Outcome fast = ferrotip("repair " + path("fast.wav") + " " + path("out.wav") +
                                  " --start 20000 --length 1 -m 1");
    EXPECT_NE(fast.status, 0);
    EXPECT_NE(fast.output.find("768000 Hz is above the 384000 Hz"), std::string::npos) << fast.output;
    EXPECT_FALSE(fs::exists(path("out.wav")));
}

TEST_F(CliTest, DemoPrintsEveryMethodAndWritesItsExample)
{
    const Outcome run = ferrotip("demo --write " + path("demo.wav"));
    ASSERT_EQ(run.status, 0) << run.output;
    for (const char* name : {"Linear Interpolation", "Normal Clicks", "Waveform Replacment Left"})
        EXPECT_NE(run.output.find(name), std::string::npos);
    EXPECT_EQ(testsupport::readSoundFile<int>(path("demo.wav")).info.channels, 2);
    const Outcome flac = ferrotip("demo --write " + path("demo.flac"));
    EXPECT_NE(flac.status, 0);
    EXPECT_NE(flac.output.find("ending in .wav"), std::string::npos) << flac.output;
    EXPECT_FALSE(fs::exists(path("demo.flac")));
}

// Two runs of these tests on one machine (two build trees) must not share a folder.
TEST_F(CliTest, EachTestWorksInAFolderOfItsOwn)
{
    EXPECT_TRUE(fs::is_directory(dir));
    EXPECT_NE(dir, fs::temp_directory_path() / "ferrotip-cli-EachTestWorksInAFolderOfItsOwn");
    fs::path other;
    {
        const testsupport::TempDir second("ferrotip-repair");
        other = second.path();
        EXPECT_NE(other, dir);
        EXPECT_TRUE(fs::is_directory(other));
    }
    EXPECT_FALSE(fs::exists(other));
}

TEST_F(CliTest, NamesAlreadyBesideTheOutputAreNeverFollowed)
{
    writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const std::uint64_t input = testsupport::fileChecksum(path("in.wav"));
    // A predictable partial name pointing at the input, and one taken by a folder.
    fs::create_symlink(path("in.wav"), path(".out.wav.ferrotip-partial"));
    fs::create_directory(path(".other.wav.ferrotip-partial"));
    for (const char* output : {"out.wav", "other.wav"}) {
        const Outcome run = ferrotip("repair " + path("in.wav") + " " + path(output) +
                                     " --start 20000 --length 30 --method 2");
        EXPECT_EQ(run.status, 0) << run.output;
    }
    EXPECT_EQ(testsupport::fileChecksum(path("in.wav")), input);
    EXPECT_TRUE(fs::is_symlink(path(".out.wav.ferrotip-partial")));
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 5);
}

TEST_F(CliTest, RefusesTheInputByEveryRoute)
{
    writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const std::uint64_t input = testsupport::fileChecksum(path("in.wav"));
    fs::create_symlink(path("in.wav"), path("link.wav"));
    fs::create_hard_link(path("in.wav"), path("hard.wav"));
    fs::create_directory(path("sub"));
    const std::vector<std::pair<std::string, std::string>> outputs = {
        {path("link.wav"), "is the input file"},
        {path("hard.wav"), "is the input file"},
        {path("sub") + "/../in.wav", "is the input file"},
        {path("sub"), "is a directory"},
    };
    for (const auto& [output, message] : outputs) {
        SCOPED_TRACE(output);
        const Outcome run = ferrotip("repair " + path("in.wav") + " " + output +
                                     " --start 20000 --length 30 --method 2");
        EXPECT_NE(run.status, 0);
        EXPECT_NE(run.output.find(message), std::string::npos) << run.output;
    }
    EXPECT_EQ(testsupport::fileChecksum(path("in.wav")), input);
    EXPECT_EQ(std::distance(fs::directory_iterator(dir), fs::directory_iterator()), 4);
    EXPECT_TRUE(fs::is_empty(path("sub")));
}

// Below 3 kHz the 1000-sample template outgrows the short context of "Waveform
// Replacment Near": the window grows to what the method reads, and the result stays
// finite and within the region and its crossfades.
TEST_F(CliTest, WaveformReplacementAtLowRatesStaysWithinItsWindow)
{
    for (int rate : {1500, 2000, 2500, 2999}) {
        SCOPED_TRACE(rate);
        writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 48000, rate);
        const int limit = 250 * (rate / 1000);
        const Outcome run = ferrotip("repair " + path("in.wav") + " " + path("out.wav") +
                                     " --start 20000 --length " + std::to_string(limit) + " -m 4");
        ASSERT_EQ(run.status, 0) << run.output;
        const auto in = testsupport::readSoundFile<float>(path("in.wav"));
        const auto out = testsupport::readSoundFile<float>(path("out.wav"));
        ASSERT_EQ(out.samples.size(), in.samples.size());
        const int fade = std::clamp(limit / 4, 80, 500) - 1;
        for (std::size_t i = 0; i < in.samples.size(); ++i) {
            const int frame = static_cast<int>(i / 2);
            ASSERT_TRUE(std::isfinite(out.samples[i])) << frame;
            if (frame < 20000 - fade || frame >= 20000 + limit + fade) {
                ASSERT_EQ(out.samples[i], in.samples[i]) << frame;
            }
        }
        fs::remove(path("out.wav"));
    }
}

// A FLAC stream whose header gives no total length, as an encoder writing to a pipe
// leaves it: the 36-bit count in STREAMINFO is zero.
void clearFlacLength(const std::string& path)
{
    std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
    char bytes[26];
    file.read(bytes, sizeof bytes);
    ASSERT_EQ(std::string(bytes, 4), "fLaC");
    bytes[21] = static_cast<char>(bytes[21] & 0xF0);
    std::fill(bytes + 22, bytes + 26, 0);
    file.seekp(0);
    file.write(bytes, sizeof bytes);
}

TEST_F(CliTest, InputsThatCannotSeekAreReadFrontToBack)
{
    writeFile(path("whole.flac"), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    fs::copy_file(path("whole.flac"), path("stream.flac"));
    clearFlacLength(path("stream.flac"));
    const Outcome run = ferrotip("repair " + path("stream.flac") + " " + path("out.flac") +
                                 " --start 20000 --length 30 --method 2");
    ASSERT_EQ(run.status, 0) << run.output;
    const Audio in = testsupport::readSoundFile<int>(path("whole.flac"));
    const Audio out = testsupport::readSoundFile<int>(path("out.flac"));
    ASSERT_EQ(out.samples.size(), in.samples.size());
    const std::vector<int> changed = changedFrames(in, out);
    ASSERT_FALSE(changed.empty());
    EXPECT_GE(changed.front(), 20000);
    EXPECT_LT(changed.back(), 20030);

    // The whole-file commands need the length up front: the stream is counted once, and
    // they write what they write for the same audio with its length in the header.
    std::ofstream(path("regions.txt")) << "0.4\t0.41\tdrop\n";
    for (const std::string& command :
         std::vector<std::string>{"declick -q", "declip -q", "repair --regions " + path("regions.txt")}) {
        SCOPED_TRACE(command);
        const std::string name = command.substr(0, command.find(' '));
        const std::string options = command.substr(command.find(' '));
        const Outcome streamed = ferrotip(name + " " + path("stream.flac") + " " + path("a.flac") + options);
        ASSERT_EQ(streamed.status, 0) << streamed.output;
        ASSERT_EQ(ferrotip(name + " " + path("whole.flac") + " " + path("b.flac") + options).status, 0);
        EXPECT_EQ(testsupport::readSoundFile<int>(path("a.flac")).samples,
                  testsupport::readSoundFile<int>(path("b.flac")).samples);
        fs::remove(path("a.flac"));
        fs::remove(path("b.flac"));
    }
    EXPECT_EQ(ferrotip("scan " + path("stream.flac")).status, 0);

    for (int subtype : {SF_FORMAT_GSM610, SF_FORMAT_IMA_ADPCM, SF_FORMAT_MS_ADPCM}) {
        SCOPED_TRACE(subtype);
        writeFile(path("coded.wav"), SF_FORMAT_WAV | subtype, 48000, 8000, 1);
        const Outcome coded = ferrotip("repair " + path("coded.wav") + " " + path("coded-out.wav") +
                                       " --start 20000 --length 8 --method 2");
        ASSERT_EQ(coded.status, 0) << coded.output;
        const Audio a = testsupport::readSoundFile<int>(path("coded.wav"));
        const Audio b = testsupport::readSoundFile<int>(path("coded-out.wav"));
        EXPECT_EQ(b.info.frames, a.info.frames);
        EXPECT_EQ(b.info.format, a.info.format);
        fs::remove(path("coded-out.wav"));
    }
}

TEST_F(CliTest, LossyFilesSayTheWholeFileIsReencoded)
{
    const std::vector<std::pair<int, int>> formats = {
        {SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100},
        {SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000},
        {SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III, 44100},
        {SF_FORMAT_WAV | SF_FORMAT_IMA_ADPCM, 44100},
    };
    for (const auto& [format, rate] : formats) {
        SCOPED_TRACE(format);
        SF_INFO probe{};
        probe.samplerate = rate;
        probe.channels = 2;
        probe.format = format;
        if (!sf_format_check(&probe)) continue;  // this libsndfile cannot write it
        writeFile(path("in.snd"), format, 48000, rate);
        const Outcome run = ferrotip("repair " + path("in.snd") + " " + path("out.snd") +
                                     " --start 20000 --length 30 --method 2");
        ASSERT_EQ(run.status, 0) << run.output;
        EXPECT_NE(run.output.find("the whole file is re-encoded"), std::string::npos) << run.output;
        EXPECT_NE(run.output.find("lossless format"), std::string::npos) << run.output;
        fs::remove(path("out.snd"));
        // The file commands write the input's format too: the same note.
        for (const std::string command :
             {"declick -q", "declick -q --listen bypass", "declip -q", "repair --start 20000 --length 5ms"}) {
            const std::string arguments = command.substr(command.find(' '));
            const std::string name = command.substr(0, command.find(' '));
            const Outcome other = ferrotip(name + " " + path("in.snd") + " " + path("out.snd") + arguments);
            ASSERT_EQ(other.status, 0) << command << ": " << other.output;
            EXPECT_NE(other.output.find("the whole file is re-encoded"), std::string::npos) << command;
            fs::remove(path("out.snd"));
        }
    }
    writeFile(path("in.wav"), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const Outcome lossless = ferrotip("repair " + path("in.wav") + " " + path("out.wav") +
                                      " --start 20000 --length 30 --method 2");
    EXPECT_EQ(lossless.output.find("re-encoded"), std::string::npos) << lossless.output;
}

// A float file whose tone peaks at `peak`, with a dropout at frames 20000..20499.
void writeLoudFloatFile(const std::string& path, double peak)
{
    std::vector<float> data(48000);
    for (int t = 0; t < 48000; ++t) data[t] = static_cast<float>(peak * std::sin(0.031 * t));
    std::fill(data.begin() + 20000, data.begin() + 20500, 0.0f);
    testsupport::writeSoundFile(path, data, 1, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
}

// Audio far beyond any recording's scale overflows a waveform method's float sums:
// the command says so and writes nothing, where the gap filler (in double) still works.
TEST_F(CliTest, RepairsThatOverflowAreRefusedNotWritten)
{
    writeLoudFloatFile(path("loud.wav"), 1e37);
    const std::string out = path("out.wav");
    const Outcome waveform = ferrotip("repair " + path("loud.wav") + " " + out + " --start 20000 --length 500 -m 3");
    EXPECT_EQ(waveform.status, 1);
    EXPECT_NE(waveform.output.find("not finite"), std::string::npos) << waveform.output;
    EXPECT_NE(waveform.output.find("--method inpaint"), std::string::npos) << waveform.output;
    EXPECT_FALSE(fs::exists(out));
    const Outcome inpaint = ferrotip("repair " + path("loud.wav") + " " + out + " --start 20000 --length 500");
    EXPECT_EQ(inpaint.status, 0) << inpaint.output;
    const auto repaired = testsupport::readSoundFile<float>(out);
    for (float v : repaired.samples) ASSERT_TRUE(std::isfinite(v));
}

}  // namespace
