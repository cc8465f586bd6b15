// The fill under one model from each side of a gap against a dense solve of the same
// weighted least-squares problem, and against the one-model fill when the two models
// are the same.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "inpaint/DenseAlgebra.h"
#include "inpaint/SidedLeastSquares.h"
#include "inpaint/ToeplitzSolver.h"
#include "support/AllocationCounter.h"

namespace {

using inpaint_test::solveDense;
using inpaint_test::stableModel;

constexpr int order = 6, size = 200, gap = 80, length = 30;

std::vector<double> noisySegment()
{
    std::mt19937 generator(9);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<double> x(size);
    for (double& v : x) v = noise(generator);
    std::fill(x.begin() + gap, x.begin() + gap + length, 0.0);
    return x;
}

// The weight of the model before the gap on the error at row r (r = t - gap).
double beforeWeight(int r)
{
    return std::clamp((length + 0.5 * order - r) / double(length + order), 0.0, 1.0);
}

// Minimises sum_t w(t) eBefore(t)^2 + (1 - w(t)) eAfter(t)^2 over the errors that
// touch the gap, by the dense normal equations.
std::vector<double> denseSidedFill(const std::vector<double>& before, const std::vector<double>& after,
                                   const std::vector<double>& x)
{
    std::vector<std::vector<double>> normal(length, std::vector<double>(length, 0.0));
    std::vector<double> rhs(length, 0.0);
    for (int side = 0; side < 2; ++side) {
        const std::vector<double>& a = side == 0 ? before : after;
        for (int t = gap; t < gap + length + order; ++t) {
            const double w = side == 0 ? beforeWeight(t - gap) : 1.0 - beforeWeight(t - gap);
            std::vector<double> row(length, 0.0);
            double known = 0.0;
            for (int k = 0; k <= order; ++k) {
                if (t - k >= gap && t - k < gap + length) row[t - k - gap] += a[k];
                else known += a[k] * x[t - k];
            }
            for (int i = 0; i < length; ++i) {
                for (int j = 0; j < length; ++j) normal[i][j] += w * row[i] * row[j];
                rhs[i] -= w * row[i] * known;
            }
        }
    }
    return solveDense(normal, rhs);
}

std::vector<double> sidedFill(const std::vector<double>& before, const std::vector<double>& after,
                              std::vector<double> x)
{
    ToeplitzSolver solver(length, 1);
    SidedLeastSquares sided(length, order);
    sided.setModels(before.data(), after.data(), order, length);
    // The iterations stop once the preconditioned residual's energy is 1e-12 of its start.
    sided.refine(solver, x.data(), gap, length + 5);
    return {x.begin() + gap, x.begin() + gap + length};
}

TEST(SidedLeastSquares, MatchesTheDenseSolveOfTheWeightedErrors)
{
    const auto before = stableModel({0.6, -0.4, 0.3, -0.2, 0.1, 0.05});
    const auto after = stableModel({-0.7, 0.2, 0.4, 0.1, -0.3, 0.1});
    const auto x = noisySegment();
    const auto expected = denseSidedFill(before, after, x);
    const auto filled = sidedFill(before, after, x);
    for (int i = 0; i < length; ++i) EXPECT_NEAR(filled[i], expected[i], 1e-6) << i;
}

TEST(SidedLeastSquares, WithOneModelOnBothSidesItIsTheOneModelFill)
{
    const auto a = stableModel({0.5, 0.3, -0.3, 0.2, 0.1, -0.05});
    const auto x = noisySegment();
    const auto expected = denseSidedFill(a, a, x);
    const auto filled = sidedFill(a, a, x);
    for (int i = 0; i < length; ++i) EXPECT_NEAR(filled[i], expected[i], 1e-9) << i;
}

TEST(SidedLeastSquares, RefiningAllocatesNothing)
{
    const auto before = stableModel({0.6, -0.4, 0.3, -0.2, 0.1, 0.05});
    const auto after = stableModel({-0.7, 0.2, 0.4, 0.1, -0.3, 0.1});
    auto x = noisySegment();
    ToeplitzSolver solver(length, 1);
    SidedLeastSquares sided(length, order);
    const auto allocations = testsupport::allocationsDuring([&] {
        sided.setModels(before.data(), after.data(), order, length);
        sided.refine(solver, x.data(), gap, 10);
    });
    EXPECT_EQ(allocations, 0u);
}

}  // namespace
