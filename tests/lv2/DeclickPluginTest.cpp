// The declick plug-ins loaded in-process through lilv, as a host loads them: run()
// allocates nothing whatever the block size or control changes, the output does not
// depend on how the host cuts its blocks, on which thread runs them or on other
// instances, bypass is the input delayed by the reported latency, the preset control
// lists the library's presets, and listen, engine and preset changes fade in
// without a jump.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <random>
#include <thread>

#include "ClickedMusic.h"
#include "PluginHost.h"
#include "declick/DeclickPreset.h"

namespace {

using lv2test::Channels;
using lv2test::PluginHost;

constexpr double rate = 48000.0;
constexpr int engineLatency = 1926;
constexpr int fifoBlock = 512;
const int customPreset = static_cast<int>(declickPresets().size());
// The default preset's chained engines, plus one engine block of FIFO.
const int defaultLatency = defaultDeclickPreset().enginesAlone.passCount * engineLatency + fifoBlock;
const std::vector<int> hostBlockSizes = {1, 32, 64, 100, 256, 1024, 4096};

// Two seconds of music with clicks, seeded.
Channels clickedMusic(int channels)
{
    return lv2test::clickedMusic(channels, static_cast<int>(2 * rate), 17);
}

auto fixedBlocks(int size)
{
    return [size](std::size_t) { return size; };
}

auto varyingBlocks(unsigned seed)
{
    return [rng = std::mt19937(seed)](std::size_t) mutable { return 1 + static_cast<int>(rng() % 3000); };
}

Channels renderWith(const char* uri, const Channels& in, int blockSize, void (*configure)(PluginHost&))
{
    PluginHost host(uri, rate);
    configure(host);
    std::size_t allocations = 0;
    return lv2test::render(host, in, fixedBlocks(blockSize), allocations);
}

void predictionEngine(PluginHost& host)
{
    host.set("preset", static_cast<float>(customPreset));
    host.set("engine", 1);
    host.set("sensitivity", 4.0f);
}

void defaults(PluginHost&) {}

double largestStep(const std::vector<float>& x, std::size_t from, std::size_t to)
{
    double step = 0.0;
    for (std::size_t t = from + 1; t < to; ++t) step = std::max(step, std::fabs(double(x[t]) - x[t - 1]));
    return step;
}

TEST(DeclickPlugin, ThePresetControlListsTheLibrarysPresetsThenCustom)
{
    PluginHost host(lv2test::monoUri, rate);
    std::vector<std::string> expected;
    for (const DeclickPreset& preset : declickPresets()) {
        expected.emplace_back(preset.name);
        expected.back()[0] = static_cast<char>(std::toupper(expected.back()[0]));
    }
    expected.emplace_back("Custom");
    EXPECT_EQ(host.scaleLabels("preset"), expected);
    EXPECT_EQ(declickPresets()[static_cast<std::size_t>(host.get("preset"))].name, defaultDeclickPreset().name);
}

TEST(DeclickPlugin, ReportsEachPresetsChainedEnginesPlusOneEngineBlock)
{
    for (const char* uri : {lv2test::monoUri, lv2test::stereoUri}) {
        for (int preset = 0; preset <= customPreset; ++preset) {
            PluginHost host(uri, rate);
            host.set("preset", static_cast<float>(preset));
            host.reactivate();
            Channels in(host.channels(), std::vector<float>(1)), out = in;
            host.run(in, out, 0, 0);
            const int passes = preset < customPreset ? declickPresets()[preset].enginesAlone.passCount : 1;
            EXPECT_EQ(host.latency(), passes * engineLatency + fifoBlock) << uri << " preset " << preset;
        }
    }
}

TEST(DeclickPlugin, InstantiateAllocatesInsideThePluginSoRunCountsAreReal)
{
    const std::size_t allocations = testsupport::allocationsDuring([] { PluginHost host(lv2test::monoUri, rate); });
    EXPECT_GT(allocations, 100u);
}

TEST(DeclickPlugin, RunAllocatesNothingForAnyBlockSizeOrControlChange)
{
    const Channels in = clickedMusic(2);
    PluginHost host(lv2test::stereoUri, rate);
    std::size_t allocations = 0;
    for (int preset = 0; preset <= customPreset; ++preset) {
        host.set("preset", static_cast<float>(preset));
        for (int size : hostBlockSizes) lv2test::render(host, in, fixedBlocks(size), allocations);
        lv2test::render(host, in, varyingBlocks(static_cast<unsigned>(preset)), allocations);
    }
    // Every control moved at some block: presets, engines both ways, listen modes, floor modes.
    std::mt19937 rng(5);
    const char* symbols[] = {"preset", "engine", "listen", "floor_mode", "enabled", "sensitivity", "floor"};
    const float ranges[] = {static_cast<float>(customPreset), 1, 2, 1, 1, 20, -10};
    int block = 0;
    auto changing = [&](std::size_t) {
        if (++block % 7 == 0) {
            const int k = static_cast<int>(rng() % 7);
            host.set(symbols[k], std::round(ranges[k] * static_cast<float>(rng() % 1000) / 1000.0f));
        }
        return 1 + static_cast<int>(rng() % 3000);
    };
    // Each pass starts with a change it is sure to see through: both engine changes, every mode.
    const std::vector<std::pair<const char*, float>> firstMoves = {
        {"preset", 0}, {"preset", static_cast<float>(customPreset)}, {"engine", 1}, {"engine", 0}, {"listen", 1}, {"listen", 2}, {"floor_mode", 1}, {"enabled", 0}};
    for (const auto& [symbol, value] : firstMoves) {
        host.set(symbol, value);
        lv2test::render(host, in, changing, allocations);
    }
    EXPECT_EQ(allocations, 0u);
}

TEST(DeclickPlugin, OutputDoesNotDependOnHostBlockSizes)
{
    const Channels in = clickedMusic(2);
    for (auto configure : {defaults, predictionEngine}) {
        const Channels reference = renderWith(lv2test::stereoUri, in, 4096, configure);
        for (int size : hostBlockSizes)
            EXPECT_EQ(renderWith(lv2test::stereoUri, in, size, configure), reference) << "host block " << size;
        PluginHost host(lv2test::stereoUri, rate);
        configure(host);
        std::size_t allocations = 0;
        EXPECT_EQ(lv2test::render(host, in, varyingBlocks(3), allocations), reference) << "varying blocks";
    }
}

TEST(DeclickPlugin, OutputDoesNotDependOnThreadOrOtherInstances)
{
    const Channels in = clickedMusic(2);
    const Channels reference = renderWith(lv2test::stereoUri, in, 256, defaults);
    PluginHost first(lv2test::stereoUri, rate), second(lv2test::stereoUri, rate);
    Channels out(2, std::vector<float>(in[0].size())), other = out;
    for (std::size_t offset = 0; offset < in[0].size(); offset += 256) {
        const int n = static_cast<int>(std::min<std::size_t>(256, in[0].size() - offset));
        std::thread([&] { first.run(in, out, offset, n); }).join();  // a new thread each block
        second.run(in, other, offset, n);                            // drawing dither meanwhile
    }
    EXPECT_EQ(out, reference);
    EXPECT_EQ(other, reference);
}

TEST(DeclickPlugin, BypassIsTheInputDelayedByTheReportedLatency)
{
    const Channels in = clickedMusic(2);
    for (const char* control : {"listen", "enabled"}) {
        PluginHost host(lv2test::stereoUri, rate);
        host.set(control, control == std::string("listen") ? 2.0f : 0.0f);
        std::size_t allocations = 0;
        const Channels out = lv2test::render(host, in, varyingBlocks(11), allocations);
        const auto latency = static_cast<std::size_t>(host.latency());
        for (int c = 0; c < 2; ++c) {
            std::vector<float> expected(in[c].size(), 0.0f);
            std::copy(in[c].begin(), in[c].end() - static_cast<long>(latency), expected.begin() + static_cast<long>(latency));
            EXPECT_EQ(out[c], expected) << control << ", channel " << c;
        }
    }
}

// A clean 440 Hz tone at half scale, one mono plug-in in blocks of 256 starting with
// `preset` (Custom: sensitivity 12); `change` may move a control before the block at
// `offset`.
template <typename Change>
Channels renderTone(Change change, int preset = customPreset)
{
    const int count = static_cast<int>(2 * rate);
    Channels in(1, std::vector<float>(count)), out = in;
    for (int t = 0; t < count; ++t) in[0][t] = static_cast<float>(0.5 * std::sin(2 * M_PI * 440.0 * t / rate));
    PluginHost host(lv2test::monoUri, rate);
    host.set("preset", static_cast<float>(preset));
    host.set("sensitivity", 12.0f);
    for (std::size_t offset = 0; offset < in[0].size(); offset += 256) {
        change(host, offset);
        host.run(in, out, offset, static_cast<int>(std::min<std::size_t>(256, in[0].size() - offset)));
    }
    out.push_back(in[0]);  // the input rides along as the last row
    return out;
}

constexpr std::size_t switchAt = 48000 / 256 * 256;

TEST(DeclickPlugin, EngineChangeKeepsTheSignalFlowing)
{
    // The engine brought in starts from silence: it must not be heard before it has settled.
    const Channels run = renderTone([](PluginHost& host, std::size_t offset) {
        if (offset == switchAt) host.set("engine", 1);
    });
    const int latency = engineLatency + fifoBlock;
    double error = 0.0;
    for (std::size_t t = latency + 4096; t < run[0].size(); ++t)
        error = std::max(error, std::fabs(double(run[0][t]) - run[1][t - latency]));
    EXPECT_LT(error, 0.05);  // the engines' own repairs of a tone stay far below its 0.5
}

TEST(DeclickPlugin, PresetChangeToMorePassesFadesWithoutAJump)
{
    // One pass to the default's two: the audio moves by one engine latency, faded over 20 ms.
    const int gentle = 1;
    const Channels run = renderTone(
        [](PluginHost& host, std::size_t offset) {
            if (offset == switchAt) host.set("preset", 0.0f);
        },
        gentle);
    // No step beyond what either preset makes of the tone plus the fade's (20 ms
    // between two copies of the tone 1926 samples apart); a hard switch would step by
    // up to twice the amplitude.
    const std::size_t from = engineLatency + fifoBlock;
    const auto steady = [&](int preset) {
        const Channels alone = renderTone([](PluginHost&, std::size_t) {}, preset);
        return largestStep(alone[0], from, alone[0].size());
    };
    const double presetStep = std::max(steady(gentle), steady(0));
    EXPECT_LT(largestStep(run[0], from, run[0].size()), presetStep + 1.5 * 1.0 / (0.020 * rate));
    double error = 0.0;
    for (std::size_t t = run[0].size() - 4800; t < run[0].size(); ++t)
        error = std::max(error, std::fabs(double(run[0][t]) - run[1][t - defaultLatency]));
    EXPECT_LT(error, 0.05);
}

TEST(DeclickPlugin, ListenChangeFadesWithoutAJump)
{
    const Channels steady = renderTone([](PluginHost&, std::size_t) {});
    const Channels changed = renderTone([](PluginHost& host, std::size_t offset) {
        if (offset == switchAt) host.set("listen", 1);
    });
    // What the change adds is the delayed input faded out: no step beyond the tone's own
    // plus the fade's (half scale over 20 ms); a hard switch would step by up to 0.5.
    std::vector<float> added(steady[0].size());
    for (std::size_t t = 0; t < added.size(); ++t) added[t] = changed[0][t] - steady[0][t];
    EXPECT_TRUE(std::all_of(added.begin(), added.begin() + switchAt, [](float v) { return v == 0.0f; }));
    const double toneStep = largestStep(steady[1], 0, steady[1].size());
    EXPECT_LT(largestStep(added, 0, added.size()), toneStep + 1.5 * 0.5 / (0.020 * rate));
    // And the difference is heard at the end: near silence for a clean tone.
    double tail = 0.0;
    for (std::size_t t = added.size() - 4800; t < added.size(); ++t) tail = std::max(tail, std::fabs(double(changed[0][t])));
    EXPECT_LT(tail, 0.05);
}

}  // namespace

// A control holding no number reads as its default, as an unconnected one does.
TEST(DeclickPlugin, ControlsHoldingNoNumberReadAsTheirDefaults)
{
    const Channels in = clickedMusic(1);
    for (const float floorMode : {0.0f, 1.0f}) {  // the floor relative in dB, or absolute
        const auto custom = [floorMode](PluginHost& host) {
            host.set("preset", static_cast<float>(customPreset));
            host.set("floor_mode", floorMode);
        };
        PluginHost reference(lv2test::monoUri, rate);
        custom(reference);
        std::size_t allocations = 0;
        const Channels expected = lv2test::render(reference, in, fixedBlocks(256), allocations);
        for (const float noNumber : {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()})
            for (const char* symbol : {"sensitivity", "floor", "floor_absolute"}) {
                SCOPED_TRACE(std::string(symbol) + " in floor mode " + std::to_string(floorMode));
                PluginHost host(lv2test::monoUri, rate);
                custom(host);
                host.set(symbol, noNumber);
                EXPECT_EQ(lv2test::render(host, in, fixedBlocks(256), allocations), expected);
            }
    }
}
