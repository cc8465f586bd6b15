// The least-squares fill near a recording's end against a dense solve of the same
// problem: the gap's samples that minimise the prediction errors lying wholly within
// the recording (forward errors when it ends after the gap, backward errors when it
// starts before it), by the normal equations and Gaussian elimination.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "inpaint/DenseAlgebra.h"
#include "inpaint/EdgeLeastSquares.h"
#include "inpaint/ToeplitzSolver.h"

namespace {

constexpr int order = 6;

std::vector<double> model()
{
    return inpaint_test::stableModel({0.6, -0.4, 0.3, -0.2, 0.1, 0.05});
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
    return inpaint_test::solveDense(normal, rhs);
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

    const std::vector<double> column = inpaint_test::modelAutocorrelation(a);
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
