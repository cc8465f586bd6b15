// The impulse search's kernels on each supported instruction-set path, at the sizes
// the search uses: the autocorrelation of its window (1024 samples, order 16) and
// the prediction errors over its computed span (848 outputs, order 16).
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "ar/AutocorrelationPaths.h"
#include "declick/ImpulseKernels.h"

namespace {

using kernel_paths::Path;

constexpr int window = 1024;
constexpr int order = 16;
constexpr int computed = 848;

std::vector<double> noise(int count)
{
    std::mt19937 generator(2024);
    std::normal_distribution<double> gaussian(0.0, 1.0);
    std::vector<double> x(count);
    for (double& v : x) v = gaussian(generator);
    return x;
}

Path benchPath(benchmark::State& state)
{
    const auto path = static_cast<Path>(state.range(0));
    state.SetLabel(kernel_paths::pathName(path));
    if (!kernel_paths::pathSupported(path)) state.SkipWithError("path not supported on this CPU");
    return path;
}

void windowAutocorrelation(benchmark::State& state)
{
    const Path path = benchPath(state);
    const auto samples = noise(window);
    std::vector<double> lags(order + 1);
    for (auto _ : state) {
        autocorrelate(path, samples.data(), window, lags.data(), order);
        benchmark::DoNotOptimize(lags.data());
    }
}

void forwardPredictionErrors(benchmark::State& state)
{
    const Path path = benchPath(state);
    const auto samples = noise(computed + order);
    const auto model = noise(order + 1);
    std::vector<double> errors(computed);
    for (auto _ : state) {
        impulse_kernels::predictionErrors(path, samples.data() + order, model.data(), order, -1, errors.data(),
                                          computed);
        benchmark::DoNotOptimize(errors.data());
    }
}

BENCHMARK(windowAutocorrelation)->DenseRange(0, 2);
BENCHMARK(forwardPredictionErrors)->DenseRange(0, 2);

}  // namespace
