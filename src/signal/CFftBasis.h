// Size-dependent state shared by the transform objects: the transform length, its
// log2 and a scratch buffer of 2 * size elements (room for size complex points).
//
// Real spectra of N = size samples come in three in-place layouts of N elements:
//   LayoutNyquistLast   (1): R0, R1, I1, ..., R(N/2-1), I(N/2-1), R(N/2)
//   LayoutNyquistSecond (2): R0, R(N/2), R1, I1, ..., R(N/2-1), I(N/2-1)  (the kernels')
//   LayoutRealsFirst    (3): R0, R1, ..., R(N/2), I(N/2-1), ..., I1
//
// The constructor allocates; nothing else does. reorderSpectrum uses scratch for
// the conversions to and from layout 3, so an object serves one thread at a time.
// scratch carries nothing from one call to the next. T is float or double.
#pragma once

#include <memory>

namespace standardLib {

inline constexpr unsigned int LayoutNyquistLast = 1;
inline constexpr unsigned int LayoutNyquistSecond = 2;
inline constexpr unsigned int LayoutRealsFirst = 3;

template <typename T>
class CFftBasis {
public:
    // log2Size = (int)(log(size) / log(2) + 0.5), 0 for size 0.
    explicit CFftBasis(int size);
    virtual ~CFftBasis();

    CFftBasis(const CFftBasis&) = delete;
    CFftBasis& operator=(const CFftBasis&) = delete;

    // Converts data (size elements) in place from layout `from` to layout `to`.
    // Does nothing when they are equal or either is not 1, 2 or 3.
    void reorderSpectrum(T* data, unsigned int from, unsigned int to);

    // out[2k] = re[k], out[2k + 1] = im[k] for k < count.
    static void interleave(const T* re, const T* im, T* out, int count);
    // re[k] = in[2k], im[k] = in[2k + 1] for k < count.
    static void deinterleave(const T* in, T* re, T* im, int count);

    int getLog2Size() const { return log2Size; }
    int getSize() const { return size; }

protected:
    int log2Size;
    int size;
    std::unique_ptr<T[]> scratch;  // 2 * size elements, filled before every use

private:
    void gatherLayout3(T* data, unsigned int from);
    void scatterLayout3(T* data, unsigned int to);
};

extern template class CFftBasis<float>;
extern template class CFftBasis<double>;

}  // namespace standardLib
