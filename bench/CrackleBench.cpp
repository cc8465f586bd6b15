// Throughput of the two crackle engines on stereo 44.1 kHz audio: music-like
// partials with about ten clicks a second per channel, streamed in blocks; and of
// the AR repair alone; and of the spectral split's kernels.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>
#include <vector>

#include "crackle/CrackleTestSignals.h"
#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/AdvancedFftDeCracklerOpt.h"
#include "crackle/ArCrackleRepair.h"
#include "crackle/SpectralSplit.h"

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

// The AR repair alone, block 512, two passes, on the same music with a 3-sample span
// every 4096 samples per channel (most blocks have none). Arg 1: blocks without spans
// wait to estimate (the default); 0: every block estimates at once.
void repairThroughput(benchmark::State& state)
{
    constexpr int blockSize = 512;
    const auto& audio = clickedMusic();
    const int blocks = static_cast<int>(audio[0].size()) / blockSize;
    ArCrackleRepair repair(channels, 1, blockSize, 2);
    repair.setDeferredLimit(state.range(0) != 0 ? ArCrackleRepair::deferredCapacity : 0);
    std::vector<std::vector<float>> io(channels, std::vector<float>(blockSize));
    std::vector<std::vector<int>> marks(channels, std::vector<int>(blockSize));
    std::vector<float*> rows = {io[0].data(), io[1].data()};
    std::vector<int*> markRows = {marks[0].data(), marks[1].data()};
    int block = 0;
    for (auto _ : state) {
        for (int c = 0; c < channels; ++c) {
            const long start = static_cast<long>(block) * blockSize;
            std::copy_n(audio[c].begin() + start, blockSize, io[c].begin());
            for (int i = 0; i < blockSize; ++i) marks[c][i] = (start + i + 700 * c) % 4096 < 3 ? 1 : 0;
        }
        repair.process(rows.data(), rows.data(), markRows.data());
        benchmark::DoNotOptimize(io[0][0]);
        block = (block + 1) % blocks;
    }
    const double frames = static_cast<double>(state.iterations()) * blockSize;
    state.counters["x_realtime"] = benchmark::Counter(frames / rate, benchmark::Counter::kIsRate);
}

BENCHMARK(repairThroughput)->Arg(0)->Arg(1);

// One split of the 257 bins of a 512-point frame. Arg 0: scalar, 1: SSE2, 2: AVX2.
void splitKernel(benchmark::State& state)
{
    constexpr int bins = 257;
    const spectralsplit::Kernel kernels[] = {spectralsplit::splitScalar, spectralsplit::splitSse2,
                                             spectralsplit::splitAvx2};
    const char* names[] = {"scalar", "sse2", "avx2"};
    const spectralsplit::Kernel kernel = kernels[state.range(0)];
    state.SetLabel(names[state.range(0)]);
    if (kernel == nullptr) {
        state.SkipWithError("kernel not available on this CPU or build");
        return;
    }
    std::mt19937 rng(11);
    std::normal_distribution<float> gaussian(0.0f, 1e-3f);
    std::vector<float> re(bins), im(bins), tonalRe(bins), tonalIm(bins), residualRe(bins), residualIm(bins);
    for (int k = 0; k < bins; ++k) {
        re[k] = gaussian(rng);
        im[k] = gaussian(rng);
    }
    for (auto _ : state) {
        std::copy(re.begin(), re.end(), tonalRe.begin());
        std::copy(im.begin(), im.end(), tonalIm.begin());
        kernel(tonalRe.data(), tonalIm.data(), residualRe.data(), residualIm.data(), bins, 1e-7f);
        benchmark::DoNotOptimize(residualRe.data());
    }
}

BENCHMARK(splitKernel)->DenseRange(0, 2);

}  // namespace
