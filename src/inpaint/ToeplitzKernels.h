// The inner loops of Levinson's recursion for a banded Toeplitz system:
//   bandedDot:          sum_{i=1}^{terms} r[i] v[k - i], in eight partial sums over
//                       i modulo 8 joined in a fixed tree;
//   levinsonStep:       x_r[j] += scale_r * y[k - 1 - j] for j < k and every solution r,
//                       y as it was; then (when asked) the same in place on y with
//                       yScale, every pair read before it is written. One pass over y
//                       serves every solution and the predictor.
// Every path does the same operations per output in the same order (products and
// sums apart, never fused), so all give the same bits. No allocation, no state: any
// thread may call; a path only where supported.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

double bandedDot(Path path, const double* r, const double* v, int k, int terms);
void levinsonStep(Path path, double* y, int k, bool updateY, double yScale, double* const* x, const double* scale,
                  int count);

}  // namespace inpaint_kernels
