// Throughput of the two crackle engines on stereo 44.1 kHz audio: music-like
// partials with about ten clicks a second per channel, streamed in blocks.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "crackle/CrackleTestSignals.h"
#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/AdvancedFftDeCracklerOpt.h"

namespace {

constexpr int channels = 2;
constexpr int seconds = 10;
constexpr int rate = 44100;

const cracklefixture::Channels& clickedMusic()
{
    static const cracklefixture::Channels audio = [] {
        auto x = cracklefixture::musicLike(channels, seconds * rate, 2024);
        std::mt19937 rng(7);
        for (auto& row : x) {
            for (int at = 3000; at + 100 < static_cast<int>(row.size()); at += 2000 + static_cast<int>(rng() % 4000)) {
                const int length = 1 + static_cast<int>(rng() % 40);
                const auto shape = cracklefixture::clickShape(length, 0.3, rng);
                for (int i = 0; i < length; ++i) row[at + i] += shape[i];
            }
        }
        return x;
    }();
    return audio;
}

template <typename Engine>
void engineThroughput(benchmark::State& state)
{
    const int blockSize = static_cast<int>(state.range(0));
    const auto& audio = clickedMusic();
    const int blocks = static_cast<int>(audio[0].size()) / blockSize;
    Engine engine(channels, blockSize);
    std::vector<std::vector<float>> io(channels, std::vector<float>(blockSize));
    std::vector<float*> rows = {io[0].data(), io[1].data()};
    int block = 0;
    for (auto _ : state) {
        for (int c = 0; c < channels; ++c)
            std::copy_n(audio[c].begin() + static_cast<long>(block) * blockSize, blockSize, io[c].begin());
        engine.process(rows.data(), blockSize);
        benchmark::DoNotOptimize(io[0][0]);
        block = (block + 1) % blocks;
    }
    const double frames = static_cast<double>(state.iterations()) * blockSize;
    state.counters["x_realtime"] = benchmark::Counter(frames / rate, benchmark::Counter::kIsRate);
    state.SetItemsProcessed(static_cast<int64_t>(frames) * channels);
}

BENCHMARK_TEMPLATE(engineThroughput, AdvancedFftDeCrackler)->Arg(256)->Arg(1024)->Arg(2048)->Arg(4096);
BENCHMARK_TEMPLATE(engineThroughput, AdvancedFftDeCracklerOpt)->Arg(256)->Arg(1024)->Arg(2048)->Arg(4096);

}  // namespace
