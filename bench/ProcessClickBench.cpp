// Time of one process() call for the click methods on stereo audio, at the
// longest gap each method takes (1 ms and 3 ms).
#include <ferrotip/ferrotip.h>

#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

namespace {

void clickRepair(benchmark::State& state)
{
    const int method = static_cast<int>(state.range(0));
    const int rate = static_cast<int>(state.range(1));
    const int gap = (method == 1 ? 1 : 3) * (rate / 1000);
    const int frames = 4 * rate;
    const int start = 2 * rate;
    std::vector<std::vector<float>> clean(2, std::vector<float>(frames));
    for (int c = 0; c < 2; ++c)
        for (int t = 0; t < frames; ++t)
            clean[c][t] = 0.3f * std::sin(0.013f * t * (c + 1)) + 0.1f * std::sin(0.21f * t);
    auto audio = clean;
    float* channels[] = {audio[0].data(), audio[1].data()};
    for (auto _ : state) {
        state.PauseTiming();
        for (int c = 0; c < 2; ++c)
            for (int i = 0; i < gap; ++i) audio[c][start + i] = 0.9f;
        state.ResumeTiming();
        int32_t left = 0, right = 0;
        benchmark::DoNotOptimize(process(nullptr, channels, 2, rate, start, gap, method, &left, &right));
    }
    state.counters["gap"] = gap;
}

}  // namespace

BENCHMARK(clickRepair)
    ->ArgNames({"method", "rate"})
    ->ArgsProduct({{1, 2}, {44100, 96000}})
    ->Unit(benchmark::kMillisecond);
