// The installed ferrotip.lv2 checked with the LV2 command-line tools: lv2_validate
// accepts it, lv2ls and lv2info list both plug-ins with every port, and lv2apply (a
// real host, one sample per run) renders a mono or stereo file that, with the
// latency taken off, equals `ferrotip declick` with the same settings (a Custom
// pass, or a preset with its floors given absolutely) bit for bit; bypass is the
// input delayed by the latency exactly. Each test installs the bundle into its own
// temporary prefix and removes it.
#include <sndfile.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "ClickedMusic.h"
#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace {

namespace fs = std::filesystem;

constexpr int rate = 48000;
constexpr int engineLatency = 1926;
constexpr int fifoBlock = 512;
constexpr int customPreset = 4;
// The default preset, its engines alone, chains two engines.
constexpr int defaultLatency = 2 * engineLatency + fifoBlock;
constexpr const char* monoUri = "urn:ferrotip:lv2:declick-mono";
constexpr const char* stereoUri = "urn:ferrotip:lv2:declick-stereo";

// Interleaved frames of `channels` channels.
struct Audio {
    int channels;
    std::vector<float> samples;
    bool operator==(const Audio&) const = default;
};

struct Outcome {
    int status;
    std::string output;
};

Outcome runCommand(const std::string& command)
{
    std::FILE* pipe = popen((command + " 2>&1").c_str(), "r");
    std::string output;
    char buffer[4096];
    while (pipe && std::fgets(buffer, sizeof buffer, pipe)) output += buffer;
    const int status = pipe ? pclose(pipe) : -1;
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

void writeFloatWav(const fs::path& path, const Audio& audio)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = audio.channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << path;
    sf_writef_float(file, audio.samples.data(), static_cast<sf_count_t>(audio.samples.size() / audio.channels));
    sf_close(file);
}

Audio readFloatWav(const fs::path& path)
{
    auto file = testsupport::readSoundFile<float>(path.string());
    return {file.info.channels, std::move(file.samples)};
}

class Lv2Tools : public ::testing::Test {
protected:
    void SetUp() override
    {
        const Outcome install = runCommand(std::string("\"" FERROTIP_CMAKE "\" --install \"" FERROTIP_BINARY_DIR
                                                       "\" --component lv2 --prefix \"") + dir_.path().string() + "\"");
        ASSERT_EQ(install.status, 0) << install.output;
        bundle_ = dir_.path() / "lib/lv2/ferrotip.lv2";
        ASSERT_TRUE(fs::exists(bundle_ / "ferrotip_lv2.so"));
    }

    // An LV2 tool run with only the installed bundle on its search path.
    Outcome tool(const std::string& arguments)
    {
        return runCommand("LV2_PATH=\"" + (dir_.path() / "lib/lv2").string() + "\" " + arguments);
    }

    // Renders `input` through the plug-in of its channel count with lv2apply, fed
    // `latency` frames of silence past its end, and returns the output with the
    // latency taken off.
    Audio lv2apply(Audio input, const std::string& controls, int latency)
    {
        const std::size_t delay = static_cast<std::size_t>(latency) * input.channels;
        input.samples.resize(input.samples.size() + delay, 0.0f);
        writeFloatWav(dir_ / "padded.wav", input);
        const Outcome run = tool("lv2apply -i \"" + (dir_ / "padded.wav") + "\" -o \"" +
                                 (dir_ / "plugin.wav") + "\" " + controls + " " +
                                 (input.channels == 1 ? monoUri : stereoUri));
        EXPECT_EQ(run.status, 0) << run.output;
        Audio out = readFloatWav(dir_ / "plugin.wav");
        EXPECT_EQ(out.samples.size(), input.samples.size());
        out.samples.erase(out.samples.begin(), out.samples.begin() + std::min(delay, out.samples.size()));
        return out;
    }

    // The command line taking the audio past the file's ends as silence, as the
    // plug-in's stream does.
    Audio declick(const Audio& input, const std::string& options)
    {
        writeFloatWav(dir_ / "in.wav", input);
        const Outcome run = runCommand(std::string("\"" FERROTIP_CLI_PATH "\" declick -q \"") +
                                       (dir_ / "in.wav") + "\" \"" + (dir_ / "cli.wav") +
                                       "\" --silent-edges " + options);
        EXPECT_EQ(run.status, 0) << run.output;
        return readFloatWav(dir_ / "cli.wav");
    }

    testsupport::TempDir dir_{"ferrotip-lv2"};
    fs::path bundle_;
};

// Two seconds of music with clicks, seeded, interleaved.
Audio clickedMusic(int channels)
{
    const auto planar = lv2test::clickedMusic(channels, 2 * rate, 41);
    Audio audio{channels, std::vector<float>(planar[0].size() * channels)};
    for (std::size_t t = 0; t < planar[0].size(); ++t)
        for (int c = 0; c < channels; ++c) audio.samples[t * channels + c] = planar[c][t];
    return audio;
}

TEST_F(Lv2Tools, ValidateAcceptsTheInstalledBundle)
{
    const Outcome check =
        tool("lv2_validate \"" + (bundle_ / "manifest.ttl").string() + "\" \"" + (bundle_ / "ferrotip.ttl").string() + "\"");
    EXPECT_EQ(check.status, 0) << check.output;
    EXPECT_NE(check.output.find("Found 0 errors"), std::string::npos) << check.output;
}

