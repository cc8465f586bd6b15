// Throughput of MultichannelDeclicker at each preset on stereo 44.1 kHz music-like
// audio, one engine chain per channel, in chunks of 16384 frames as the command
// streams them; Arg(0) is the preset's index, Arg(1) the number of jobs.
#include <benchmark/benchmark.h>

#include <vector>

#include "crackle/CrackleTestSignals.h"
#include "declick/MultichannelDeclicker.h"

namespace {

constexpr int channels = 2;
constexpr int rate = 44100;
constexpr int chunk = 16384;

void presetThroughput(benchmark::State& state)
{
    const DeclickPreset& preset = declickPresets()[static_cast<std::size_t>(state.range(0))];
    const int jobs = static_cast<int>(state.range(1));
    static const cracklefixture::Channels audio = cracklefixture::musicLike(channels, 8 * chunk, 2024);
    const std::vector<double> meanSquares(channels, 0.02);
    MultichannelDeclicker declicker(preset.settings, meanSquares, false, DeclickListen::repaired, chunk, jobs);
    cracklefixture::Channels io(channels, std::vector<float>(chunk));
    std::vector<float*> rows = {io[0].data(), io[1].data()};
    int at = 0;
    for (auto _ : state) {
        for (int c = 0; c < channels; ++c) std::copy_n(audio[c].begin() + at, chunk, io[c].begin());
        declicker.process(rows.data(), chunk);
        benchmark::DoNotOptimize(io[0][0]);
        at = (at + chunk) % static_cast<int>(audio[0].size());
    }
    state.SetLabel(std::string(preset.name));
    const double frames = static_cast<double>(state.iterations()) * chunk;
    state.counters["x_realtime"] = benchmark::Counter(frames / rate, benchmark::Counter::kIsRate);
}

BENCHMARK(presetThroughput)->ArgsProduct({{0, 1, 2, 3}, {1, 2}})->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
