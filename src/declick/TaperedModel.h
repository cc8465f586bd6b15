// The AR model of a tapered stretch of audio by the autocorrelation method and
// Levinson's recursion, with a white floor added to the zero lag so the recursion
// stays regular on a pure tone; the shared step of the declick stage's short models.
#pragma once

#include <cmath>
#include <vector>

#include "ar/ArRecursions.h"
#include "declick/ImpulseKernels.h"

// model[0..order] = the prediction error filter of tapered[0, count) (model[0] = 1).
// False, with the model untouched, where the stretch holds no finite energy.
inline bool fitTaperedModel(const double* tapered, int count, double whiteFloor, double* model, int order)
{
    std::vector<double> lags(static_cast<std::size_t>(order) + 1);
    impulse_kernels::autocorrelation(kernel_paths::fastestPath(), tapered, count, lags.data(), order);
    if (!(lags[0] > 0.0) || !std::isfinite(lags[0])) return false;
    lags[0] *= 1.0 + whiteFloor;
    double error = 0.0;
    levinsonDurbin(lags.data(), model, order, &error);
    return true;
}
