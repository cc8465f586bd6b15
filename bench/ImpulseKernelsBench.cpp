// The impulse search's kernels on each supported instruction-set path, at the sizes
// the search uses: the autocorrelation of its window (1024 samples, order 16) and
// the prediction errors over its computed span (848 outputs, order 16).
#include <benchmark/benchmark.h>

#include <vector>

#include "ar/AutocorrelationPaths.h"
#include "declick/ImpulseKernels.h"
#include "KernelPathBench.h"
#include "support/BitExact.h"

namespace {

using kernel_paths::Path;

constexpr int window = 1024;
constexpr int order = 16;
constexpr int computed = 848;

void windowAutocorrelation(benchmark::State& state)
{
    const Path path = benchPath(state);
    const auto samples = testsupport::gaussianNoise(window, 2024);
    std::vector<double> lags(order + 1);
    for (auto _ : state) {
        autocorrelate(path, samples.data(), window, lags.data(), order);
        benchmark::DoNotOptimize(lags.data());
    }
}

void forwardPredictionErrors(benchmark::State& state)
{
    const Path path = benchPath(state);
    const auto samples = testsupport::gaussianNoise(computed + order, 2024);
    const auto model = testsupport::gaussianNoise(order + 1, 2024);
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
