#include "waveform/CorrelationScan.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <vector>

namespace {

// The signal, zero-padded so that every lag reads inside the array. One extra zero
// stands in front: with a zero-length reference the energy update addresses the
// element before the copy, and reads zero there.
template <typename T>
class WorkingCopy {
public:
    WorkingCopy(const T* sig, int sigLen, int refLen, int numLags, int shift)
        : storage_(1 + paddedLength(sigLen, refLen, numLags, shift), T(0))
    {
        if (sigLen <= 0) return;
        if (shift < 0)
            std::copy(sig, sig + sigLen, data() - shift);
        else
            std::copy(sig + shift, sig + shift + sigLen, data());
    }

    T* data() { return storage_.data() + 1; }
    const T* data() const { return storage_.data() + 1; }

private:
    static std::size_t paddedLength(int sigLen, int refLen, int numLags, int shift)
    {
        const std::int64_t length = std::int64_t{std::max(sigLen, refLen)} +
                                    std::llabs(std::int64_t{shift}) + std::max(numLags, 0);
        return static_cast<std::size_t>(std::max<std::int64_t>(length, 0));
    }

    std::vector<T> storage_;
};

// A square formed and rounded in the element type, then widened for the 64-bit energy.
template <typename T>
double squareOf(T value)
{
    const T square = value * value;
    return static_cast<double>(square);
}

template <typename T>
double energyOf(const T* x, int count)
{
    double energy = 0.0;
    for (int i = 0; i < count; ++i) energy += squareOf(x[i]);
    return energy;
}

// Divides each raw dot product by the root of the energy product. The window energy
// slides: the newest square enters before the score, the oldest leaves after it.
template <typename T>
void normaliseScores(const T* w, int refLen, double refEnergy, double windowEnergy, T* out,
                     int numLags)
{
    windowEnergy -= squareOf(w[refLen - 1]);  // the first lag adds it back
    for (int k = 0; k < numLags; ++k) {
        windowEnergy += squareOf(w[k + refLen - 1]);
        const double denominator = std::sqrt(windowEnergy * refEnergy) + 1e-30;
        out[k] = out[k] / static_cast<T>(denominator);
        windowEnergy -= squareOf(w[k]);
    }
}

// 1 / n: the integer goes to the element type, the inversion is in 64 bits and the
// factor is rounded back to the element type.
template <typename T>
T inverseOf(int n)
{
    return static_cast<T>(1.0 / static_cast<double>(static_cast<T>(n)));
}

// Mode 3: one position runs through both passes. The first finds the peak magnitude
// over out[0 .. numLags); the second carries on past the end of the scores.
template <typename T>
void scaleByPeak(T* out, int numLags)
{
    int k = 0;
    double peak = 0.0;
    for (; k < numLags; ++k) {
        const double magnitude = std::fabs(static_cast<double>(out[k]));
        if (magnitude > peak) peak = magnitude;
    }
    const T factor = static_cast<T>(peak);
    for (int n = 0; n < numLags; ++n, ++k) out[k] = out[k] * factor;
}

template <typename T>
void applyScaleMode(T* out, int numLags, int refLen, int sigLen, unsigned int scaleMode)
{
    switch (scaleMode) {
    case 1: {
        const T factor = inverseOf<T>(refLen + sigLen);
        for (int k = 0; k < numLags; ++k) out[k] = out[k] * factor;
        return;
    }
    case 2:
        for (int k = 0; k < numLags; ++k) out[k] = out[k] * inverseOf<T>(refLen + sigLen - k);
        return;
    case 3: scaleByPeak(out, numLags); return;
    default: return;
    }
}

template <typename T, typename LagKernel>
int normCorrelateWith(LagKernel lags, const T* ref, int refLen, const T* sig, int sigLen, T* out,
                      int numLags, int shift)
{
    const WorkingCopy<T> copy(sig, sigLen, refLen, numLags, shift);
    const T* w = copy.data();
    const double refEnergy = energyOf(ref, refLen);
    const double windowEnergy = energyOf(w, refLen);
    if (numLags < 1) return 0;
    lags(ref, refLen, w, out, numLags);
    normaliseScores(w, refLen, refEnergy, windowEnergy, out, numLags);
    return 0;
}

template <typename T, typename LagKernel>
int scaledCorrelateWith(LagKernel lags, const T* ref, int refLen, const T* sig, int sigLen, T* out,
                        int numLags, int shift, unsigned int scaleMode)
{
    const WorkingCopy<T> copy(sig, sigLen, refLen, numLags, shift);
    if (numLags >= 1) lags(ref, refLen, copy.data(), out, numLags);
    applyScaleMode(out, numLags, refLen, sigLen, scaleMode);
    return 0;
}

// The lag kernel of a float path, as a callable for the generic bodies.
struct FloatLags {
    ScanPath path;
    void operator()(const float* ref, int refLen, const float* w, float* out, int n) const
    {
        correlateLags(path, ref, refLen, w, out, n);
    }
};

struct DoubleLags {
    void operator()(const double* ref, int refLen, const double* w, double* out, int n) const
    {
        plainCorrelateLags(ref, refLen, w, out, n);
    }
};

}  // namespace

int normCorrelate(ScanPath path, const float* ref, int refLen, const float* sig, int sigLen,
                  float* out, int numLags, int shift)
{
    return normCorrelateWith(FloatLags{path}, ref, refLen, sig, sigLen, out, numLags, shift);
}

int normCorrelate(const float* ref, int refLen, const float* sig, int sigLen, float* out,
                  int numLags, int shift)
{
    return normCorrelate(fastestScanPath(), ref, refLen, sig, sigLen, out, numLags, shift);
}

int normCorrelate(const double* ref, int refLen, const double* sig, int sigLen, double* out,
                  int numLags, int shift)
{
    return normCorrelateWith(DoubleLags{}, ref, refLen, sig, sigLen, out, numLags, shift);
}

int scaledCorrelate(ScanPath path, const float* ref, int refLen, const float* sig, int sigLen,
                    float* out, int numLags, int shift, unsigned int scaleMode)
{
    return scaledCorrelateWith(FloatLags{path}, ref, refLen, sig, sigLen, out, numLags, shift,
                               scaleMode);
}

int scaledCorrelate(const float* ref, int refLen, const float* sig, int sigLen, float* out,
                    int numLags, int shift, unsigned int scaleMode)
{
    return scaledCorrelate(fastestScanPath(), ref, refLen, sig, sigLen, out, numLags, shift,
                           scaleMode);
}

int scaledCorrelate(const double* ref, int refLen, const double* sig, int sigLen, double* out,
                    int numLags, int shift, unsigned int scaleMode)
{
    return scaledCorrelateWith(DoubleLags{}, ref, refLen, sig, sigLen, out, numLags, shift,
                               scaleMode);
}
