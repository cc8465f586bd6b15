// Solves T x = b for a symmetric positive definite Toeplitz matrix T whose first
// column vanishes beyond a band (t[k] = 0 for k > bandwidth), for several right-hand
// sides at once, by Levinson's recursion (Golub & Van Loan, "Matrix Computations",
// the general right-hand side form of Algorithm 4.7.3).
//
// O(n^2) per solve; the dot products stop at the band, and one pass over the
// predictor at each step updates it and every right-hand side's solution. The
// constructor allocates for sizes up to maxSize and maxRightHandSides; solve never
// allocates. Double arithmetic, each output's operations in a fixed order on every
// instruction-set path (ToeplitzKernels): the same bits everywhere.
// One thread at a time per object.
#pragma once

#include <memory>

#include "signal/KernelPath.h"

class ToeplitzSolver {
public:
    ToeplitzSolver(int maxSize, int maxRightHandSides);

    // column: t[0..bandwidth] (t[0] > 0); rhs[r]: size values, overwritten by the
    // solution. Returns false (and leaves the solutions at the last stable size's
    // values, zero beyond) when the matrix proves numerically not positive definite.
    bool solve(const double* column, int bandwidth, int size, double* const* rhs,
               int rightHandSides);
    // The same for systems of several sizes with one column (the leading blocks of the
    // largest), in one recursion: rhs[r] holds sizes[r] values. Each solution has the
    // bits of its own solve.
    bool solve(const double* column, int bandwidth, const int* sizes, double* const* rhs, int rightHandSides);

    int maxSize() const { return capacity; }

private:
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
};
