// The declick stage's sums over windows of doubles, on each instruction-set path:
// the autocorrelation of a window (the impulse search's and the short models' fits)
// and the impulse search's prediction errors.
//
// Each output is summed in its own lane in the order of the plain loop (products and
// sums apart, never fused), so every path gives the same bits; the AVX2 path only
// keeps more outputs in flight (the vector path runs the plain loops). No
// allocation, no state: any thread may call; a path only where supported
// (kernel_paths::pathSupported).
#pragma once

#include "signal/KernelPath.h"

namespace impulse_kernels {

using kernel_paths::Path;

// lags[k] = sum over i in [0, count - k) of samples[i] * samples[i + k], in the order
// of i, for k = 0 .. maxLag: the bits of autocorrelate (ar/ArRecursions.h).
void autocorrelation(Path path, const double* samples, int count, double* lags, int maxLag);

// errors[i] = sum over j in [0, order] of model[j] * first[i + direction * j], in the
// order of j from zero, for i = 0 .. count - 1. direction -1 predicts from the past,
// +1 from the future.
void predictionErrors(Path path, const double* first, const double* model, int order, int direction,
                      double* errors, int count);

}  // namespace impulse_kernels
