// Internal: the AVX2 passes of the transform kernels, built on x86-64 only
// (FERROTIP_FFT_HAS_AVX2). Same interface and same bits as fft::ScalarPasses; each
// pass groups independent butterflies that share one chain of operations per
// output into vector lanes, never reassociating and never fusing a multiply-add.
// Callers must check fft::isaAvailable(Isa::Avx2) first. No allocation.
#pragma once

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define FERROTIP_FFT_HAS_AVX2 1
#else
#define FERROTIP_FFT_HAS_AVX2 0
#endif

#if FERROTIP_FFT_HAS_AVX2
namespace standardLib::fft {

struct Avx2Passes {
    template <typename T, bool Scaled>
    static void bitReverse(T* data, int m, T scale);
    template <typename T, bool Inverse>
    static int leading(T* data, int points, int levelsAfterFirst);
    template <typename T, bool Inverse>
    static void radix8(T* data, int points, int distance, const T* U, int tableSize);
    template <typename T>
    static void unpack(T* data, int n, const T* U);
    template <typename T>
    static void pack(T* data, int n, const T* U);
};

}  // namespace standardLib::fft
#endif
