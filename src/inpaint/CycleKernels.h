// The periodic candidate's correlations, eight independent outputs a call, one per
// lane: every path sums each in the same order (products and sums apart, never
// fused), so all give the same bits. No allocation, no state: any thread may call; a
// path only where supported.
//
// Lag correlations: for lags lag + i (i < 8) in `direction` (+1 or -1), over channels
// c and j < window in ascending c and j, with a = x_c + first and b = a + direction (lag + i):
//   cross[i] += a[j] b[j],   far[i] += b[j]^2.
// Circular correlations: for each of up to eight consecutive shifts s, the sum over
// channels c and j < period, in ascending c and j, of
//   before_c[j] after_c[j - s + period],
// after_c holding the cycle after the hole twice over (2 period samples), so that the
// index runs without a modulo.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

inline constexpr int cycleShiftLanes = 8;
inline constexpr int lagLanes = 8;

// cross[lagLanes] and far[lagLanes], from zero; every sample read must lie within its channel.
void lagCorrelations(Path path, const double* const* x, int channelCount, int first, int window, int lag,
                     int direction, double* cross, double* far);

// out[i] for the shift firstShift + i, i < count <= cycleShiftLanes, firstShift + count <= period.
void circularCorrelations(Path path, const double* const* before, const double* const* after, int channelCount,
                          int period, int firstShift, int count, double* out);

}  // namespace inpaint_kernels
