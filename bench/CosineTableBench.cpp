// Cost of the cosine where the library spends it: building the real transforms'
// cosine tables (2^12 and 2^20 points, double and float) and the frame window's
// arguments one call at a time, plus the sine on random arguments of the first
// turns. Builds against any version of the cosine, so a before/after comparison
// runs the same file.
#include "signal/FftTables.h"
#include "signal/PortableCosine.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

namespace {

template <typename T>
void BM_RealCosTable(benchmark::State& state)
{
    const int size = static_cast<int>(state.range(0));
    std::vector<T> table(static_cast<std::size_t>(size / 4 + 1));
    int log2Size = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(standardLib::buildRealCosTable(&log2Size, size, table.data()));
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(table.size()));
}
BENCHMARK(BM_RealCosTable<double>)->Arg(1 << 12)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RealCosTable<float>)->Arg(1 << 12)->Arg(1 << 20)->Unit(benchmark::kMicrosecond);

// One call per item over a full turn of 2^16 window arguments.
template <typename T>
void BM_CosineOverATurn(benchmark::State& state)
{
    constexpr int points = 1 << 16;
    std::vector<T> arguments(points);
    for (int i = 0; i < points; ++i)
        arguments[i] = static_cast<T>(static_cast<double>(i) * 6.283185307179586 / points);
    for (auto _ : state) {
        for (T x : arguments) benchmark::DoNotOptimize(standardLib::cosine(x));
    }
    state.SetItemsProcessed(state.iterations() * points);
}
BENCHMARK(BM_CosineOverATurn<double>)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_CosineOverATurn<float>)->Unit(benchmark::kMicrosecond);

void BM_SineOfLargeArguments(benchmark::State& state)
{
    constexpr int points = 1 << 14;
    std::vector<double> arguments(points);
    std::uint64_t seed = 0x9e3779b97f4a7c15ull;
    for (double& x : arguments) {
        seed = seed * 6364136223846793005ull + 1442695040888963407ull;
        x = static_cast<double>(seed >> 11) * 0x1p-20;  // up to 2^33: the large-argument reduction
    }
    for (auto _ : state) {
        for (double x : arguments) benchmark::DoNotOptimize(standardLib::sine(x));
    }
    state.SetItemsProcessed(state.iterations() * points);
}
BENCHMARK(BM_SineOfLargeArguments)->Unit(benchmark::kMicrosecond);

}  // namespace
