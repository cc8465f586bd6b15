// Speed of the correlation scan, the hot loop of waveform replacement.
//
// BM_CorrelateLags/<path>: the lag kernel alone, 1000 taps over 20000 lags, on every
// supported path; items/s are multiply-adds per second, so the ratio of two paths'
// items/s is their speed ratio within one run.
// BM_NormCorrelate: the whole float scan on the fastest path (working copy, sliding
// energy and normalisation included), one side of a 4 s context.
// BM_ProcessMethod3: process() method 3 on stereo 44.1 kHz with a 2000-sample gap:
// 4 s of context each side, so ~175,000 lags x 1000 taps per side and channel.
#include <ferrotip/ferrotip.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "waveform/CorrelationScan.h"
#include "waveform/LagKernels.h"

namespace {

constexpr int taps = 1000;

std::vector<float> noise(std::size_t count, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<float> x(count);
    for (float& v : x) v = uniform(generator);
    return x;
}

void BM_CorrelateLags(benchmark::State& state, ScanPath path)
{
    if (!scanPathSupported(path)) {
        state.SkipWithError("path not supported on this CPU");
        return;
    }
    const int lags = 20000;
    const auto ref = noise(taps, 1);
    const auto w = noise(lags + taps, 2);
    std::vector<float> out(lags);
    for (auto _ : state) {
        correlateLags(path, ref.data(), taps, w.data(), out.data(), lags);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t{lags} * taps);
}
BENCHMARK_CAPTURE(BM_CorrelateLags, plain, ScanPath::plain)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CorrelateLags, sse2, ScanPath::sse2)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CorrelateLags, avx2, ScanPath::avx2)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_CorrelateLags, avx512, ScanPath::avx512)->Unit(benchmark::kMillisecond);

void BM_NormCorrelate(benchmark::State& state)
{
    const int windowLen = 175000;
    const auto ref = noise(taps, 3);
    const auto window = noise(windowLen, 4);
    std::vector<float> out(windowLen);
    for (auto _ : state) {
        normCorrelate(ref.data(), taps, window.data(), windowLen, out.data(), windowLen, 0);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * std::int64_t{windowLen} * taps);
    state.SetLabel(scanPathName(fastestScanPath()));
}
BENCHMARK(BM_NormCorrelate)->Unit(benchmark::kMillisecond);

// Tones and noise, so the search has real structure to find.
std::vector<float> music(std::size_t count, unsigned seed)
{
    std::vector<float> x = noise(count, seed);
    for (std::size_t n = 0; n < count; ++n)
        x[n] = 0.05f * x[n] +
               static_cast<float>(0.5 * std::sin(0.031 * n) + 0.3 * std::sin(0.0071 * n));
    return x;
}

void BM_ProcessMethod3(benchmark::State& state)
{
    const int rate = 44100, length = 2000, context = 4000 * 44;
    const std::size_t dataLen = 2 * context + length;
    const std::vector<float> left = music(dataLen, 5), right = music(dataLen, 6);
    std::vector<float> a, b;
    int leftFade = 0, rightFade = 0;
    for (auto _ : state) {
        a = left;
        b = right;
        float* channels[2] = {a.data(), b.data()};
        benchmark::DoNotOptimize(
            process(nullptr, channels, 2, rate, context, length, 3, &leftFade, &rightFade));
    }
    // Both sides of both channels: (start - 1000) + (dataLen - start - length - 1) lags.
    const std::int64_t lags = 2 * (std::int64_t{context - taps} + context - 1);
    state.SetItemsProcessed(state.iterations() * lags * taps);
}
BENCHMARK(BM_ProcessMethod3)->Unit(benchmark::kMillisecond);

}  // namespace
