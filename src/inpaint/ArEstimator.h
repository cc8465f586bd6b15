// Autoregressive model from one or more stretches of samples by the autocorrelation
// method: the biased autocorrelations of every stretch added (so a model can be
// taken from the two sides of a gap without bridging it, or from several channels),
// a Gaussian lag window and a slight white-noise floor against over-sharp spectral
// peaks, then the Levinson-Durbin recursion.
//
// The polynomial has order + 1 doubles, coefficients[0] = 1: the prediction error
// is e(t) = sum_m a[m] x(t - m). Lags come from a real FFT of the zero-padded
// stretch (the signal library's transform, the same bits on every path). The
// constructor allocates for stretches up to maxStretch samples and orders up to
// maxOrder; nothing else does. One thread at a time per object.
#pragma once

#include <memory>

#include "signal/CFft_std.h"

class ArEstimator {
public:
    ArEstimator(int maxStretch, int maxOrder);

    // Starts a new estimate of the given order (at most maxOrder).
    void begin(int order);
    // Adds the autocorrelation of samples[0..count) (count <= maxStretch), lags 0..order.
    void add(const double* samples, int count);
    // Replaces the lags by the autocorrelation of the model a[0..order] (order at most
    // maxOrder), as 1 / |A|^2 on the transform's grid: with model(0, floor) this puts
    // a white floor under another estimator's spectrum.
    void setModelSpectrum(const double* a, int order);
    // The model from everything added: lags weighted by exp(-(lag / lagScale)^2 / 2)
    // (lagScale <= 0: no window), lag 0 raised by the factor 1 + whiteFloor.
    // Returns coefficients (order + 1 values); all zero but a[0] for silent input.
    const double* model(double lagScale, double whiteFloor);

    int order() const { return currentOrder; }

private:
    int maxOrder_;
    int fftSize;
    int currentOrder = 0;
    standardLib::standard::CFft_std<double> fft;
    std::unique_ptr<double[]> padded;   // fftSize
    std::unique_ptr<double[]> re, im;   // fftSize / 2 + 1
    std::unique_ptr<double[]> lags;     // maxOrder + 1, accumulated
    std::unique_ptr<double[]> windowed; // maxOrder + 1
    std::unique_ptr<double[]> coefficients, previous;  // maxOrder + 1
};
