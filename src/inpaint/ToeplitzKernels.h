// The inner loops of Levinson's recursion for a banded Toeplitz system:
//   bandedDot:          sum_{i=1}^{terms} r[i] v[k - i], in eight partial sums over
//                       i modulo 8 joined in a fixed tree;
//   addReversed:        x[j] += scale * y[k - 1 - j] for j < k;
//   addReversedInPlace: the same with x = y, every pair read before it is written.
// Every path does the same operations per output in the same order (products and
// sums apart, never fused), so all give the same bits. No allocation, no state: any
// thread may call; a path only where supported.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

double bandedDot(Path path, const double* r, const double* v, int k, int terms);
void addReversed(Path path, double* x, const double* y, int k, double scale);
void addReversedInPlace(Path path, double* v, int k, double scale);

}  // namespace inpaint_kernels
