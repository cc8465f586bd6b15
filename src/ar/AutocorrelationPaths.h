// The autocorrelation of a window of doubles on each instruction-set path: the
// fits of the least-squares AR interpolator and of the declick stage's short models.
//
// Each lag is summed in its own lane in the order of the plain loop (products and
// sums apart, never fused), so every path gives the bits of autocorrelate
// (ArRecursions.h); the AVX2 path only keeps more lags in flight (the vector path
// runs the plain loops). No allocation, no state: any thread may call; a path only
// where supported (kernel_paths::pathSupported).
#pragma once

#include "signal/KernelPath.h"

// lags[k] = sum over i in [0, count - k) of samples[i] * samples[i + k], in the order
// of i, for k = 0 .. maxLag.
void autocorrelate(kernel_paths::Path path, const double* samples, int count, double* lags, int maxLag);
