// Internal: the kernels of the x86 vector paths (FERROTIP_FFT_HAS_X86_PATHS), each
// built in its own file with its own target attribute. Same bits as the scalar
// path. Callers must check fft::isaAvailable for the path first. No allocation.
#pragma once

#include "signal/FftKernelPaths.h"

#if defined(__x86_64__) && (defined(__GNUC__) || defined(__clang__))
#define FERROTIP_FFT_HAS_X86_PATHS 1
#else
#define FERROTIP_FFT_HAS_X86_PATHS 0
#endif

#if FERROTIP_FFT_HAS_X86_PATHS
namespace standardLib::fft {

template <typename T>
const KernelSet<T>& avx2Kernels();

template <typename T>
const KernelSet<T>& avx512Kernels();

}  // namespace standardLib::fft
#endif
