// One order of Burg's recursion over one stretch, fused with the sums of the next
// order's reflection coefficient, so the errors pass through memory once per order.
//
// With f the forward errors and b the backward errors of order m - 1 (b[t - 1] for
// t >= 1), both updated in place, for t = m .. end - 1:
//   f(t) <- f(t) + k b(t - 1),   b(t) <- b(t - 1) + k f(t)   (right sides as they were),
// and for t = m + 1 .. end - 1, in lane (t - m - 1) mod 8 in ascending t, with the
// new values:
//   cross += f(t) b(t - 1),   energy += f(t)^2 + b(t - 1)^2.
// Every path does these operations per lane in this order (products and sums apart,
// never fused), so all give the same bits; the vector paths only take four lanes at
// a time (AVX-512: all eight). No allocation, no state: any thread may call; a path
// only where supported.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

// cross[8] and energy[8] carry the partial sums from stretch to stretch.
void updateStretch(Path path, double* f, double* b, int m, int end, double k, double* cross, double* energy);

}  // namespace inpaint_kernels
