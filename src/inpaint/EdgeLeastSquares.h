// The least-squares AR fill of a gap near a recording's end: the samples that
// minimise only those prediction errors whose samples all lie in the recording, so
// that nothing past the end (neither silence nor a guess) pulls the fill.
//
// Dropping the errors that reach past the end leaves normal equations that are no
// longer Toeplitz. They are solved by conjugate gradients (PreconditionedGradients),
// preconditioned by the full Toeplitz system, which differs from them only by the
// dropped rows. Starts from the fill it is given.
//
// Prediction errors e(t) = sum_k a[k] x(t - k), k = 0..order. The constructor
// allocates for gaps up to maxGap and orders up to maxOrder; refine never allocates.
// Double arithmetic in plain loops, each sum in a fixed order: the same bits on every
// platform. One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/PreconditionedGradients.h"
#include "inpaint/ToeplitzSolver.h"

class EdgeLeastSquares {
public:
    EdgeLeastSquares(int maxGap, int maxOrder);

    // x[gap, gap + length): the fill to refine in place; x[knownFrom, knownTo) holds
    // the recording around it (the gap inside). column[0..order] is the model's own
    // autocorrelation, the Toeplitz preconditioner; at most `iterations` steps.
    void refine(const double* a, int order, const double* column, ToeplitzSolver& solver, double* x, int gap,
                int length, int knownFrom, int knownTo, int iterations);

private:
    struct Rows {
        int from, to;  // the prediction errors kept: e(t) for t in [from, to)
    };
    struct Span {
        int from, to;
    };
    void errors(const double* c, int order, const double* x, int offset, int from, int to, Rows rows) const;
    void transposed(const double* c, int order, Rows rows, int gap, int length, double* out) const;
    double energy(const double* c, int order, const double* x, Span known, Rows rows) const;
    void startFromExtrapolation(const double* a, const double* c, int order, double* x, Span gap, Span known,
                                Rows rows, bool backwards);

    int maxGap_;
    PreconditionedGradients gradients;
    std::unique_ptr<double[]> saved;      // maxGap: the given fill, while its extrapolation is tried
    std::unique_ptr<double[]> rowErrors;  // maxGap + maxOrder
    std::unique_ptr<double[]> reversed;   // maxOrder + 1
};
