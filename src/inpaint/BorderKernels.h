// The sums a repeat's refinement compares: for each of up to eight consecutive shifts
// s, over the hole's two borders (`border` samples before [hole, hole + length) and
// as many after it) on every channel, in ascending channel, side and sample:
//   product(s) += x(t) y(t + s),   energy(s) += y(t + s)^2,   y = x in double.
// The shifts are independent outputs, one per lane: every path sums each shift in the
// same order (products and sums apart, never fused), so all give the same bits. No
// allocation, no state: any thread may call; a path only where supported.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

inline constexpr int borderShiftLanes = 8;

// product[i] and energy[i] for the shift firstShift + i, i < count <= borderShiftLanes;
// every sample t + firstShift + i read must lie within its channel.
void borderSums(Path path, const float* const* channels, int channelCount, int hole, int length, int border,
                int firstShift, int count, double* product, double* energy);

}  // namespace inpaint_kernels
