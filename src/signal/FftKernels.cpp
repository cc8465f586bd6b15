#include "signal/FftKernels.h"

#include "signal/FftGraph.h"
#include "signal/FftKernelPaths.h"
#include "signal/FftScalarPasses.h"
#include "signal/FftVectorPasses.h"

namespace standardLib {
namespace fft {
namespace {

bool cpuSupports(Isa isa) {
#if FERROTIP_FFT_HAS_X86_PATHS
    switch (isa) {
    case Isa::Scalar: return true;
    case Isa::Avx2: return __builtin_cpu_supports("avx2");
    case Isa::Avx512:
        return __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl") &&
               __builtin_cpu_supports("avx512dq");
    }
    return false;
#else
    return isa == Isa::Scalar;
#endif
}

template <typename T>
const KernelSet<T>& activeSet() {
    static const KernelSet<T>& set = kernelSet<T>(activeIsa());
    return set;
}

}  // namespace

bool isaAvailable(Isa isa) {
    static const bool available[] = {cpuSupports(Isa::Scalar), cpuSupports(Isa::Avx2), cpuSupports(Isa::Avx512)};
    return available[static_cast<int>(isa)];
}

Isa activeIsa() {
    static const Isa isa = isaAvailable(Isa::Avx512) ? Isa::Avx512
                           : isaAvailable(Isa::Avx2) ? Isa::Avx2
                                                     : Isa::Scalar;
    return isa;
}

const char* isaName(Isa isa) {
    switch (isa) {
    case Isa::Avx2: return "avx2";
    case Isa::Avx512: return "avx512";
    case Isa::Scalar: break;
    }
    return "scalar";
}

template <typename T>
const KernelSet<T>& kernelSet(Isa isa) {
    if (isaAvailable(isa)) {
#if FERROTIP_FFT_HAS_X86_PATHS
        if (isa == Isa::Avx512)
            return avx512Kernels<T>();
        if (isa == Isa::Avx2)
            return avx2Kernels<T>();
#endif
    }
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
