// Puts a white floor under an autoregressive model's spectrum: the model's own
// autocorrelation (1 / |A|^2 on a transform grid of at least 8 times the order), lag 0
// raised by the factor 1 + floor, and the Levinson-Durbin recursion back to a model
// of the same order. Bounds the depth of the spectrum's valleys relative to its
// power, which keeps the fill's normal equations regular.
//
// Polynomials have order + 1 doubles with a[0] = 1. The constructor allocates for
// orders up to maxOrder; floored never allocates. The signal library's transform and
// the Levinson kernels give the same bits on every path. One thread at a time per object.
#pragma once

#include <memory>

#include "signal/CFft_std.h"
#include "signal/KernelPath.h"

class ModelFloor {
public:
    explicit ModelFloor(int maxOrder);

    // The floored model of a[0..order] (order <= maxOrder), valid until the next call.
    const double* floored(const double* a, int order, double floor);

private:
    void autocorrelationOf(const double* a, int order);
    void levinsonDurbin(int order);

    kernel_paths::Path path = kernel_paths::fastestPath();
    int maxOrder_;
    int fftSize;
    standardLib::standard::CFft_std<double> fft;
    std::unique_ptr<double[]> padded;                  // fftSize
    std::unique_ptr<double[]> re, im;                  // fftSize / 2 + 1
    std::unique_ptr<double[]> lags;                    // maxOrder + 1
    std::unique_ptr<double[]> coefficients;            // maxOrder + 1
};
