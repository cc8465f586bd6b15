// The least-squares fill near a recording's end against a dense solve of the same
// problem: the gap's samples that minimise the prediction errors lying wholly within
// the recording (forward errors when it ends after the gap, backward errors when it
// starts before it), by the normal equations and Gaussian elimination.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "inpaint/EdgeLeastSquares.h"
#include "inpaint/ToeplitzSolver.h"

namespace {

constexpr int order = 6;

// A stable prediction error filter from reflection coefficients (step-up recursion).
std::vector<double> model()
{
    const double reflections[order] = {0.6, -0.4, 0.3, -0.2, 0.1, 0.05};
    std::vector<double> a(order + 1, 0.0);
    a[0] = 1.0;
    for (int m = 1; m <= order; ++m) {
        const std::vector<double> previous = a;
        for (int i = 1; i < m; ++i) a[i] = previous[i] + reflections[m - 1] * previous[m - i];
        a[m] = reflections[m - 1];
    }
    return a;
}

// Solves the dense system m x = b in place (Gaussian elimination, partial pivoting).
std::vector<double> solveDense(std::vector<std::vector<double>> m, std::vector<double> b)
{
    const int n = static_cast<int>(b.size());
    for (int col = 0; col < n; ++col) {
        int pivot = col;
        for (int row = col + 1; row < n; ++row)
            if (std::fabs(m[row][col]) > std::fabs(m[pivot][col])) pivot = row;
        std::swap(m[col], m[pivot]);
        std::swap(b[col], b[pivot]);
        for (int row = col + 1; row < n; ++row) {
            const double f = m[row][col] / m[col][col];
            for (int j = col; j < n; ++j) m[row][j] -= f * m[col][j];
            b[row] -= f * b[col];
        }
    }
    std::vector<double> x(n);
    for (int i = n - 1; i >= 0; --i) {
        double sum = b[i];
        for (int j = i + 1; j < n; ++j) sum -= m[i][j] * x[j];
        x[i] = sum / m[i][i];
    }
    return x;
}

// The dense least-squares fill of x[gap, gap + length) from the errors whose samples
// all lie in [knownFrom, knownTo): e = sum_j a[j] x[anchor -/+ j].
std::vector<double> denseFill(const std::vector<double>& a, const std::vector<double>& x, int gap, int length,
                              int knownFrom, int knownTo, bool backwards)
{
    std::vector<std::vector<double>> normal(length, std::vector<double>(length, 0.0));
    std::vector<double> rhs(length, 0.0);
    for (int anchor = knownFrom; anchor < knownTo; ++anchor) {
        const int first = backwards ? anchor : anchor - order, last = backwards ? anchor + order : anchor;
        if (first < knownFrom || last >= knownTo) continue;
        std::vector<double> row(length, 0.0);
        double known = 0.0;
        for (int j = 0; j <= order; ++j) {
            const int at = backwards ? anchor + j : anchor - j;
            if (at >= gap && at < gap + length) row[at - gap] += a[j];
            else known += a[j] * x[at];
        }
        for (int i = 0; i < length; ++i) {
            for (int k = 0; k < length; ++k) normal[i][k] += row[i] * row[k];
            rhs[i] -= row[i] * known;
        }
    }
    return solveDense(normal, rhs);
}

void expectDenseFill(int knownFrom, int knownTo, bool backwards)
{
    constexpr int size = 200, gap = 80, length = 30;
    std::mt19937 generator(5);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<double> x(size);
    for (double& v : x) v = noise(generator);
    std::fill(x.begin() + gap, x.begin() + gap + length, 0.0);
    const std::vector<double> a = model();
    const std::vector<double> expected = denseFill(a, x, gap, length, knownFrom, knownTo, backwards);

    std::vector<double> column(order + 1, 0.0);  // the model's own autocorrelation
    for (int k = 0; k <= order; ++k)
        for (int m = 0; m + k <= order; ++m) column[k] += a[m] * a[m + k];
    ToeplitzSolver solver(length, 1);
    EdgeLeastSquares edges(length, order);
    edges.refine(a.data(), order, column.data(), solver, x.data(), gap, length, knownFrom, knownTo, length + 5);
    // The iterations stop once the preconditioned residual's energy is 1e-12 of its start.
    for (int i = 0; i < length; ++i) EXPECT_NEAR(x[gap + i], expected[i], 1e-6) << i;
}

TEST(EdgeLeastSquares, NearTheEndMatchesTheDenseFillOfTheForwardErrors)
{
    expectDenseFill(0, 80 + 30 + 4, false);
}

TEST(EdgeLeastSquares, WithNothingAfterTheGapItIsTheExtrapolation)
{
    expectDenseFill(0, 80 + 30, false);
}

TEST(EdgeLeastSquares, NearTheStartMatchesTheDenseFillOfTheBackwardErrors)
{
    expectDenseFill(80 - 3, 200, true);
}

}  // namespace
