// The product of a stretch of samples with the normal matrix of an AR model's
// prediction error, A^T A x, through the FFT: q[i] = sum_{k=-p..p} c[|k|] x[i - k]
// with c the model's own autocorrelation, c[k] = sum_m a[m] a[m + k]. q[i] is exact
// (up to rounding) for p <= i < count - p, where no term leaves the stretch.
//
// The constructor allocates for stretches up to maxLength samples and orders up to
// maxOrder; setModel and apply never allocate. The signal library's transform gives
// the same bits on every instruction-set path. One thread at a time per object.
#pragma once

#include <memory>

#include "signal/CFft_std.h"

class NormalProduct {
public:
    NormalProduct(int maxLength, int maxOrder);

    // a[0..order], a[0] = 1.
    void setModel(const double* a, int order);
    // c[0..order] of the current model, scaled as the product uses it.
    const double* modelAutocorrelation() const { return autocorrelation.get(); }
    // q[0..count) from x[0..count), count <= maxLength; q may be x.
    void apply(const double* x, int count, double* q);

private:
    int size;
    standardLib::standard::CFft_std<double> fft;
    std::unique_ptr<double[]> power;      // |A|^2 on size / 2 + 1 bins
    std::unique_ptr<double[]> work;       // size
    std::unique_ptr<double[]> re, im;     // size / 2 + 1
    std::unique_ptr<double[]> autocorrelation;  // maxOrder + 1
};
