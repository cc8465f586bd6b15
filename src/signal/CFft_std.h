// Portable transform object of one power-of-two size over the kernels of
// FftKernels.h: real transforms of N = size samples and complex ones of N points.
//
// Scaling: forward factor 1, inverse factor 1/N, in every data form; the one
// exception is realInverseInPlace with LayoutRealsFirst, which is left unnormalised
// (a forward/inverse pair in that layout multiplies by N).
//
// Valid sizes: 16 .. 2^20 for the real operations, 16 .. 2^19 for the complex ones.
// For any other size the table is refused and every transform leaves its outputs
// untouched; a complex transform on a 2^20 object (whose table serves the real ones)
// leaves its data untransformed. Only the constructor allocates. All but the in-place operations go
// through scratch, so in and out may be the same array (and realForward's in may be
// re, realInverse's re may be out); realInverse into an out apart from re and im
// works in out itself. Other partial overlaps are not allowed. One thread at a time
// per object.
#pragma once

#include "signal/CFftBasis.h"

#include <memory>

namespace standardLib::standard {

template <typename T>
class CFft_std : public CFftBasis<T> {
public:
    explicit CFft_std(int size);
    ~CFft_std() override;

    // in: N samples. re, im: N/2 + 1 bins; im[0] and im[N/2] get 0.
    void realForward(const T* in, T* re, T* im);
    // out: N + 2 elements R0, 0, R1, I1, ..., R(N/2), 0.
    void realForwardInterleaved(const T* in, T* out);
    // N samples in, the spectrum in `layout` out (an unknown layout leaves layout 2).
    void realForwardInPlace(T* data, unsigned int layout);
    // re, im: N/2 + 1 bins (im[0] and im[N/2] are not read); out: N samples.
    void realInverse(const T* re, const T* im, T* out);
    // in: N + 2 elements of the interleaved form (elements 1 and N+1 not read).
    void realInverseInterleaved(const T* in, T* out);
    // The spectrum in `layout` in (unknown layouts read as layout 2), N samples out.
    void realInverseInPlace(T* data, unsigned int layout);

    // Complex transforms of N points: in/out 2N interleaved elements; split forms
    // take N real and N imaginary parts.
    void complexForward(const T* in, T* out);
    void complexForwardInPlace(T* data);
    void complexForwardSplit(T* re, T* im);
    void complexForwardSplitTo(const T* reIn, const T* imIn, T* reOut, T* imOut);
    void complexInverse(const T* in, T* out);
    void complexInverseInPlace(T* data);
    void complexInverseSplit(T* re, T* im);
    void complexInverseSplitTo(const T* reIn, const T* imIn, T* reOut, T* imOut);

protected:
    using CFftBasis<T>::log2Size;
    using CFftBasis<T>::size;
    using CFftBasis<T>::scratch;

    std::unique_ptr<T[]> cosTable;  // size / 4 + 1 elements
    bool tableBuilt;                // false when the size was refused

private:
    using Kernel = void (*)(T*, int, int, const T*);
    void complexCopy(Kernel kernel, const T* in, T* out);
    void complexInPlace(Kernel kernel, T* data);
    void complexSplitTo(Kernel kernel, const T* reIn, const T* imIn, T* reOut, T* imOut);
    void realInverseScratch(T* out);
};

extern template class CFft_std<float>;
extern template class CFft_std<double>;

}  // namespace standardLib::standard
