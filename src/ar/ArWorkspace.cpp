#include "ar/ArWorkspace.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "ar/ArRecursions.h"

ArWorkspace::ArWorkspace(int modelCapacity, int gapCapacity)
    : modelCapacity_(modelCapacity),
      gapCapacity_(gapCapacity),
      coefficientLags_(modelCapacity + 1),
      spare_(2 * modelCapacity),
      rightHandSide_(gapCapacity),
      solution_(gapCapacity),
      toeplitzRow_(gapCapacity),
      toeplitzScratch_(gapCapacity),
      reversedContext_(2 * modelCapacity)
{
    clear();
}

void ArWorkspace::clear()
{
    std::fill(spare_.begin(), spare_.end(), 0.0);
    std::fill(rightHandSide_.begin(), rightHandSide_.end(), 0.0);
    std::fill(solution_.begin(), solution_.end(), 0.0);
    std::fill(toeplitzRow_.begin(), toeplitzRow_.end(), 0.0);
    std::fill(toeplitzScratch_.begin(), toeplitzScratch_.end(), 0.0);
    std::fill_n(coefficientLags_.begin(), modelCapacity_, 0.0);
    std::memset(&coefficientLags_[modelCapacity_], 0, 1);
    const auto reversedToClear = std::min<std::size_t>(gapCapacity_, reversedContext_.size());
    std::fill_n(reversedContext_.begin(), reversedToClear, 0.0f);
}

int ArWorkspace::interpolateGap(float* context, const double* coefficients, int order,
                                int gapLength)
{
    return solveGap(context, coefficients, order, gapLength, order);
}

void ArWorkspace::interpolateGapForward(float* context, const double* coefficients, int order,
                                        int gapLength, int contextLimit)
{
    const int code =
        solveGap(context, coefficients, order, gapLength, std::min(order, contextLimit));
    if (code != 0) std::printf(" error in lsar: %d\n", code);
}

void ArWorkspace::interpolateGapBackward(float* context, const double* coefficients, int order,
                                         int gapLength, int contextLimit)
{
    // b is symmetric in time, so the mirrored problem is the forward one on the
    // time-reversed context: the right side becomes the long left context.
    const int m = order;
    const int s = std::min(m, contextLimit);
    float* reversed = reversedContext_.data();
    for (int i = 0; i < m + s; ++i) reversed[i] = context[2 * m - 1 - i];
    interpolateGapForward(reversed, coefficients, m, gapLength, s);
    for (int i = 0; i < gapLength; ++i) context[i] = reversed[gapLength - 1 - i];
}

int ArWorkspace::solveGap(float* context, const double* coefficients, int order, int gapLength,
                          int rightContextLimit)
{
    const int m = order;
    const int L = gapLength;
    double* b = coefficientLags_.data();
    double* rhs = rightHandSide_.data();
    autocorrelate(coefficients, m + 1, b, m);

    const int c = std::min(L, m);
    // Left context: each of the first c gap positions sees the known samples within
    // m lags to its left.
    for (int i = 0; i < c; ++i) {
        double sum = 0.0;
        for (int j = 0; j < m - i; ++j) sum += static_cast<double>(context[i + j]) * b[m - j];
        rhs[i] = -sum;
    }
    for (int i = m; i < L; ++i) rhs[i] = 0.0;
    // Right context: the last c gap positions; q is the distance to the first sample
    // after the gap. Lags beyond m are zero and are not read.
    const int offset = L > m ? L - m : 0;
    for (int r = 0; r < c; ++r) {
        const int q = c - r;
        const int last = std::min(rightContextLimit - 1, m - q);
        double sum = 0.0;
        for (int j = 0; j <= last; ++j) sum += static_cast<double>(context[m + j]) * b[q + j];
        rhs[offset + r] -= sum;
    }
    for (int i = 0; i < L; ++i) toeplitzRow_[i] = i <= m ? b[i] : 0.0;

    const int code = solveToeplitz(toeplitzRow_.data(), rhs, L, solution_.data(),
                                   toeplitzScratch_.data());
    // A failed solve still delivers whatever the solution holds.
    for (int i = 0; i < L; ++i) context[i] = static_cast<float>(solution_[i]);
    return code;
}

int ArWorkspace::solveToeplitz(const double* row, const double* rhs, int size, double* x,
                               double* scratch)
{
    const double inv = 1.0 / row[0];
    if (size <= 1) return -1;
    if (std::fabs(row[0]) < 1e-10) return -2;
    std::fill_n(x, size, 0.0);
    std::fill_n(scratch, size, 0.0);

    x[0] = inv * rhs[0];
    double delta = 1.0;
    for (int k = 0; k <= size - 2; ++k) {
        double forwardSum = 0.0;
        double solutionSum = 0.0;
        for (int j = 1; j <= k; ++j) {
            forwardSum += row[j] * scratch[k - j] * inv;
            solutionSum += x[j] * row[k + 1 - j] * inv;
        }
        const double a = row[k + 1] * inv - forwardSum;
        const double bk = (rhs[k + 1] - row[k + 1] * x[0]) * inv - solutionSum;
        const double g = a / delta;
        scratch[k] = g;
        // Update the forward predictor from both ends at once; the middle element of
        // an odd length is updated once.
        for (int lo = 0, hi = k - 1; lo <= hi; ++lo, --hi) {
            const double low = scratch[lo];
            const double high = scratch[hi];
            scratch[lo] = low - g * high;
            if (lo != hi) scratch[hi] = high - g * low;
        }
        delta = delta - a * g;
        if (std::fabs(delta) < 1e-10) return -2;
        const double xk = bk / delta;
        x[k + 1] = xk;
        for (int j = 0; j <= k; ++j) x[j] = x[j] - scratch[k - j] * xk;
    }
    return 0;
}
