// Solves T x = b for a symmetric positive definite Toeplitz matrix T whose first
// column vanishes beyond a band (t[k] = 0 for k > bandwidth), for several right-hand
// sides at once, by Levinson's recursion (Golub & Van Loan, "Matrix Computations",
// the general right-hand side form of Algorithm 4.7.3).
//
// The dot products stop at the band, and one pass over the predictor at each step
// updates it and every right-hand side's solution: O(n^2) per right-hand side.
// Systems of generatorMinSize or more take their solutions from the predictor of
// their size instead (ToeplitzInverse), a few transforms each, so that only the
// predictor's recursion remains O(n^2). The constructor allocates for sizes up to
// maxSize and maxRightHandSides; solve never allocates. Double arithmetic, each
// output's operations in a fixed order on every instruction-set path
// (ToeplitzKernels) and the signal library's transform: the same bits everywhere.
// One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/ToeplitzInverse.h"
#include "signal/KernelPath.h"

class ToeplitzSolver {
public:
    ToeplitzSolver(int maxSize, int maxRightHandSides);

    // column: t[0..bandwidth] (t[0] > 0); rhs[r]: size values, overwritten by the
    // solution. Returns false when the matrix proves numerically not positive definite
    // (and leaves the solutions at the last stable size's values, zero beyond; those of
    // generatorMinSize or more not reached, zero).
    bool solve(const double* column, int bandwidth, int size, double* const* rhs,
               int rightHandSides);
    // The same for systems of several sizes with one column (the leading blocks of the
    // largest), in one recursion: rhs[r] holds sizes[r] values. Each solution has the
    // bits of its own solve.
    bool solve(const double* column, int bandwidth, const int* sizes, double* const* rhs, int rightHandSides);

    int maxSize() const { return capacity; }

    // Below it, the recursion's own updates cost less than the transforms.
    static constexpr int generatorMinSize = 512;

private:
    void applyInverse(const double* y, int n, double diagonal, double beta, const int* sizes, double* const* rhs,
                      int rightHandSides);

    kernel_paths::Path path = kernel_paths::fastestPath();
    int capacity;
    int maxRhs;
    std::unique_ptr<double[]> predictor;  // y of the recursion
    std::unique_ptr<double[]> normalised; // r[k] = t[k] / t[0], k = 0..bandwidth
    std::unique_ptr<double[]> solutions;  // maxRhs rows of maxSize
    std::unique_ptr<int[]> sameSizes;     // maxRhs
    // The solutions still growing at a step, and their steps' new last values.
    std::unique_ptr<double*[]> activeSolutions;  // maxRhs
    std::unique_ptr<double[]> steps;             // maxRhs
    ToeplitzInverse inverse;
};
