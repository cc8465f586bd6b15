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

// The step of order m of a prediction polynomial a[0..m] (a[0] = 1) by the reflection
// k: a[i] += k a[m - i] for 0 < i < m, and a[m] = k.
inline void addReflection(Path path, double* a, int m, double k)
{
    levinsonStep(path, a + 1, m - 1, true, k, nullptr, nullptr, 0);
    a[m] = k;
}

}  // namespace inpaint_kernels
