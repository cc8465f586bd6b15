// One order of Burg's recursion over one stretch, fused with the sums of the next
// order's reflection coefficient, so the errors pass through memory once per order.
//
// With f the forward errors and b the backward errors of order m - 1 (b[t - 1] for
// t >= 1), both updated in place, for t = m .. end - 1:
//   f(t) <- fma(k, b(t - 1), f(t)),   b(t) <- fma(k, f(t), b(t - 1))   (right sides as they were),
// and for t = m + 1 .. end - 1, in lane (t - m - 1) mod 8 in ascending t, with the
// new values:
//   cross <- fma(f(t), b(t - 1), cross),   energy <- fma(b(t - 1), b(t - 1), fma(f(t), f(t), energy)).
// fma(a, b, c) = a b + c rounded once: every path fuses exactly these (std::fma, the
// vector paths' fused instructions), nothing else, so all give the same bits; the
// vector paths only take four lanes at a time (AVX-512: all eight). Fused, each sample
// of an order costs five operations instead of ten: the recursion runs at the
// processor's arithmetic rate. No allocation, no state: any thread may call; a path
// only where supported (AVX2 with FMA).
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

// cross[8] and energy[8] carry the partial sums from stretch to stretch.
void updateStretch(Path path, double* f, double* b, int m, int end, double k, double* cross, double* energy);

}  // namespace inpaint_kernels
