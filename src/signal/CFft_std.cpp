#include "signal/CFft_std.h"

#include "signal/FftKernels.h"
#include "signal/FftTables.h"

#include <algorithm>
#include <cstddef>

namespace standardLib::standard {

// The table is zeroed first so that a refused size leaves defined values behind.
template <typename T>
CFft_std<T>::CFft_std(int size)
    : CFftBasis<T>(size), cosTable(std::make_unique<T[]>(static_cast<std::size_t>(size / 4 + 1))),
      tableBuilt(buildRealCosTable<T>(&this->log2Size, size, cosTable.get()) == 0) {}

template <typename T>
CFft_std<T>::~CFft_std() = default;

template <typename T>
void CFft_std<T>::realForward(const T* in, T* re, T* im) {
    if (!tableBuilt)
        return;
    T* work = scratch.get();
    std::copy(in, in + size, work);
    fftRealForward(work, log2Size, 1, cosTable.get());
    const int half = size / 2;
    re[0] = work[0];
    im[0] = T(0);
    for (int k = 1; k < half; ++k) {
        re[k] = work[2 * k];
        im[k] = work[2 * k + 1];
    }
    re[half] = work[1];
    im[half] = T(0);
}

template <typename T>
void CFft_std<T>::realForwardInterleaved(const T* in, T* out) {
    if (!tableBuilt)
        return;
    T* work = scratch.get();
    std::copy(in, in + size, work);
    fftRealForward(work, log2Size, 1, cosTable.get());
    out[0] = work[0];
    out[1] = T(0);
    std::copy(work + 2, work + size, out + 2);
    out[size] = work[1];
    out[size + 1] = T(0);
}

template <typename T>
void CFft_std<T>::realForwardInPlace(T* data, unsigned int layout) {
    if (!tableBuilt)
        return;
    fftRealForward(data, log2Size, 1, cosTable.get());
    this->reorderSpectrum(data, LayoutNyquistSecond, layout);
}

template <typename T>
void CFft_std<T>::realInverse(const T* re, const T* im, T* out) {
    if (!tableBuilt)
        return;
    // An output apart from both inputs takes the packed spectrum and is transformed
    // in place: the same kernel on the same values, without a pass through scratch.
    const bool apart = out != re && out != im;
    T* work = apart ? out : scratch.get();
    const int half = size / 2;
    work[0] = re[0];
    work[1] = re[half];
    for (int k = 1; k < half; ++k) {
        work[2 * k] = re[k];
        work[2 * k + 1] = im[k];
    }
    if (apart)
        fftRealInverse(out, log2Size, 1, cosTable.get());
    else
        realInverseScratch(out);
}

template <typename T>
void CFft_std<T>::realInverseInterleaved(const T* in, T* out) {
    if (!tableBuilt)
        return;
    T* work = scratch.get();
    std::copy(in, in + size, work);
    work[1] = in[size];
    realInverseScratch(out);
}

// The layout-2 spectrum in scratch to N samples in out.
template <typename T>
void CFft_std<T>::realInverseScratch(T* out) {
    T* work = scratch.get();
    fftRealInverse(work, log2Size, 1, cosTable.get());
    std::copy(work, work + size, out);
}

template <typename T>
void CFft_std<T>::realInverseInPlace(T* data, unsigned int layout) {
    if (!tableBuilt)
        return;
    this->reorderSpectrum(data, layout, LayoutNyquistSecond);
    fftRealInverse(data, log2Size, 1, cosTable.get());
    if (layout == LayoutRealsFirst) {
        for (int i = 0; i < size; ++i)
            data[i] *= size;
    }
}

template <typename T>
void CFft_std<T>::complexCopy(Kernel kernel, const T* in, T* out) {
    if (!tableBuilt)
        return;
    T* work = scratch.get();
    const std::ptrdiff_t count = std::ptrdiff_t{2} * size;
    std::copy(in, in + count, work);
    kernel(work, log2Size, 1, cosTable.get());
    std::copy(work, work + count, out);
}

template <typename T>
void CFft_std<T>::complexInPlace(Kernel kernel, T* data) {
    if (!tableBuilt)
        return;
    kernel(data, log2Size, 1, cosTable.get());
}

template <typename T>
void CFft_std<T>::complexSplitTo(Kernel kernel, const T* reIn, const T* imIn, T* reOut, T* imOut) {
    if (!tableBuilt)
        return;
    T* work = scratch.get();
    this->interleave(reIn, imIn, work, size);
    kernel(work, log2Size, 1, cosTable.get());
    this->deinterleave(work, reOut, imOut, size);
}

template <typename T>
void CFft_std<T>::complexForward(const T* in, T* out) {
    complexCopy(&fftComplexForward<T>, in, out);
}

template <typename T>
void CFft_std<T>::complexForwardInPlace(T* data) {
    complexInPlace(&fftComplexForward<T>, data);
}

template <typename T>
void CFft_std<T>::complexForwardSplit(T* re, T* im) {
    complexSplitTo(&fftComplexForward<T>, re, im, re, im);
}

template <typename T>
void CFft_std<T>::complexForwardSplitTo(const T* reIn, const T* imIn, T* reOut, T* imOut) {
    complexSplitTo(&fftComplexForward<T>, reIn, imIn, reOut, imOut);
}

template <typename T>
void CFft_std<T>::complexInverse(const T* in, T* out) {
    complexCopy(&fftComplexInverse<T>, in, out);
}

template <typename T>
void CFft_std<T>::complexInverseInPlace(T* data) {
    complexInPlace(&fftComplexInverse<T>, data);
}

template <typename T>
void CFft_std<T>::complexInverseSplit(T* re, T* im) {
    complexSplitTo(&fftComplexInverse<T>, re, im, re, im);
}

template <typename T>
void CFft_std<T>::complexInverseSplitTo(const T* reIn, const T* imIn, T* reOut, T* imOut) {
    complexSplitTo(&fftComplexInverse<T>, reIn, imIn, reOut, imOut);
}

template class CFft_std<float>;
template class CFft_std<double>;

}  // namespace standardLib::standard
