// The similarity search's scores: for each window u in [from, to), whose borders'
// energy comes from the running sums of squares `energy` (the two borders of
// `border` samples with `length` between them), and whose correlation with the
// template is work[u]:
//   e = (energy[u + border] - energy[u]) + (energy[u + 2 border + length] - energy[u + border + length]),
//   work[u] <- e > 1e-12 templateEnergy ? work[u] / sqrt(e templateEnergy) : 0.
// The windows are independent outputs and the square root and division are correctly
// rounded on every path, so all give the same bits. No allocation, no state: any
// thread may call; a path only where supported.
#pragma once

#include "signal/KernelPath.h"

namespace inpaint_kernels {

using kernel_paths::Path;

void normaliseScores(Path path, double* work, const double* energy, int from, int to, int length, int border,
                     double templateEnergy);

}  // namespace inpaint_kernels
