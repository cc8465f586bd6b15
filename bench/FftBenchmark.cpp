// Our transform kernels against FFTW with measured plans, float, in one run:
// 2048-point real forward, 512-point real both ways (the crackle engines' frame at
// block 512) and 1024-point complex forward, plus each of our paths
// (scalar, AVX2, AVX-512) and the double kernels. Our kernels work in place, so every
// iteration copies a fixed input to the work buffer and transforms it there. FFTW
// runs both out of place (no copy) and in place with the same copy, the like-for-
// like comparison.
#include "signal/FftKernelPaths.h"
#include "signal/FftKernels.h"
#include "signal/FftTables.h"
#include "signal/FftTestSupport.h"

#include <benchmark/benchmark.h>
#include <fftw3.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <cstdint>
#include <vector>

namespace {

using standardLib::fft::Isa;

constexpr std::uint32_t inputSeed = 2024u;

template <typename T>
struct CacheLineAllocator {
    using value_type = T;
    CacheLineAllocator() = default;
    template <typename U>
    CacheLineAllocator(const CacheLineAllocator<U>&) {}
    T* allocate(std::size_t count) {
        return static_cast<T*>(::operator new(count * sizeof(T), std::align_val_t{64}));
    }
    void deallocate(T* p, std::size_t) { ::operator delete(p, std::align_val_t{64}); }
    bool operator==(const CacheLineAllocator&) const { return true; }
};

template <typename T>
std::vector<T> noise(std::size_t count) {
    return ferrotip_test::randomValues<T>(count, inputSeed);
}

// Ours on one path; complex: 2N elements, real: N.
template <typename T>
void runOurs(benchmark::State& state, Isa isa, bool real, int log2Size, bool inverse = false) {
    if (!standardLib::fft::isaAvailable(isa)) {
        state.SkipWithError("path not available on this CPU");
        return;
    }
    const int n = 1 << log2Size;
    const std::size_t count = real ? n : 2 * static_cast<std::size_t>(n);
    const std::vector<T> input = noise<T>(count);
    const std::vector<T> cosTable = ferrotip_test::realTable<T>(n);
    // Cache-line aligned, as FFTW's own allocation is.
    std::vector<T, CacheLineAllocator<T>> work(count);
    const auto& kernels = standardLib::fft::kernelSet<T>(isa);
    const auto kernel = real ? (inverse ? kernels.realInverse : kernels.realForward)
                             : (inverse ? kernels.complexInverse : kernels.complexForward);
    for (auto _ : state) {
        std::copy(input.begin(), input.end(), work.begin());
        kernel(work.data(), log2Size, 1, cosTable.data());
        benchmark::DoNotOptimize(work.data());
        benchmark::ClobberMemory();
    }
    state.SetLabel(standardLib::fft::isaName(isa));
}

void fftwRealForward2048(benchmark::State& state) {
    const int n = 2048;
    float* in = fftwf_alloc_real(n);
    fftwf_complex* out = fftwf_alloc_complex(n / 2 + 1);
    fftwf_plan plan = fftwf_plan_dft_r2c_1d(n, in, out, FFTW_MEASURE);
    const std::vector<float> input = noise<float>(n);
    std::copy(input.begin(), input.end(), in);
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(plan);
    fftwf_free(in);
    fftwf_free(out);
}

// A real transform in place with the copy, as ours: n points, either way.
void fftwRealInPlaceWithCopy(benchmark::State& state, int n, bool inverse) {
    float* work = fftwf_alloc_real(n + 2);
    fftwf_complex* bins = reinterpret_cast<fftwf_complex*>(work);
    fftwf_plan plan = inverse ? fftwf_plan_dft_c2r_1d(n, bins, work, FFTW_MEASURE)
                              : fftwf_plan_dft_r2c_1d(n, work, bins, FFTW_MEASURE);
    const std::vector<float> input = noise<float>(n + 2);
    for (auto _ : state) {
        std::copy(input.begin(), input.end(), work);
        fftwf_execute(plan);
        benchmark::DoNotOptimize(work);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(plan);
    fftwf_free(work);
}

void fftwComplexForward1024(benchmark::State& state) {
    const int n = 1024;
    fftwf_complex* in = fftwf_alloc_complex(n);
    fftwf_complex* out = fftwf_alloc_complex(n);
    fftwf_plan plan = fftwf_plan_dft_1d(n, in, out, FFTW_FORWARD, FFTW_MEASURE);
    const std::vector<float> input = noise<float>(2 * n);
    std::memcpy(in, input.data(), input.size() * sizeof(float));
    for (auto _ : state) {
        fftwf_execute(plan);
        benchmark::DoNotOptimize(out);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(plan);
    fftwf_free(in);
    fftwf_free(out);
}

void fftwComplexForward1024InPlaceWithCopy(benchmark::State& state) {
    const int n = 1024;
    fftwf_complex* work = fftwf_alloc_complex(n);
    fftwf_plan plan = fftwf_plan_dft_1d(n, work, work, FFTW_FORWARD, FFTW_MEASURE);
    const std::vector<float> input = noise<float>(2 * n);
    for (auto _ : state) {
        std::memcpy(work, input.data(), input.size() * sizeof(float));
        fftwf_execute(plan);
        benchmark::DoNotOptimize(work);
        benchmark::ClobberMemory();
    }
    fftwf_destroy_plan(plan);
    fftwf_free(work);
}

// Ours on one given path, float or double.
void path(benchmark::State& state, Isa isa, bool real, int log2Size) {
    runOurs<float>(state, isa, real, log2Size);
}
void pathDouble(benchmark::State& state, Isa isa, bool real, int log2Size) {
    runOurs<double>(state, isa, real, log2Size);
}

// Ours on the path the library picks at run time.
void oursRealForward2048(benchmark::State& state) {
    runOurs<float>(state, standardLib::fft::activeIsa(), true, 11);
}
void ours512(benchmark::State& state, bool inverse) {
    runOurs<float>(state, standardLib::fft::activeIsa(), true, 9, inverse);
}
void oursComplexForward1024(benchmark::State& state) {
    runOurs<float>(state, standardLib::fft::activeIsa(), false, 10);
}

BENCHMARK(fftwRealForward2048);
BENCHMARK_CAPTURE(fftwRealInPlaceWithCopy, forward2048, 2048, false);
BENCHMARK(oursRealForward2048);
BENCHMARK_CAPTURE(path, scalarRealForward2048, Isa::Scalar, true, 11);
BENCHMARK_CAPTURE(path, avx2RealForward2048, Isa::Avx2, true, 11);
BENCHMARK_CAPTURE(path, avx512RealForward2048, Isa::Avx512, true, 11);
// The crackle engines' frame at block 512.
BENCHMARK_CAPTURE(fftwRealInPlaceWithCopy, forward512, 512, false);
BENCHMARK_CAPTURE(fftwRealInPlaceWithCopy, inverse512, 512, true);
BENCHMARK_CAPTURE(ours512, realForward, false);
BENCHMARK_CAPTURE(ours512, realInverse, true);
BENCHMARK(fftwComplexForward1024);
BENCHMARK(fftwComplexForward1024InPlaceWithCopy);
BENCHMARK(oursComplexForward1024);
BENCHMARK_CAPTURE(path, scalarComplexForward1024, Isa::Scalar, false, 10);
BENCHMARK_CAPTURE(path, avx2ComplexForward1024, Isa::Avx2, false, 10);
BENCHMARK_CAPTURE(path, avx512ComplexForward1024, Isa::Avx512, false, 10);
BENCHMARK_CAPTURE(pathDouble, scalarRealForward2048Double, Isa::Scalar, true, 11);
BENCHMARK_CAPTURE(pathDouble, avx2RealForward2048Double, Isa::Avx2, true, 11);
BENCHMARK_CAPTURE(pathDouble, avx512RealForward2048Double, Isa::Avx512, true, 11);

}  // namespace
