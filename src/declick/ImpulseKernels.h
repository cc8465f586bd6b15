// The impulse search's prediction errors on each instruction-set path (its fits'
// autocorrelation is ar/AutocorrelationPaths.h).
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

// errors[i] = sum over j in [0, order] of model[j] * first[i + direction * j], in the
// order of j from zero, for i = 0 .. count - 1. direction -1 predicts from the past,
// +1 from the future.
void predictionErrors(Path path, const double* first, const double* model, int order, int direction,
                      double* errors, int count);

}  // namespace impulse_kernels
