// Internal: the instruction-set paths of the transform kernels. Every path runs
// the same flow graph with the same operations per output, so all give the same
// bits; the vector paths only group independent butterflies of one pass.
//
// The public kernels (FftKernels.h) use activeIsa(), chosen once from the CPU's
// features. Tests and benchmarks reach each path through kernelSet(). The scalar
// path is always built and always available. Thread-safe; no allocation.
#pragma once

namespace standardLib::fft {

enum class Isa { Scalar, Avx2, Avx512 };

// Built into this library and supported by the running CPU.
bool isaAvailable(Isa isa);

// The best available path: AVX-512 (F, VL, DQ), else AVX2, else scalar.
Isa activeIsa();

const char* isaName(Isa isa);

template <typename T>
struct KernelSet {
    using Kernel = void (*)(T* data, int log2Size, int rows, const T* cosTable);
    Kernel complexForward;
    Kernel complexInverse;
    Kernel realForward;
    Kernel realInverse;
};

// The kernels of one path; an unavailable path yields the scalar kernels.
template <typename T>
const KernelSet<T>& kernelSet(Isa isa);

}  // namespace standardLib::fft
