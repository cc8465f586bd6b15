// The installed ferrotip.lv2 checked with the LV2 command-line tools: lv2_validate
// accepts it, lv2ls and lv2info list both plug-ins with every port, and lv2apply (a
// real host, one sample per run) renders a file that, with the latency taken off,
// equals `ferrotip declick` with the same settings bit for bit; bypass is the input
// delayed by the latency exactly. Each test installs the bundle into its own
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

namespace {

namespace fs = std::filesystem;

constexpr int rate = 48000;
constexpr int latency = 1926 + 512;
constexpr const char* monoUri = "urn:ferrotip:lv2:declick-mono";

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

void writeFloatWav(const fs::path& path, const std::vector<float>& samples)
{
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << path;
    sf_writef_float(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
}

class Lv2Tools : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/ferrotip-lv2-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
        const Outcome install = runCommand(std::string("\"" FERROTIP_CMAKE "\" --install \"" FERROTIP_BINARY_DIR
                                                       "\" --component lv2 --prefix \"") + dir_.string() + "\"");
        ASSERT_EQ(install.status, 0) << install.output;
        bundle_ = dir_ / "lib/lv2/ferrotip.lv2";
        ASSERT_TRUE(fs::exists(bundle_ / "ferrotip_lv2.so"));
    }

    void TearDown() override { fs::remove_all(dir_); }

    // An LV2 tool run with only the installed bundle on its search path.
    Outcome tool(const std::string& arguments)
    {
        return runCommand("LV2_PATH=\"" + (dir_ / "lib/lv2").string() + "\" " + arguments);
    }

    // Renders `input` through the mono plug-in with lv2apply, fed `latency` zeros
    // past its end, and returns the output with the latency taken off.
    std::vector<float> lv2apply(std::vector<float> input, const std::string& controls)
    {
        input.resize(input.size() + latency, 0.0f);
        writeFloatWav(dir_ / "padded.wav", input);
        const Outcome run = tool("lv2apply -i \"" + (dir_ / "padded.wav").string() + "\" -o \"" +
                                 (dir_ / "plugin.wav").string() + "\" " + controls + " " + monoUri);
        EXPECT_EQ(run.status, 0) << run.output;
        auto out = testsupport::readSoundFile<float>((dir_ / "plugin.wav").string()).samples;
        EXPECT_EQ(out.size(), input.size());
        out.erase(out.begin(), out.begin() + std::min<std::size_t>(latency, out.size()));
        return out;
    }

    std::vector<float> declick(const std::vector<float>& input, const std::string& options)
    {
        writeFloatWav(dir_ / "in.wav", input);
        const Outcome run = runCommand(std::string("\"" FERROTIP_CLI_PATH "\" declick -q \"") +
                                       (dir_ / "in.wav").string() + "\" \"" + (dir_ / "cli.wav").string() +
                                       "\" " + options);
        EXPECT_EQ(run.status, 0) << run.output;
        return testsupport::readSoundFile<float>((dir_ / "cli.wav").string()).samples;
    }

    fs::path dir_;
    fs::path bundle_;
};

// Two seconds of mono music with clicks, seeded.
std::vector<float> clickedMusic()
{
    return lv2test::clickedMusic(1, 2 * rate, 41)[0];
}

TEST_F(Lv2Tools, ValidateAcceptsTheInstalledBundle)
{
    const Outcome check =
        tool("lv2_validate \"" + (bundle_ / "manifest.ttl").string() + "\" \"" + (bundle_ / "ferrotip.ttl").string() + "\"");
    EXPECT_EQ(check.status, 0) << check.output;
    EXPECT_NE(check.output.find("Found 0 errors"), std::string::npos) << check.output;
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
    const auto input = clickedMusic();
    struct Case {
        std::string controls, options;
    };
    const std::vector<Case> cases = {
        {"-c engine 0 -c sensitivity 3 -c floor_absolute 1e-7", "--engine standard --sensitivity 3 --floor 1e-7"},
        {"-c engine 1 -c sensitivity 5 -c floor_absolute 1e-5", "--engine prediction --sensitivity 5 --floor 1e-5"},
        {"-c engine 0 -c sensitivity 4 -c floor_absolute 1e-6 -c listen 1",
         "--engine standard --sensitivity 4 --floor 1e-6 --listen difference"},
    };
    for (const Case& c : cases) {
        const auto plugin = lv2apply(input, "-c preset 3 -c floor_mode 1 " + c.controls);
        const auto cli = declick(input, "--block 512 " + c.options);
        EXPECT_EQ(plugin, cli) << c.controls;
        EXPECT_NE(cli, input) << "the repair changed nothing: " << c.controls;
    }
}

TEST_F(Lv2Tools, ApplyBypassIsTheInputDelayedByTheLatency)
{
    const auto input = clickedMusic();
    EXPECT_EQ(lv2apply(input, "-c listen 2"), input);
    // And nothing but silence comes before it.
    const auto all = testsupport::readSoundFile<float>((dir_ / "plugin.wav").string()).samples;
    EXPECT_TRUE(std::all_of(all.begin(), all.begin() + latency, [](float v) { return v == 0.0f; }));
}

}  // namespace
