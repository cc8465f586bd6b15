// The repair command against damaged, foreign and every kind of sound file: it
// either writes a good file or fails with one line and leaves nothing behind, and
// never changes its input. Lossless formats keep every sample outside the repair.
#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support/CommandRunner.h"
#include "support/FileChecksum.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

using testsupport::ferrotip;
using Outcome = testsupport::CommandOutcome;

struct Sound {
    SF_INFO info{};
    std::vector<double> samples;  // interleaved, libsndfile's normalised doubles (exact for PCM)
};

bool writeSound(const std::string& path, int format, int channels, int rate, int frames)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    if (!sf_format_check(&info)) return false;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    std::vector<double> data(static_cast<std::size_t>(channels) * frames);
    for (int t = 0; t < frames; ++t)
        for (int c = 0; c < channels; ++c)
            data[static_cast<std::size_t>(t) * channels + c] =
                0.45 * std::sin(0.013 * (c + 1) * t) + 0.2 * std::sin(0.21 * t + c);
    sf_writef_double(file, data.data(), frames);
    sf_close(file);
    return true;
}

Sound readSound(const std::string& path)
{
    Sound sound;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &sound.info);
    if (!file) return sound;
    sound.samples.resize(static_cast<std::size_t>(sound.info.frames) * sound.info.channels);
    sf_readf_double(file, sound.samples.data(), sound.info.frames);
    sf_close(file);
    return sound;
}

class Robustness : public testing::Test {
protected:
    std::string path(const std::string& name) const { return scratch / name; }
    std::size_t filesInScratch() const
    {
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(scratch.path()), fs::directory_iterator()));
    }

    // Runs a repair of `input` into out.snd; checks what every run must hold and
    // returns the outcome. The output is removed afterwards.
    Outcome repairOnce(const std::string& input, const std::string& region)
    {
        const std::uint64_t before = testsupport::fileChecksum(input);
        const std::size_t files = filesInScratch();
        const Outcome run = ferrotip("repair '" + input + "' '" + path("out.snd") + "' " + region);
        EXPECT_NE(run.status, -1) << "killed by a signal: " << run.output;
        EXPECT_EQ(testsupport::fileChecksum(input), before) << "the input changed";
        if (run.status == 0) {
            EXPECT_EQ(filesInScratch(), files + 1);
        } else {
            EXPECT_EQ(std::count(run.output.begin(), run.output.end(), '\n'), 1) << run.output;
            EXPECT_EQ(filesInScratch(), files) << "a failure left a file: " << run.output;
        }
        std::error_code ignored;
        fs::remove(path("out.snd"), ignored);
        return run;
    }

    testsupport::TempDir scratch{"ferrotip-robust"};
};

TEST_F(Robustness, TruncatedFilesFailCleanlyOrRepairWhatIsThere)
{
    for (int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
                       SF_FORMAT_AIFF | SF_FORMAT_PCM_24}) {
        ASSERT_TRUE(writeSound(path("whole.snd"), format, 2, 8000, 4000));
        std::ifstream source(path("whole.snd"), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(source)), std::istreambuf_iterator<char>());
        std::vector<std::size_t> cuts = {0, 1, 3, 4, 8, 11, 12, 20, 35, 36, 40, 43, 44, 45, 54, 100};
        for (std::size_t cut = 200; cut < bytes.size(); cut += bytes.size() / 7) cuts.push_back(cut);
        cuts.push_back(bytes.size() - 1);
        for (std::size_t cut : cuts) {
            SCOPED_TRACE("format " + std::to_string(format) + ", cut at " + std::to_string(cut));
            std::ofstream(path("cut.snd"), std::ios::binary).write(bytes.data(), std::min(cut, bytes.size()));
            repairOnce(path("cut.snd"), "--start 100 --length 3 -m 2");
        }
        fs::remove(path("whole.snd"));
        fs::remove(path("cut.snd"));
    }
}

TEST_F(Robustness, CorruptedHeadersFailCleanlyOrRepair)
{
    for (int format : {SF_FORMAT_WAV | SF_FORMAT_PCM_16, SF_FORMAT_FLAC | SF_FORMAT_PCM_16,
                       SF_FORMAT_AIFF | SF_FORMAT_PCM_16, SF_FORMAT_CAF | SF_FORMAT_FLOAT}) {
        ASSERT_TRUE(writeSound(path("whole.snd"), format, 2, 8000, 4000));
        std::ifstream source(path("whole.snd"), std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(source)), std::istreambuf_iterator<char>());
        for (std::size_t at = 0; at < std::min<std::size_t>(bytes.size(), 64); at += 4) {
            for (unsigned char flip : {0x01, 0xff}) {
                SCOPED_TRACE("format " + std::to_string(format) + ", byte " + std::to_string(at) +
                             " ^ " + std::to_string(flip));
                std::string damaged = bytes;
                damaged[at] = static_cast<char>(damaged[at] ^ flip);
                std::ofstream(path("bad.snd"), std::ios::binary).write(damaged.data(), damaged.size());
                repairOnce(path("bad.snd"), "--start 100 --length 3 -m 0");
            }
        }
        fs::remove(path("whole.snd"));
        fs::remove(path("bad.snd"));
    }
}

