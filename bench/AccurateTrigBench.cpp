// The worst case of the cosine: the fixed-point path that settles the arguments
// whose fast value lies too close to a rounding boundary, at double and float
// precision, on small and on huge arguments (the longest reduction).
#include "signal/AccurateTrig.h"

#include <benchmark/benchmark.h>

namespace {

using standardLib::trig::Function;

void BM_AccurateCosine(benchmark::State& state, double x, int precision)
{
    for (auto _ : state) benchmark::DoNotOptimize(standardLib::trig::accurateTrig(Function::cosine, x, precision));
}
BENCHMARK_CAPTURE(BM_AccurateCosine, double_small, 0.7, 53)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_AccurateCosine, double_huge, 0x1.fffffffffffffp+1023, 53)->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(BM_AccurateCosine, float_small, 0.7, 24)->Unit(benchmark::kMicrosecond);

}  // namespace
