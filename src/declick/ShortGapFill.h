// Least-squares AR interpolation of a short gap (a few samples of fine crackle):
// the gap's samples that minimise the model's prediction error energy over every
// error they enter, from the `order` samples on each side (Janssen, Veldhuis and
// Vries, 1986). The model (order `order`) is fitted by the autocorrelation method
// over `fitLength` samples (Hann window) starting fitLength / 2 before the gap, so a
// gap is filled from a model of the audio around it, its own samples included; the
// normal equations, a symmetric Toeplitz system of the gap's length in the
// autocorrelation of the model's coefficients, are solved by Cholesky's method.
//
// Double arithmetic in a fixed order, rounded once to float: the same bits on every
// path. A fill allocates only the model fit's scratch rows (not for real-time
// paths); one thread at a time per object.
#pragma once

#include <array>
#include <span>

#include "declick/TaperedModel.h"

class ShortGapFill {
public:
    static constexpr int order = 64;
    static constexpr int fitLength = 1024;
    static constexpr int maxGap = 8;
    // Samples a fill reads before the gap's first sample and after its last.
    static constexpr int reachBefore = fitLength / 2;
    static constexpr int reachAfter = fitLength / 2 + order;

    // Fills samples[first, first + length) from samples[first - reachBefore,
    // first + length + reachAfter - 1), which the caller provides. Returns false, and
    // leaves them, when length is outside [1, maxGap] or no model fits.
    bool fill(std::span<float> samples, int first, int length);

private:
    bool fitModel(std::span<const float> samples, int from);
    bool solve(std::span<const float> samples, int first, int length);

    std::array<double, fitLength> tapered_{};
    TaperedModel<order> fit_;
    TaperedModel<order>::Model model_{};
    std::array<double, order + 1> coefficientLags_{};  // autocorrelation of the model's coefficients
    std::array<double, maxGap * maxGap> normal_{};
    std::array<double, maxGap> solution_{};
};