TEST_F(Robustness, ForeignInputsAndFoldersAreRefused)
{
    std::ofstream(path("empty.wav"));
    std::ofstream(path("text.wav")) << "RIFF but not really a sound file\n";
    std::string noise(5000, '\0');
    for (std::size_t i = 0; i < noise.size(); ++i) noise[i] = static_cast<char>((i * 2654435761u) >> 13);
    std::ofstream(path("noise.flac"), std::ios::binary).write(noise.data(), noise.size());
    fs::create_directory(path("folder.wav"));
    for (const char* name : {"empty.wav", "text.wav", "noise.flac", "folder.wav", "missing.wav"}) {
        SCOPED_TRACE(name);
        EXPECT_NE(repairOnce(path(name), "--start 100 --length 3 -m 0").status, 0);
    }
}

struct FormatCase {
    int format;
    bool lossless;
};

// Every container and sample format libsndfile writes, each at a few channel
// counts and rates from a sampled grid; each file round-trips through one repair.
TEST_F(Robustness, EveryFormatRoundTripsKeepingEverySampleOutsideTheRepair)
{
    const std::vector<FormatCase> formats = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, true},   {SF_FORMAT_WAV | SF_FORMAT_PCM_16, true},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, true},   {SF_FORMAT_WAV | SF_FORMAT_PCM_32, true},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, true},    {SF_FORMAT_WAV | SF_FORMAT_DOUBLE, true},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_S8, true},  {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, true},
        {SF_FORMAT_FLAC | SF_FORMAT_PCM_24, true},  {SF_FORMAT_OGG | SF_FORMAT_VORBIS, false},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, true},  {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, true},
        {SF_FORMAT_AIFF | SF_FORMAT_FLOAT, true},   {SF_FORMAT_CAF | SF_FORMAT_PCM_16, true},
        {SF_FORMAT_CAF | SF_FORMAT_DOUBLE, true},   {SF_FORMAT_W64 | SF_FORMAT_PCM_24, true},
        {SF_FORMAT_W64 | SF_FORMAT_FLOAT, true},    {SF_FORMAT_RF64 | SF_FORMAT_PCM_16, true},
        {SF_FORMAT_RF64 | SF_FORMAT_DOUBLE, true},
    };
    const int channelCounts[] = {1, 2, 3, 6, 8};
    const int rates[] = {8000, 11025, 22050, 44100, 48000, 96000, 192000};
    const int methods[] = {0, 1, 2, 4};
    int tried = 0;
    for (std::size_t f = 0; f < formats.size(); ++f) {
        for (int pick = 0; pick < 2; ++pick) {
            const int channels = channelCounts[(f + 2 * pick) % 5];
            const int rate = rates[(3 * f + 5 * pick) % 7];
            const int method = methods[(f + pick) % 4];
            // "Waveform Replacment Near" needs half a second on each side.
            const int frames = method == 4 ? rate * 13 / 10 : rate / 4;
            const int start = method == 4 ? rate * 6 / 10 : rate / 8;
            const int length = method == 0 ? 5 : method == 4 ? rate / 100 : rate / 2000;
            SCOPED_TRACE("format " + std::to_string(formats[f].format) + ", " + std::to_string(channels) +
                         " channels at " + std::to_string(rate) + " Hz, method " + std::to_string(method));
            if (!writeSound(path("in.snd"), formats[f].format, channels, rate, frames)) continue;
            ++tried;
            const Sound in = readSound(path("in.snd"));
            const Outcome run = ferrotip("repair " + path("in.snd") + " " + path("out.snd") +
                                         " --start " + std::to_string(start) + " --length " +
                                         std::to_string(length) + " -m " + std::to_string(method));
            ASSERT_EQ(run.status, 0) << run.output;
            const Sound out = readSound(path("out.snd"));
            EXPECT_EQ(out.info.format, in.info.format);
            EXPECT_EQ(out.info.channels, channels);
            EXPECT_EQ(out.info.samplerate, rate);
            ASSERT_EQ(out.info.frames, in.info.frames);
            if (formats[f].lossless) {
                const int fade = method == 4 ? std::clamp(length / 4, 80, 500) - 1 : 0;
                for (std::size_t i = 0; i < in.samples.size(); ++i) {
                    const int frame = static_cast<int>(i / channels);
                    if (frame >= start - fade && frame < start + length + fade) continue;
                    ASSERT_EQ(out.samples[i], in.samples[i]) << "frame " << frame;
                }
            }
            fs::remove(path("out.snd"));
        }
    }
    EXPECT_GE(tried, 30);
}

