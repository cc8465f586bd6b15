// Applies the inverse of a symmetric positive definite Toeplitz matrix T of size n to
// vectors, from the predictor that Levinson's recursion finds on its way: with y the
// solution of T_{n-1} y = -(t[1] .. t[n-1]) / t[0] and beta its error (normalised),
//   T^-1 = (L L^T - U U^T) / (t[0] beta),
// L and U lower triangular Toeplitz with first columns [1, y] and [0, y reversed]
// (Gohberg & Semencul, 1972). Each product with a triangular Toeplitz matrix is a
// convolution through the FFT of the smallest power of two of at least 2n: a few
// transforms per right-hand side instead of O(n^2) steps of the recursion, and bits
// that depend on n alone, not on the largest size.
//
// The constructor allocates for sizes from minSize to maxSize; nothing else does.
// The signal library's transform gives the same bits on every path. One thread at a
// time per object.
#pragma once

#include <memory>
#include <vector>

#include "signal/CFft_std.h"

class ToeplitzInverse {
public:
    ToeplitzInverse(int minSize, int maxSize);

    // The generators of T^-1 of size n (minSize <= n <= maxSize) from y[0 .. n - 1).
    void setPredictor(const double* y, int n, double diagonal, double beta);
    // b[0 .. n) <- T^-1 b, for the last size set.
    void apply(double* b);

private:
    using Fft = standardLib::standard::CFft_std<double>;
    // x[0 .. n) zero-padded to the transform.
    void forward(const double* x, double* re, double* im);
    // Spectra of a product of two.
    void multiply(const double* aRe, const double* aIm, const double* xRe, const double* xIm, double* re, double* im);
    // out[i] = the inverse transform of (re, im) at n - 1 - i, i < n.
    void inverseReversed(const double* re, const double* im, double* out);

    int minTransform;
    std::vector<std::unique_ptr<Fft>> transforms;  // powers of two from minTransform up
    Fft* fft = nullptr;
    int n = 0, size = 0;
    double scale = 0.0;
    std::unique_ptr<double[]> work, reversed;  // the largest transform; maxSize
    // Spectra on the largest transform's bins: the generators', the right-hand side's,
    // and two scratch products.
    std::unique_ptr<double[]> lowRe, lowIm, upRe, upIm, bRe, bIm, cRe, cIm, dRe, dIm;
};
