// The least-squares fill of a gap under two AR models, one estimated on each side of
// it: the samples that minimise
//     sum_t w(t) eBefore(t)^2 + (1 - w(t)) eAfter(t)^2
// over the prediction errors that touch the gap, with w falling from the side before
// the gap to the side after it. Sound that changes across the gap (a vowel gliding
// into the next) is then continued from each side by that side's own spectrum, where
// one model of both sides blurs the two.
//
// The normal equations are not Toeplitz. They are solved by conjugate gradients
// (PreconditionedGradients), preconditioned by the Toeplitz system of the two models'
// mean autocorrelation, from the fill given (a one-model fill is close). Products with
// the prediction error filters go through the FFT.
//
// Prediction errors e(t) = sum_k a[k] x(t - k), k = 0..order. The constructor
// allocates for gaps up to maxGap and orders up to maxOrder; setModels and refine never
// allocate. Double arithmetic and the signal library's transform: the same bits on
// every platform and path. One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/PreconditionedGradients.h"
#include "inpaint/ToeplitzSolver.h"
#include "signal/CFft_std.h"

class SidedLeastSquares {
public:
    SidedLeastSquares(int maxGap, int maxOrder);

    // The models before and after the gap (a[0..order], a[0] = 1), for gaps of `length`.
    void setModels(const double* before, const double* after, int order, int length);
    // x[gap - order, gap + length + order) is the segment around the gap;
    // x[gap, gap + length) holds the starting fill and is refined in place, by at most
    // `iterations` steps.
    void refine(ToeplitzSolver& solver, double* x, int gap, int iterations);

private:
    void transform(const double* a, double* toRe, double* toIm);
    void weightedNormal(const double* d, int count, int firstRow, double* out);

    int size;  // the transform's
    int order_ = 0, length_ = 0;
    standardLib::standard::CFft_std<double> fft;
    std::unique_ptr<double[]> beforeRe, beforeIm, afterRe, afterIm;  // size / 2 + 1 each
    std::unique_ptr<double[]> column;   // maxOrder + 1: the preconditioner's
    std::unique_ptr<double[]> weight;   // maxGap + maxOrder: w(t) of the errors touching the gap
    std::unique_ptr<double[]> work;  // size
    std::unique_ptr<double[]> inRe, inIm, errorRe, errorIm, sumRe, sumIm;  // size / 2 + 1 each
    PreconditionedGradients gradients;
};
