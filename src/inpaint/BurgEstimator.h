// Autoregressive model by Burg's method over one or more stretches of samples taken
// together: at each order the reflection coefficient minimises the forward plus
// backward prediction error energy summed over all stretches, and no error ever
// bridges two stretches (so a model can come from the two sides of a gap, or from
// several channels, without the gap biasing it).
//
// The polynomial has order + 1 doubles, coefficients[0] = 1: the prediction error
// is e(t) = sum_m a[m] x(t - m). Sums are kept in eight interleaved partial sums
// joined in a fixed order; each order's update and the next order's sums share one
// pass (BurgKernels), the same bits on every instruction-set path. The constructor allocates for
// up to maxStretches stretches of maxSamples samples in all and orders up to
// maxOrder; nothing else does. One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/BurgKernels.h"

class BurgEstimator {
public:
    BurgEstimator(int maxSamples, int maxStretches, int maxOrder);

    // Starts a new estimate of the given order (at most maxOrder).
    void begin(int order);
    // Adds a stretch (copied); stretches shorter than the order + 1 add nothing.
    void add(const double* samples, int count);
    // The model of everything added (all zero but a[0] when the input is silent).
    const double* model();

    int order() const { return currentOrder; }

private:
    double reflection(int m) const;
    double update(int m, double k);

    int maxSamples_, maxStretches_, maxOrder_;
    kernel_paths::Path path = kernel_paths::fastestPath();
    int currentOrder = 0;
    int stretches = 0;
    int used = 0;
    std::unique_ptr<int[]> stretchStart, stretchLength;
    std::unique_ptr<double[]> forward, backward;  // both updated in place, order by order
    std::unique_ptr<double[]> coefficients;
};
