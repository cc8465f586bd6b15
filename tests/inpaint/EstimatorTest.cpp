// The fast estimators and solvers against the plain references.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "inpaint/BurgEstimator.h"
#include "inpaint/NormalProduct.h"
#include "inpaint/ReferenceInpainters.h"
#include "inpaint/ToeplitzSolver.h"

namespace {

std::vector<double> colouredNoise(int count, unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<double> x(count);
    double y1 = 0.0, y2 = 0.0;
    for (double& v : x) {  // a resonance: two poles near 0.05 cycles per sample
        v = noise(generator) + 1.8 * y1 - 0.95 * y2;
        y2 = y1;
        y1 = v;
    }
    return x;
}

// Relative tolerance of a few thousand roundings in double.
constexpr double closeEnough = 1e-9;

TEST(BurgEstimator, OneStretchMatchesThePlainBurg)
{
    const auto x = colouredNoise(3000, 7);
    BurgEstimator burg(3000, 1, 40);
    burg.begin(40);
    burg.add(x.data(), 3000);
    const double* a = burg.model();
    const auto reference = inpaint_reference::burgModel(x, 40);
    for (int i = 0; i <= 40; ++i) EXPECT_NEAR(a[i], reference[i], closeEnough) << "coefficient " << i;
}

TEST(ToeplitzSolver, SolvesABandedSystem)
{
    const int n = 300, band = 20;
    std::vector<double> column(band + 1);
    for (int k = 0; k <= band; ++k) column[k] = std::exp(-0.1 * k) * (k == 0 ? 2.0 : 1.0);
    std::vector<double> b(n), x(n);
    for (int i = 0; i < n; ++i) b[i] = std::sin(0.1 * i);
    x = b;
    double* rhs[1] = {x.data()};
    ToeplitzSolver solver(n, 1);
    ASSERT_TRUE(solver.solve(column.data(), band, n, rhs, 1));
    for (int i = 0; i < n; ++i) {
        double sum = 0.0;
        for (int j = std::max(0, i - band); j <= std::min(n - 1, i + band); ++j) sum += column[std::abs(i - j)] * x[j];
        EXPECT_NEAR(sum, b[i], 1e-9) << "row " << i;
    }
}

// Systems of several sizes in one recursion: each solution has the bits of its own
// solve, also where a size lies within the band.
TEST(ToeplitzSolver, SystemsOfSeveralSizesGiveTheBitsOfEachAlone)
{
    const int band = 20;
    std::vector<double> column(band + 1);
    for (int k = 0; k <= band; ++k) column[k] = std::exp(-0.1 * k) * (k == 0 ? 2.0 : 1.0);
    const std::vector<int> sizes = {300, 7, 250, 300, 16};
    std::vector<std::vector<double>> together, alone;
    for (std::size_t s = 0; s < sizes.size(); ++s) {
        std::vector<double> b(sizes[s]);
        for (int i = 0; i < sizes[s]; ++i) b[i] = std::sin(0.1 * i + static_cast<double>(s));
        together.push_back(b);
        alone.push_back(b);
    }
    ToeplitzSolver solver(300, static_cast<int>(sizes.size()));
    std::vector<double*> rows;
    for (auto& row : together) rows.push_back(row.data());
    ASSERT_TRUE(solver.solve(column.data(), band, sizes.data(), rows.data(), static_cast<int>(sizes.size())));
    for (std::size_t s = 0; s < sizes.size(); ++s) {
        double* rhs[1] = {alone[s].data()};
        ASSERT_TRUE(solver.solve(column.data(), band, sizes[s], rhs, 1));
        EXPECT_EQ(together[s], alone[s]) << "size " << sizes[s];
    }
}

// Large systems take their solutions from the predictor's generators: the same
// residuals, and each size's solution the bits of its own solve.
TEST(ToeplitzSolver, LargeSystemsSolvedFromThePredictorMatchTheMatrix)
{
    const int band = 600, largest = 1500;
    std::vector<double> column(band + 1);
    for (int k = 0; k <= band; ++k) column[k] = std::exp(-0.01 * k) * std::cos(0.2 * k) * (k == 0 ? 1.5 : 1.0);
    const std::vector<int> sizes = {largest, 100, ToeplitzSolver::generatorMinSize, 700, largest};
    std::vector<std::vector<double>> b, together, alone;
    for (std::size_t s = 0; s < sizes.size(); ++s) {
        b.emplace_back(sizes[s]);
        for (int i = 0; i < sizes[s]; ++i) b[s][i] = std::sin(0.03 * i * (1.0 + static_cast<double>(s)));
    }
    together = alone = b;
    ToeplitzSolver solver(largest, static_cast<int>(sizes.size()));
    std::vector<double*> rows;
    for (auto& row : together) rows.push_back(row.data());
    ASSERT_TRUE(solver.solve(column.data(), band, sizes.data(), rows.data(), static_cast<int>(sizes.size())));
    for (std::size_t s = 0; s < sizes.size(); ++s) {
        const int n = sizes[s];
        double worst = 0.0;
        for (int i = 0; i < n; ++i) {
            double sum = 0.0;
            for (int j = std::max(0, i - band); j <= std::min(n - 1, i + band); ++j)
                sum += column[std::abs(i - j)] * together[s][j];
            worst = std::max(worst, std::abs(sum - b[s][i]));
        }
        EXPECT_LT(worst, 1e-9) << "size " << n;
        double* rhs[1] = {alone[s].data()};
        ASSERT_TRUE(solver.solve(column.data(), band, n, rhs, 1));
        EXPECT_EQ(together[s], alone[s]) << "size " << n;
    }
}

TEST(NormalProduct, MatchesTheDirectSum)
{
    const auto x = colouredNoise(500, 3);
    std::vector<double> a = {1.0, -1.2, 0.5, 0.1};
    NormalProduct product(500, 3);
    product.setModel(a.data(), 3);
    std::vector<double> q(500);
    product.apply(x.data(), 500, q.data());
    for (int i = 3; i < 497; ++i) {
        double sum = 0.0;
        for (int k = -3; k <= 3; ++k) {
            double c = 0.0;
            for (int m = 0; m + std::abs(k) <= 3; ++m) c += a[m] * a[m + std::abs(k)];
            sum += c * x[i - k];
        }
        EXPECT_NEAR(q[i], sum, 1e-9 * 50) << "sample " << i;
    }
}

}  // namespace
