// Restores the clipped samples of one frame by least-squares interpolation under an
// autoregressive model of the frame (Janssen, Veldhuis and Vries, "Adaptive
// interpolation of discrete-time signals that can be modeled as autoregressive
// processes", IEEE Trans. ASSP 1986), kept consistent with the clipping.
//
// The model comes from Burg's method over the windowed frame as observed, clipped
// samples at their clipped values: the flat crests pull its spectrum towards low
// frequencies, so the fill it gives is rounder and lower than a sparse restoration's,
// which it complements. The clipped samples then minimise the energy of the
// prediction error over the whole frame (the samples beyond it taken as zero),
// sum_t (sum_m a[m] x(t - m))^2: normal equations whose matrix is the model's
// autocorrelation at the distances between the unknowns, banded to the order, with a
// ridge of 1e-9 of its diagonal. They are solved by a Cholesky factorisation on the
// matrix's envelope (the unknowns of runs further apart than the order decouple, and
// cost nothing together). Unknowns that land on the wrong side of their bound are
// held there and the others solved again, for at most `rounds` rounds.
//
// Doubles, in a fixed order of operations: the same bits on every platform. The
// constructor allocates for frames of up to frameLength samples; fill() does not.
// One thread at a time per object.
#pragma once

#include <vector>

#include "inpaint/BurgEstimator.h"

class BoundedArFill {
public:
    static constexpr int rounds = 10;

    BoundedArFill(int frameLength, int order);

    // frame: frameLength samples as observed, replaced where clipped by the fill.
    // lower/upper: their bounds (equal for a reliable sample, one side open for a
    // clipped one). window: the weights of the model's estimate.
    void fill(double* frame, const float* lower, const float* upper, const float* window);

    int frameLength() const { return length_; }
    int order() const { return order_; }

private:
    void estimate(const double* frame, const float* window);
    void gatherUnknowns();
    void factor();
    void solve(const double* frame);
    bool holdViolations(double* frame, const float* lower, const float* upper);

    int length_, order_;
    BurgEstimator burg_;
    std::vector<double> windowed_;
    std::vector<double> correlation_;  // the model's autocorrelation at lags -order..order
    std::vector<double> known_;        // the frame with its unknowns at zero
    std::vector<char> unknown_;        // per frame sample
    std::vector<int> position_;        // the unknowns' positions, ascending
    std::vector<int> rowStart_;        // first column of each row's envelope
    std::vector<std::size_t> rowOffset_;
    std::vector<double> factor_;       // the envelope's rows of the Cholesky factor
    std::vector<double> solution_;
};