// A thread's first touch of a dynamically allocated thread-local (a DTPMOD
// relocation) mallocs its block: a host that runs the plug-in on a thread other
// than the one that activated it would see run() allocate.
TEST_F(Lv2Tools, PluginHoldsNoThreadLocalThatAThreadsFirstRunAllocates)
{
    if (runCommand("command -v readelf").status != 0) GTEST_SKIP() << "readelf (binutils) is not installed";
    const Outcome relocations = runCommand("readelf -rW \"" + (bundle_ / "ferrotip_lv2.so").string() + "\"");
    ASSERT_EQ(relocations.status, 0) << relocations.output;
    EXPECT_EQ(relocations.output.find("DTPMOD"), std::string::npos) << relocations.output;
}

TEST_F(Lv2Tools, ListAndInfoShowBothPluginsWithEveryPort)
{
    const Outcome list = tool("lv2ls");
    EXPECT_NE(list.output.find("urn:ferrotip:lv2:declick-mono"), std::string::npos) << list.output;
    EXPECT_NE(list.output.find("urn:ferrotip:lv2:declick-stereo"), std::string::npos) << list.output;
    const std::vector<std::string> controls = {"preset", "sensitivity", "floor", "floor_mode", "floor_absolute",
                                               "engine", "listen", "enabled", "latency"};
    const std::vector<std::pair<std::string, std::vector<std::string>>> plugins = {
        {"urn:ferrotip:lv2:declick-mono", {"in", "out"}},
        {"urn:ferrotip:lv2:declick-stereo", {"in_l", "in_r", "out_l", "out_r"}}};
    for (const auto& [uri, audio] : plugins) {
        const Outcome info = tool("lv2info " + uri);
        EXPECT_EQ(info.status, 0) << info.output;
        EXPECT_NE(info.output.find("Has latency:       yes, reported by port 8"), std::string::npos) << info.output;
        for (const auto& group : {controls, audio})
            for (const std::string& symbol : group)
                EXPECT_NE(info.output.find("Symbol:      " + symbol + "\n"), std::string::npos) << uri << " " << symbol;
    }
}

TEST_F(Lv2Tools, ApplyEqualsTheCommandLineBitForBit)
{
    struct Case {
        int channels;
        std::string controls, options;
        int latency;
    };
    const std::string custom = "-c preset " + std::to_string(customPreset) + " -c floor_mode 1 ";
    const int onePass = engineLatency + fifoBlock;
    const std::vector<Case> cases = {
        {1, custom + "-c engine 0 -c sensitivity 3 -c floor_absolute 1e-7",
         "--block 512 --engine standard --sensitivity 3 --floor 1e-7", onePass},
        {1, custom + "-c engine 1 -c sensitivity 5 -c floor_absolute 1e-5",
         "--block 512 --engine prediction --sensitivity 5 --floor 1e-5", onePass},
        {1, custom + "-c engine 0 -c sensitivity 4 -c floor_absolute 1e-6 -c listen 1",
         "--block 512 --engine standard --sensitivity 4 --floor 1e-6 --listen difference", onePass},
        // Stereo: one engine per channel on both sides.
        {2, custom + "-c engine 0 -c sensitivity 5 -c floor_absolute 1e-5",
         "--block 512 --engine standard --sensitivity 5 --floor 1e-5", onePass},
        {2, custom + "-c engine 1 -c sensitivity 4 -c floor_absolute 1e-6",
         "--block 512 --engine prediction --sensitivity 4 --floor 1e-6", onePass},
        // The default preset's two chained passes, each pass's floor given absolutely.
        {2, "-c preset 0 -c floor_mode 1 -c floor_absolute 1e-6", "--preset auto --floor 1e-6 --no-refill", defaultLatency},
        {1, "-c preset 0 -c floor_mode 1 -c floor_absolute 1e-6 -c listen 1",
         "--preset auto --floor 1e-6 --listen difference --no-refill", defaultLatency},
        {2, "-c preset 2 -c floor_mode 1 -c floor_absolute 1e-4", "--preset clicks --floor 1e-4", onePass},
    };
    for (const Case& c : cases) {
        const Audio input = clickedMusic(c.channels);
        const Audio plugin = lv2apply(input, c.controls, c.latency);
        const Audio cli = declick(input, c.options);
        EXPECT_TRUE(plugin == cli) << c.controls;
        EXPECT_FALSE(cli == input) << "the repair changed nothing: " << c.controls;
    }
}

TEST_F(Lv2Tools, ApplyBypassIsTheInputDelayedByTheLatency)
{
    for (int channels : {1, 2}) {
        const Audio input = clickedMusic(channels);
        EXPECT_TRUE(lv2apply(input, "-c listen 2", defaultLatency) == input) << channels << " channels";
        // And nothing but silence comes before it.
        const auto all = readFloatWav(dir_ / "plugin.wav").samples;
        EXPECT_TRUE(std::all_of(all.begin(), all.begin() + defaultLatency * channels, [](float v) { return v == 0.0f; }));
    }
}

}  // namespace
