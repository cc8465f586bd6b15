// The AR model of a tapered stretch of audio by the autocorrelation method and
// Levinson's recursion, with a white floor added to the zero lag so the recursion
// stays regular on a pure tone: the shared fit of the declick stage's short models
// (the impulse search, the short gap fill, the edge continuation). Fixed storage for
// a model of order Order: fitting allocates nothing. One thread at a time per object.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>

#include "ar/ArRecursions.h"
#include "ar/AutocorrelationPaths.h"

template <int Order>
class TaperedModel {
public:
    using Model = std::array<double, Order + 1>;

    // model[0..Order] = the prediction error filter of tapered[0, count) (model[0] = 1;
    // zeros above an order the recursion could not pass). False, with the model
    // untouched, where the stretch holds no finite energy.
    bool fit(const double* tapered, int count, double whiteFloor, Model& model)
    {
        autocorrelate(path_, tapered, count, lags_.data(), Order);
        if (!(lags_[0] > 0.0) || !std::isfinite(lags_[0])) return false;
        lags_[0] *= 1.0 + whiteFloor;
        std::array<double*, Order + 1> rows;
        for (int m = 0; m <= Order; ++m) rows[m] = orderRows_[m].data();
        const int reached = levinsonDurbinRows(lags_.data(), rows.data(), Order);
        model.fill(0.0);
        std::copy_n(orderRows_[reached].begin(), reached + 1, model.begin());
        return true;
    }

private:
    kernel_paths::Path path_ = kernel_paths::fastestPath();
    Model lags_{};
    std::array<Model, Order + 1> orderRows_{};  // Levinson's models of each order
};
