// Internal: the transform kernels as one flow graph over the passes of an
// instruction-set path. Every path supplies the same five passes (bit reversal
// with level 1, leading pass, radix-8 pass, real unpacking and packing) with the
// same operations per output, so every path's kernels give the same bits.
// No allocation, no state.
#pragma once

#include "signal/FftKernelPaths.h"
#include "signal/FftTables.h"

#include <cstddef>

namespace standardLib::fft {

inline constexpr int complexMinLog2 = 3;
inline constexpr int complexMaxLog2 = 19;
inline constexpr int realMinLog2 = 4;
inline constexpr int realMaxLog2 = 20;

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

// The four kernels of one path.
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

}  // namespace standardLib::fft
