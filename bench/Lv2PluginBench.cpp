// CPU load of the declick plug-ins as a host sees it: the plug-in loaded through
// lilv, run on music-like audio with clicks at 48 kHz in host blocks of 256. The
// x_realtime_per_channel counter is seconds of audio handled per second of run(),
// per channel; its inverse is the share of one core each channel takes.
#include <benchmark/benchmark.h>

#include "lv2/ClickedMusic.h"
#include "lv2/PluginHost.h"

namespace {

constexpr double rate = 48000.0;
constexpr int hostBlock = 256;

const lv2test::Channels& clickedMusic()
{
    static const lv2test::Channels audio = lv2test::clickedMusic(2, static_cast<int>(10 * rate), 2024);
    return audio;
}

// range(0): channels (1 mono, 2 stereo); range(1): preset (0 the default, 4 Custom);
// range(2): Custom's engine (0 standard, 1 prediction).
void pluginLoad(benchmark::State& state)
{
    const int channels = static_cast<int>(state.range(0));
    lv2test::PluginHost host(channels == 1 ? lv2test::monoUri : lv2test::stereoUri, rate);
    host.set("preset", static_cast<float>(state.range(1)));
    host.set("engine", static_cast<float>(state.range(2)));
    const auto& music = clickedMusic();
    const lv2test::Channels in(music.begin(), music.begin() + channels);
    lv2test::Channels out = in;
    const std::size_t blocks = in[0].size() / hostBlock;
    std::size_t block = 0;
    for (auto _ : state) {
        host.run(in, out, block * hostBlock, hostBlock);
        block = (block + 1) % blocks;
    }
    const double seconds = static_cast<double>(state.iterations()) * hostBlock / rate;
    state.counters["x_realtime_per_channel"] = benchmark::Counter(seconds * channels, benchmark::Counter::kIsRate);
}

BENCHMARK(pluginLoad)
    ->ArgNames({"channels", "preset", "engine"})
    ->Args({1, 0, 0})
    ->Args({2, 0, 0})
    ->Args({1, 4, 0})
    ->Args({1, 4, 1})
    ->Args({2, 4, 0})
    ->Args({2, 4, 1});

}  // namespace
