#include "signal/CFftBasis.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace standardLib {
namespace {

int log2OfSize(int size) {
    if (size == 0)
        return 0;
    return static_cast<int>(std::log(static_cast<double>(size)) / std::log(2.0) + 0.5);
}

bool knownLayout(unsigned int layout) {
    return layout >= LayoutNyquistLast && layout <= LayoutRealsFirst;
}

}  // namespace

template <typename T>
CFftBasis<T>::CFftBasis(int size)
    : log2Size(log2OfSize(size)), size(size),
      scratch(std::make_unique_for_overwrite<T[]>(2 * static_cast<std::size_t>(size))) {}

template <typename T>
CFftBasis<T>::~CFftBasis() = default;

template <typename T>
void CFftBasis<T>::reorderSpectrum(T* data, unsigned int from, unsigned int to) {
    if (from == to || !knownLayout(from) || !knownLayout(to))
        return;
    const int n = size;
    if (from == LayoutNyquistSecond && to == LayoutNyquistLast) {
        const T nyquist = data[1];
        for (int i = 2; i < n; ++i)
            data[i - 1] = data[i];
        data[n - 1] = nyquist;
    } else if (from == LayoutNyquistLast && to == LayoutNyquistSecond) {
        const T nyquist = data[n - 1];
        for (int i = n - 2; i >= 1; --i)
            data[i + 1] = data[i];
        data[1] = nyquist;
    } else if (to == LayoutRealsFirst) {
        gatherLayout3(data, from);
    } else {
        scatterLayout3(data, to);
    }
}

// From layout 1 or 2 (a copy in scratch) to layout 3.
template <typename T>
void CFftBasis<T>::gatherLayout3(T* data, unsigned int from) {
    const int n = size;
    const int half = n / 2;
    T* copy = scratch.get();
    std::copy(data, data + n, copy);
    // Bin k (1 <= k < N/2) sits at 2k, 2k + 1 in layout 2 and one place lower in layout 1.
    const int shift = from == LayoutNyquistLast ? 1 : 0;
    data[0] = copy[0];
    data[half] = from == LayoutNyquistLast ? copy[n - 1] : copy[1];
    for (int k = 1; k < half; ++k) {
        data[k] = copy[2 * k - shift];
        data[n - k] = copy[2 * k + 1 - shift];
    }
}

// From layout 3 (a copy in scratch) to layout 1 or 2.
template <typename T>
void CFftBasis<T>::scatterLayout3(T* data, unsigned int to) {
    const int n = size;
    const int half = n / 2;
    T* copy = scratch.get();
    std::copy(data, data + n, copy);
    const int shift = to == LayoutNyquistLast ? 1 : 0;
    data[0] = copy[0];
    data[to == LayoutNyquistLast ? n - 1 : 1] = copy[half];
    for (int k = 1; k < half; ++k) {
        data[2 * k - shift] = copy[k];
        data[2 * k + 1 - shift] = copy[n - k];
    }
}

template <typename T>
void CFftBasis<T>::interleave(const T* re, const T* im, T* out, int count) {
    for (int k = 0; k < count; ++k) {
        out[2 * k] = re[k];
        out[2 * k + 1] = im[k];
    }
}

template <typename T>
void CFftBasis<T>::deinterleave(const T* in, T* re, T* im, int count) {
    for (int k = 0; k < count; ++k) {
        re[k] = in[2 * k];
        im[k] = in[2 * k + 1];
    }
}

template class CFftBasis<float>;
template class CFftBasis<double>;

}  // namespace standardLib
