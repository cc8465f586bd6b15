// The coarse repeat search's box sums: blocks[m] += the sum of x[m h .. m h + h) for
// m < count, each block's samples added in ascending order from zero in double, the
// sum then added to blocks[m]. The blocks are independent outputs: the plain loop
// sums eight of them at a time in eight chains, the AVX-512 path in the eight lanes of
// one register (from 8 x 8 tiles of samples, transposed), so all give the same bits.
// No allocation, no state: any thread may call; a path only where supported.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

void addBoxSums(Path path, const float* x, int count, int h, double* blocks);

}  // namespace inpaint_kernels
