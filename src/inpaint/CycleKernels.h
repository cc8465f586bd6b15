// The periodic candidate's circular correlations: for each of up to eight consecutive
// shifts s, the sum over channels c and j < period, in ascending c and j, of
//   before_c[j] after_c[j - s + period],
// after_c holding the cycle after the hole twice over (2 period samples), so that the
// index runs without a modulo. The shifts are independent outputs, one per lane: every
// path sums each in the same order (products and sums apart, never fused), so all
// give the same bits. No allocation, no state: any thread may call; a path only where
// supported.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

inline constexpr int cycleShiftLanes = 8;

// out[i] for the shift firstShift + i, i < count <= cycleShiftLanes, firstShift + count <= period.
void circularCorrelations(Path path, const double* const* before, const double* const* after, int channelCount,
                          int period, int firstShift, int count, double* out);

}  // namespace inpaint_kernels
