#include "signal/Correlation_std.h"

#include "signal/FftKernels.h"
#include "signal/UnfusedProducts.h"

#include <algorithm>
#include <cstddef>

namespace standardLib::standard {

template <typename T>
Correlation_std<T>::Correlation_std(int size)
    : CFft_std<T>(size), secondSpectrum(new T[static_cast<std::size_t>(size)]())
{
}

template <typename T>
Correlation_std<T>::~Correlation_std() = default;

template <typename T>
void Correlation_std<T>::load(const T* source, int length, T* target) const
{
    const int count = std::clamp(length, 0, this->size);
    std::copy(source, source + count, target);
    std::fill(target + count, target + this->size, T(0));
}

// A refused size leaves the work buffers as they are, like the transform object.
template <typename T>
void Correlation_std<T>::forward(T* data) const
{
    if (this->tableBuilt)
        fftRealForward(data, this->log2Size, 1, this->cosTable.get());
}

template <typename T>
void Correlation_std<T>::inverse(T* data) const
{
    if (this->tableBuilt)
        fftRealInverse(data, this->log2Size, 1, this->cosTable.get());
}

template <typename T>
void Correlation_std<T>::autocorrelate(const T* x, int length, T* result, int lagCount)
{
    T* work = this->scratch.get();
    load(x, length, work);
    forward(work);
    // Power spectrum in the packed layout: R0 and R(N/2) are squared on their own.
    work[0] = work[0] * work[0];
    work[1] = work[1] * work[1];
    for (int k = 2; k < this->size; k += 2) {
        work[k] = work[k] * work[k] + work[k + 1] * work[k + 1];
        work[k + 1] = T(0);
    }
    inverse(work);
    if (lagCount != 0)
        std::copy(work, work + lagCount, result);
}

template <typename T>
void Correlation_std<T>::crossCorrelate(const T* x, int lengthX, const T* y, int lengthY,
                                        T* result, int minLag, int maxLag)
{
    T* spectrumX = this->scratch.get();
    T* spectrumY = secondSpectrum.get();
    load(x, lengthX, spectrumX);
    load(y, lengthY, spectrumY);
    forward(spectrumX);
    forward(spectrumY);

    // conj(X) * Y, in place in X; the imaginary part as an addition so that no
    // target fuses the two lanes (see UnfusedProducts.h).
    spectrumX[0] = spectrumX[0] * spectrumY[0];
    spectrumX[1] = spectrumX[1] * spectrumY[1];
    for (int k = 2; k < this->size; k += 2) {
        const T xRe = spectrumX[k], xIm = spectrumX[k + 1];
        const T yRe = spectrumY[k], yIm = spectrumY[k + 1];
        spectrumX[k] = xRe * yRe + xIm * yIm;
        spectrumX[k + 1] = xRe * yIm + negatedProduct(xIm, yRe);
    }

    const int span = maxLag - minLag + 1;
    const int count = span < 1 ? 0 : span;
    if (minLag < 0) {
        // Negative lags from the conjugate spectrum, read backward from lag 0.
        std::copy(spectrumX, spectrumX + this->size, spectrumY);
        for (int k = 3; k < this->size; k += 2)
            spectrumY[k] = -spectrumY[k];
        inverse(spectrumY);
        const int negativeCount = std::min(count, 1 - minLag);
        for (int i = 0; i < negativeCount; ++i)
            result[i] = spectrumY[-minLag - i];
    }
    if (maxLag < 1)
        return;
    inverse(spectrumX);
    if (minLag < 0)
        std::copy(spectrumX, spectrumX + maxLag + 1, result - minLag);
    else
        std::copy(spectrumX + minLag, spectrumX + minLag + count, result);
}

template <typename T>
void Correlation_std<T>::correlate(const T* x, int lengthX, const T* y, int lengthY, T* result)
{
    if (x != y) {
        crossCorrelate(x, lengthX, y, lengthY, result, 1 - lengthX, lengthY - 1);
        return;
    }
    const int m = std::max(lengthX, lengthY);
    autocorrelate(x, m, result + m - 1, m);
    for (int i = 0; i <= m - 2; ++i)
        result[i] = result[2 * (m - 1) - i];
}

template class Correlation_std<double>;
template class Correlation_std<float>;

}  // namespace standardLib::standard