// A float file can hold NaN and infinities; one would spread through every filter
// after it. Every command reads them as silence, says so, and writes finite audio.
TEST_F(Robustness, SamplesThatAreNotFiniteAreReadAsSilenceWithAWarning)
{
    const std::string input = path("nan.wav");
    ASSERT_TRUE(writeSound(input, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 2, 44100, 44100));
    Sound sound = readSound(input);
    sound.samples[2 * 5000] = std::nan("");
    sound.samples[2 * 7000 + 1] = INFINITY;
    sound.samples[2 * 9000] = -INFINITY;
    SF_INFO info = sound.info;
    SNDFILE* file = sf_open(input.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_double(file, sound.samples.data(), sound.info.frames);
    sf_close(file);

    for (const std::string& command : {"declick -q '" + input + "' '" + path("out.wav") + "'",
                                      "declip -q '" + input + "' '" + path("out.wav") + "'",
                                      "repair '" + input + "' '" + path("out.wav") + "' --start 4990 --length 20",
                                      "repair '" + input + "' '" + path("out.wav") + "' --start 20000 --length 5ms --method 3"}) {
        const Outcome run = ferrotip(command);
        ASSERT_EQ(run.status, 0) << command << ": " << run.output;
        EXPECT_NE(run.output.find("warning: 3 samples"), std::string::npos) << command << ": " << run.output;
        const Sound out = readSound(path("out.wav"));
        ASSERT_EQ(out.samples.size(), sound.samples.size()) << command;
        EXPECT_TRUE(std::all_of(out.samples.begin(), out.samples.end(), [](double x) { return std::isfinite(x); }))
            << command;
        fs::remove(path("out.wav"));
    }
    const Outcome scan = ferrotip("scan '" + input + "'");
    EXPECT_EQ(scan.status, 0) << scan.output;
    EXPECT_NE(scan.output.find("warning: 3 samples"), std::string::npos) << scan.output;
}

// GSM and ADPCM decode front to back only: the commands that read a file twice or
// look at one stretch of it read it again from the start.
TEST_F(Robustness, FilesThatCannotSeekRepairAndDeclip)
{
    const std::string gsm = path("gsm.wav");
    ASSERT_TRUE(writeSound(gsm, SF_FORMAT_WAV | SF_FORMAT_GSM610, 1, 8000, 24000));
    std::string clipped = path("clipped.wav");
    {
        Sound sound = readSound(gsm);
        ASSERT_FALSE(sound.samples.empty());
        SF_INFO info = sound.info;
        for (double& x : sound.samples) x = std::clamp(x, -0.4, 0.4);
        SNDFILE* file = sf_open(clipped.c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr);
        sf_writef_double(file, sound.samples.data(), info.frames);
        sf_close(file);
    }
    for (const std::string& args : {"repair " + gsm + " " + path("a.wav") + " --start 1s --length 20ms",
                                    "repair " + gsm + " " + path("b.wav") + " --start 2s --length 2ms -m 2",
                                    "declip " + clipped + " " + path("c.wav") + " -q"}) {
        const Outcome run = ferrotip(args);
        EXPECT_EQ(run.status, 0) << args << "\n" << run.output;
    }
    EXPECT_EQ(readSound(path("a.wav")).info.frames, readSound(gsm).info.frames);
}

// Audio piped in (as '-' or /dev/stdin) gives the same output as the file it came
// from, though every command reads its input more than once; the copy they read it
// from is gone afterwards.
TEST_F(Robustness, PipedInputIsReadLikeTheFile)
{
    const std::string input = path("in.wav");
    ASSERT_TRUE(writeSound(input, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 2, 44100, 44100));
    const std::string spoolFolder = path("spool");
    fs::create_directory(spoolFolder);
    const std::string environment = "TMPDIR='" + spoolFolder + "' ";
    for (const std::string& command : {std::string("declick"), std::string("declip -q"),
                                       std::string("repair --start 0.5s --length 20ms")}) {
        SCOPED_TRACE(command);
        ASSERT_EQ(ferrotip(command + " '" + input + "' '" + path("from-file.wav") + "'").status, 0);
        const Outcome dash = testsupport::shell("cat '" + input + "' | " + environment + testsupport::program() + " " +
                                                command + " - '" + path("from-dash.wav") + "'");
        EXPECT_EQ(dash.status, 0) << dash.output;
        const Outcome device = testsupport::shell("cat '" + input + "' | " + environment + testsupport::program() +
                                                  " " + command + " /dev/stdin '" + path("from-pipe.wav") + "'");
        EXPECT_EQ(device.status, 0) << device.output;
        const std::uint64_t expected = testsupport::fileChecksum(path("from-file.wav"));
        EXPECT_EQ(testsupport::fileChecksum(path("from-dash.wav")), expected);
        EXPECT_EQ(testsupport::fileChecksum(path("from-pipe.wav")), expected);
        EXPECT_TRUE(fs::is_empty(spoolFolder)) << "the copy of the piped input was left behind";
    }
    const Outcome scan = testsupport::shell("cat '" + input + "' | " + testsupport::program() + " scan -");
    EXPECT_EQ(scan.status, 0) << scan.output;
    const Outcome empty = testsupport::shell(environment + testsupport::program() + " declick - '" +
                                             path("none.wav") + "' < /dev/null");
    EXPECT_NE(empty.status, 0);
    EXPECT_NE(empty.output.find("cannot read '-'"), std::string::npos) << empty.output;
    EXPECT_FALSE(fs::exists(path("none.wav")));
    EXPECT_TRUE(fs::is_empty(spoolFolder));
}

// Standard input left at a terminal is refused at once rather than waited on.
TEST_F(Robustness, StandardInputAtATerminalIsRefused)
{
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    if (terminal < 0 || grantpt(terminal) != 0 || unlockpt(terminal) != 0) GTEST_SKIP() << "no pseudo-terminal";
    const std::string side = ptsname(terminal);
    const Outcome run = ferrotip("declick - '" + path("out.wav") + "' < " + side);
    close(terminal);
    EXPECT_NE(run.status, 0);
    EXPECT_NE(run.output.find("it is a terminal"), std::string::npos) << run.output;
    EXPECT_FALSE(fs::exists(path("out.wav")));
}

// The output keeps the input's text tags and channel layout, and two runs write the
// same bytes (a float file's PEAK chunk would carry the time of writing).
TEST_F(Robustness, OutputsKeepTagsAndLayoutAndRepeatByteForByte)
{
    const std::string input = path("tagged.wav");
    {
        SF_INFO info{};
        info.samplerate = 44100;
        info.channels = 3;
        info.format = SF_FORMAT_WAVEX | SF_FORMAT_FLOAT;
        SNDFILE* file = sf_open(input.c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr);
        int layout[3] = {SF_CHANNEL_MAP_LEFT, SF_CHANNEL_MAP_RIGHT, SF_CHANNEL_MAP_LFE};
        sf_command(file, SFC_SET_CHANNEL_MAP_INFO, layout, sizeof layout);
        sf_set_string(file, SF_STR_TITLE, "Take 3");
        sf_set_string(file, SF_STR_ARTIST, "The Band");
        std::vector<float> data(3 * 44100);
        for (std::size_t i = 0; i < data.size(); ++i) data[i] = static_cast<float>(0.3 * std::sin(0.01 * i));
        sf_writef_float(file, data.data(), 44100);
        sf_close(file);
    }
    for (const char* name : {"a.wav", "b.wav"}) {
        const Outcome run = ferrotip("repair " + input + " " + path(name) + " --start 0.5s --length 5ms");
        ASSERT_EQ(run.status, 0) << run.output;
    }
    EXPECT_EQ(testsupport::fileChecksum(path("a.wav")), testsupport::fileChecksum(path("b.wav")));
    SF_INFO info{};
    SNDFILE* file = sf_open(path("a.wav").c_str(), SFM_READ, &info);
    ASSERT_NE(file, nullptr);
    const char* title = sf_get_string(file, SF_STR_TITLE);
    const char* artist = sf_get_string(file, SF_STR_ARTIST);
    EXPECT_STREQ(title ? title : "", "Take 3");
    EXPECT_STREQ(artist ? artist : "", "The Band");
    int layout[3] = {};
    EXPECT_EQ(sf_command(file, SFC_GET_CHANNEL_MAP_INFO, layout, sizeof layout), SF_TRUE);
    EXPECT_EQ(layout[2], SF_CHANNEL_MAP_LFE);
    sf_close(file);
}

}  // namespace
