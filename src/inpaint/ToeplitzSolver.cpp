#include "inpaint/ToeplitzSolver.h"

#include <algorithm>

#include "inpaint/ToeplitzKernels.h"

ToeplitzSolver::ToeplitzSolver(int maxSize, int maxRightHandSides)
    : capacity(maxSize),
      maxRhs(maxRightHandSides),
      predictor(new double[maxSize]()),
      normalised(new double[maxSize + 1]()),
      solutions(new double[static_cast<std::size_t>(maxSize) * maxRightHandSides]()),
      sameSizes(new int[maxRightHandSides]()),
      activeSolutions(new double*[maxRightHandSides]()),
      steps(new double[maxRightHandSides]()),
      inverse(generatorMinSize, maxSize)
{
}

using namespace inpaint_kernels;
using namespace kernel_paths;

bool ToeplitzSolver::solve(const double* column, int bandwidth, int size, double* const* rhs,
                           int rightHandSides)
{
    std::fill_n(sameSizes.get(), rightHandSides, size);
    return solve(column, bandwidth, sameSizes.get(), rhs, rightHandSides);
}

// A system's solution depends only on the column up to its own size, and the
// predictor's recursion is the same for all: each small right-hand side takes the
// steps below its size, each large one the inverse from the predictor of its size,
// the predictor the steps below the largest.
bool ToeplitzSolver::solve(const double* column, int bandwidth, const int* sizes, double* const* rhs,
                           int rightHandSides)
{
    if (rightHandSides <= 0) return true;
    const int size = *std::max_element(sizes, sizes + rightHandSides);
    const int band = std::min(bandwidth, size - 1);
    const double diagonal = column[0];
    for (int k = 1; k <= band; ++k) normalised[k] = column[k] / diagonal;
    const double* r = normalised.get();
    double* y = predictor.get();
    const auto large = [&](int s) { return sizes[s] >= generatorMinSize; };
    for (int s = 0; s < rightHandSides; ++s) {
        if (large(s)) continue;
        double* x = solutions.get() + static_cast<std::size_t>(s) * capacity;
        std::fill(x, x + sizes[s], 0.0);
        x[0] = rhs[s][0] / diagonal;
    }
    bool stable = true;
    double alpha = band >= 1 ? -r[1] : 0.0;
    double beta = 1.0;
    if (size > 1) y[0] = alpha;
    int k = 1;
    for (; k < size; ++k) {
        beta = (1.0 - alpha * alpha) * beta;
        if (!(beta > 0.0)) { stable = false; break; }
        applyInverse(y, k + 1, diagonal, beta, sizes, rhs, rightHandSides);
        const int terms = std::min(k, band);
        // Every dot product reads the vectors as they were; one pass then updates them all.
        int active = 0;
        for (int s = 0; s < rightHandSides; ++s) {
            if (k >= sizes[s] || large(s)) continue;
            double* x = solutions.get() + static_cast<std::size_t>(s) * capacity;
            activeSolutions[active] = x;
            steps[active++] = (rhs[s][k] / diagonal - bandedDot(path, r, x, k, terms)) / beta;
        }
        const bool predictorGrows = k + 1 < size;
        if (predictorGrows) {
            const double next = k + 1 <= band ? r[k + 1] : 0.0;
            alpha = -(next + bandedDot(path, r, y, k, terms)) / beta;
        }
        levinsonStep(path, y, k, predictorGrows, alpha, activeSolutions.get(), steps.get(), active);
        for (int s = 0; s < active; ++s) activeSolutions[s][k] = steps[s];
        if (predictorGrows) y[k] = alpha;
    }
    for (int s = 0; s < rightHandSides; ++s) {
        if (!large(s)) std::copy_n(solutions.get() + static_cast<std::size_t>(s) * capacity, sizes[s], rhs[s]);
        else if (sizes[s] > k) std::fill_n(rhs[s], sizes[s], 0.0);  // never reached
    }
    return stable;
}

// The large systems of size n, from the predictor y[0 .. n - 1) and its error beta.
void ToeplitzSolver::applyInverse(const double* y, int n, double diagonal, double beta, const int* sizes,
                                  double* const* rhs, int rightHandSides)
{
    if (n < generatorMinSize || std::find(sizes, sizes + rightHandSides, n) == sizes + rightHandSides) return;
    inverse.setPredictor(y, n, diagonal, beta);
    for (int s = 0; s < rightHandSides; ++s)
        if (sizes[s] == n) inverse.apply(rhs[s]);
}
