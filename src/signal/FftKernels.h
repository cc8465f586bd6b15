// In-place power-of-two Fourier transforms on bare arrays, N = 2^log2Size.
//
// Complex kernels: data holds N interleaved points (re, im), 2N elements.
// Real kernels: fftRealForward takes N samples and leaves the packed spectrum
// R0, R(N/2), R1, I1, ..., R(N/2-1), I(N/2-1); fftRealInverse takes that form back.
// Forward kernels use exp(-2 pi i k n / N) and factor 1; inverse kernels exp(+...)
// and factor 1/N, so a forward/inverse pair is the identity.
//
// rows transforms are stored back to back (2N elements apart for complex, N for
// real); rows < 1 leaves data untouched. cosTable is the table built for this N
// (FftTables.h). Supported log2Size: complex 3..19, real 4..20; any other size
// leaves data untouched.
//
// No allocation, no state: the kernels may run in parallel on distinct data. data
// must not overlap cosTable. The instruction set (scalar, AVX2, AVX-512) is chosen once at
// first use from the CPU's features; every path gives the same bits.
#pragma once

namespace standardLib {

template <typename T>
void fftComplexForward(T* data, int log2Size, int rows, const T* cosTable);

template <typename T>
void fftComplexInverse(T* data, int log2Size, int rows, const T* cosTable);

template <typename T>
void fftRealForward(T* data, int log2Size, int rows, const T* cosTable);

template <typename T>
void fftRealInverse(T* data, int log2Size, int rows, const T* cosTable);

}  // namespace standardLib
