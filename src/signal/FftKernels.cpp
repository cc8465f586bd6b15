#include "signal/FftKernels.h"

#include "signal/FftKernelPaths.h"
#include "signal/FftScalarPasses.h"
#include "signal/FftVectorPasses.h"

#include <cstddef>

namespace standardLib {
namespace fft {
namespace {

constexpr int complexMinLog2 = 3;
constexpr int complexMaxLog2 = 19;
constexpr int realMinLog2 = 4;
constexpr int realMaxLog2 = 20;

// The complex graph on 2^m points: bit reversal with level 1 (the only scaling),
// the leading pass for the levels that do not fill a radix-8 pass, then radix-8
// passes. The twiddle table was built for tableSize points.
template <typename Passes, typename T, bool Inverse, bool Scaled>
void runGraph(T* data, int m, T scale, const T* U, int tableSize) {
    const int points = powerOfTwo[m];
    Passes::template bitReverse<T, Scaled>(data, m, scale);
    for (int distance = Passes::template leading<T, Inverse>(data, points, m - 1); distance < points;
         distance *= 8)
        Passes::template radix8<T, Inverse>(data, points, distance, U, tableSize);
}

template <typename Passes, typename T>
struct PathKernels {
    static void complexForward(T* data, int log2Size, int rows, const T* U) {
        if (log2Size < complexMinLog2 || log2Size > complexMaxLog2)
            return;
        const int n = powerOfTwo[log2Size];
        for (int row = 0; row < rows; ++row)
            runGraph<Passes, T, false, false>(data + std::ptrdiff_t{2} * n * row, log2Size, T(1), U, n);
    }

    static void complexInverse(T* data, int log2Size, int rows, const T* U) {
        if (log2Size < complexMinLog2 || log2Size > complexMaxLog2)
            return;
        const int n = powerOfTwo[log2Size];
        const T scale = static_cast<T>(1.0 / n);
        for (int row = 0; row < rows; ++row)
            runGraph<Passes, T, true, true>(data + std::ptrdiff_t{2} * n * row, log2Size, scale, U, n);
    }

    // The samples taken in pairs as N/2 complex points; pass 1 halves them, the
    // unpacking separates the two interleaved half-length transforms.
    static void realForward(T* data, int log2Size, int rows, const T* U) {
        if (log2Size < realMinLog2 || log2Size > realMaxLog2)
            return;
        const int n = powerOfTwo[log2Size];
        for (int row = 0; row < rows; ++row) {
            T* samples = data + std::ptrdiff_t{n} * row;
            runGraph<Passes, T, false, true>(samples, log2Size - 1, T(0.5), U, n);
            Passes::template unpack<T>(samples, n, U);
        }
    }

    static void realInverse(T* data, int log2Size, int rows, const T* U) {
        if (log2Size < realMinLog2 || log2Size > realMaxLog2)
            return;
        const int n = powerOfTwo[log2Size];
        const T scale = static_cast<T>(1.0 / n);
        for (int row = 0; row < rows; ++row) {
            T* spectrum = data + std::ptrdiff_t{n} * row;
            Passes::template pack<T>(spectrum, n, U);
            runGraph<Passes, T, true, true>(spectrum, log2Size - 1, scale, U, n);
        }
    }

    static constexpr KernelSet<T> set{&complexForward, &complexInverse, &realForward, &realInverse};
};

bool cpuHasAvx2() {
#if FERROTIP_FFT_HAS_AVX2
    return __builtin_cpu_supports("avx2");
#else
    return false;
#endif
}

template <typename T>
const KernelSet<T>& activeSet() {
    static const KernelSet<T>& set = kernelSet<T>(activeIsa());
    return set;
}

}  // namespace

bool isaAvailable(Isa isa) {
    if (isa == Isa::Avx2)
        return cpuHasAvx2();
    return true;
}

Isa activeIsa() {
    static const Isa isa = isaAvailable(Isa::Avx2) ? Isa::Avx2 : Isa::Scalar;
    return isa;
}

const char* isaName(Isa isa) {
    return isa == Isa::Avx2 ? "avx2" : "scalar";
}

template <typename T>
const KernelSet<T>& kernelSet(Isa isa) {
#if FERROTIP_FFT_HAS_AVX2
    if (isa == Isa::Avx2 && isaAvailable(isa))
        return PathKernels<Avx2Passes, T>::set;
#else
    (void)isa;
#endif
    return PathKernels<ScalarPasses, T>::set;
}

template const KernelSet<float>& kernelSet<float>(Isa);
template const KernelSet<double>& kernelSet<double>(Isa);

}  // namespace fft

template <typename T>
void fftComplexForward(T* data, int log2Size, int rows, const T* cosTable) {
    fft::activeSet<T>().complexForward(data, log2Size, rows, cosTable);
}

template <typename T>
void fftComplexInverse(T* data, int log2Size, int rows, const T* cosTable) {
    fft::activeSet<T>().complexInverse(data, log2Size, rows, cosTable);
}

template <typename T>
void fftRealForward(T* data, int log2Size, int rows, const T* cosTable) {
    fft::activeSet<T>().realForward(data, log2Size, rows, cosTable);
}

template <typename T>
void fftRealInverse(T* data, int log2Size, int rows, const T* cosTable) {
    fft::activeSet<T>().realInverse(data, log2Size, rows, cosTable);
}

template void fftComplexForward<float>(float*, int, int, const float*);
template void fftComplexForward<double>(double*, int, int, const double*);
template void fftComplexInverse<float>(float*, int, int, const float*);
template void fftComplexInverse<double>(double*, int, int, const double*);
template void fftRealForward<float>(float*, int, int, const float*);
template void fftRealForward<double>(double*, int, int, const double*);
template void fftRealInverse<float>(float*, int, int, const float*);
template void fftRealInverse<double>(double*, int, int, const double*);

}  // namespace standardLib
