#include "ar/ArRecursions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

// Row table over owned storage.
struct RowTable {
    explicit RowTable(int order) : storage(order + 1, std::vector<double>(order + 1, -7.0))
    {
        for (auto& row : storage) rows.push_back(row.data());
    }
    std::vector<std::vector<double>> storage;
    std::vector<double*> rows;
};

// Yule-Walker equations R a = -r solved densely in long double (Gaussian elimination
// with partial pivoting), the independent reference for Levinson-Durbin.
std::vector<long double> yuleWalker(const std::vector<double>& r, int order)
{
    std::vector<std::vector<long double>> m(order, std::vector<long double>(order + 1));
    for (int i = 0; i < order; ++i) {
        for (int j = 0; j < order; ++j) m[i][j] = r[std::abs(i - j)];
        m[i][order] = -static_cast<long double>(r[i + 1]);
    }
    for (int col = 0; col < order; ++col) {
        int pivot = col;
        for (int i = col + 1; i < order; ++i)
            if (std::fabs(m[i][col]) > std::fabs(m[pivot][col])) pivot = i;
        std::swap(m[col], m[pivot]);
        for (int i = col + 1; i < order; ++i) {
            const long double f = m[i][col] / m[col][col];
            for (int j = col; j <= order; ++j) m[i][j] -= f * m[col][j];
        }
    }
    std::vector<long double> a(order + 1);
    a[0] = 1.0L;
    for (int i = order - 1; i >= 0; --i) {
        long double s = m[i][order];
        for (int j = i + 1; j < order; ++j) s -= m[i][j] * a[j + 1];
        a[i + 1] = s / m[i][i];
    }
    return a;
}

// x[t] = 1.5 x[t-1] - 0.7 x[t-2] + e[t]: polynomial 1, -1.5, 0.7.
std::vector<double> ar2Process(int count, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<double> x(count + 200, 0.0);
    for (std::size_t t = 2; t < x.size(); ++t) x[t] = 1.5 * x[t - 1] - 0.7 * x[t - 2] + noise(rng);
    return {x.begin() + 200, x.end()};
}

TEST(Autocorrelate, BiasedSumsInRisingOrder)
{
    const double x[] = {1.0, 2.0, 3.0};
    double lags[3] = {};
    autocorrelate(x, 3, lags, 2);
    EXPECT_EQ(lags[0], 14.0);
    EXPECT_EQ(lags[1], 8.0);
    EXPECT_EQ(lags[2], 3.0);
}

TEST(Autocorrelate, GivesTheBitsOfOneLagAtATimeForAnyLengthAndLag)
{
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (int count : {1, 2, 3, 4, 5, 7, 8, 64, 1023, 1024}) {
        std::vector<double> x(static_cast<std::size_t>(count));
        for (double& v : x) v = value(rng) * (1.0 + 1e-3 * value(rng));
        for (int maxLag : {0, 1, 2, 3, 4, 5, 6, count - 1, count, count + 3, 264}) {
            if (maxLag < 0) continue;
            std::vector<double> lags(static_cast<std::size_t>(maxLag) + 1, -1.0);
            autocorrelate(x.data(), count, lags.data(), maxLag);
            for (int k = 0; k <= maxLag; ++k) {
                double sum = 0.0;
                for (int i = 0; i < count - k; ++i) sum += x[i] * x[i + k];
                ASSERT_EQ(lags[k], sum) << "count " << count << " lag " << k << " of " << maxLag;
            }
        }
    }
}

TEST(Autocorrelate, FloatKeepsFloatSums)
{
    const float x[] = {0.1f, 0.2f, 0.3f, 0.4f};
    float lags[2] = {};
    autocorrelate(x, 4, lags, 1);
    float expected = 0.0f;
    for (int i = 0; i < 3; ++i) expected += x[i] * x[i + 1];
    EXPECT_EQ(lags[1], expected);
}

TEST(Autocorrelate, MaxLagMinusOneDoesNothing)
{
    const double x[] = {1.0, 2.0};
    double lags[1] = {42.0};
    autocorrelate(x, 2, lags, -1);
    EXPECT_EQ(lags[0], 42.0);
}

TEST(LevinsonDurbin, GeometricLagsGiveFirstOrderModel)
{
    const double r[] = {1.0, 0.5, 0.25, 0.125};
    double a[4] = {9, 9, 9, 9};
    double error = 0.0;
    levinsonDurbin(r, a, 3, &error);
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], -0.5);
    EXPECT_EQ(a[2], 0.0);
    EXPECT_EQ(a[3], 0.0);
    EXPECT_EQ(error, 0.75);
}

TEST(LevinsonDurbin, OrderZeroStillWritesTheFirstOrder)
{
    const double r[] = {2.0, 1.0};
    double a[2] = {9, 9};
    double error = 0.0;
    levinsonDurbin(r, a, 0, &error);
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], -0.5);
    EXPECT_EQ(error, 2.0 - 0.25 * 2.0);
}

TEST(LevinsonDurbin, FirstReflectionOfMinusOneZeroesTheErrorAndStopsNext)
{
    // k(1) = -1 has no bound test; the next step divides by E = 0 and gives an
    // infinite reflection coefficient, which the stability test catches.
    const double r[] = {1.0, 1.0, 0.5};
    double a[3] = {9, 9, 9};
    double error = 5.0;
    levinsonDurbin(r, a, 2, &error);
    EXPECT_EQ(a[1], -1.0);
    EXPECT_EQ(a[2], 0.0);
    EXPECT_EQ(error, 0.0);
}

TEST(LevinsonDurbin, ReflectionOfExactlyOneStopsAtThePreviousOrder)
{
    // k(1) = 0, E = 1, then a = r[2] = -1 gives k(2) = 1.0 exactly.
    const double r[] = {1.0, 0.0, -1.0, 0.3};
    double a[4] = {9, 9, 9, 9};
    double error = 0.0;
    levinsonDurbin(r, a, 3, &error);
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], 0.0);
    EXPECT_EQ(a[2], 0.0);
    EXPECT_EQ(a[3], 0.0);
    EXPECT_EQ(error, 1.0);
}

TEST(LevinsonDurbin, EqualsDirectYuleWalkerSolve)
{
    const std::vector<double> x = ar2Process(4000, 7);
    for (int order : {1, 2, 5, 12, 30}) {
        SCOPED_TRACE(order);
        std::vector<double> r(order + 1);
        autocorrelate(x.data(), static_cast<int>(x.size()), r.data(), order);
        std::vector<double> a(order + 2);
        double error = 0.0;
        levinsonDurbin(r.data(), a.data(), order, &error);
        const auto reference = yuleWalker(r, order);
        // Levinson-Durbin is backward stable; on this well-conditioned problem the
        // coefficients agree to a few hundred ulps.
        for (int j = 0; j <= order; ++j)
            EXPECT_NEAR(a[j], static_cast<double>(reference[j]), 1e-11) << "coefficient " << j;
        // E equals r[0] + sum a_j r[j] for the solved model.
        long double expectedError = 0.0L;
        for (int j = 0; j <= order; ++j) expectedError += reference[j] * r[j];
        EXPECT_NEAR(error, static_cast<double>(expectedError), 1e-9 * r[0]);
    }
}

TEST(LevinsonDurbinOrders, KeepsEveryOrderAndItsError)
{
    const std::vector<double> x = ar2Process(2000, 3);
    const int order = 6;
    std::vector<double> r(order + 1);
    autocorrelate(x.data(), static_cast<int>(x.size()), r.data(), order);
    RowTable table(order);
    std::vector<double> errors(order + 1, -1.0);
    levinsonDurbinOrders(r.data(), table.rows.data(), order, errors.data());
    EXPECT_EQ(errors[0], -1.0);  // never written
    EXPECT_EQ(table.rows[0][0], 1.0);
    for (int m = 1; m <= order; ++m) {
        SCOPED_TRACE(m);
        std::vector<double> a(m + 2);
        double error = 0.0;
        levinsonDurbin(r.data(), a.data(), m, &error);
        for (int j = 0; j <= m; ++j) EXPECT_EQ(table.rows[m][j], a[j]);
        EXPECT_EQ(errors[m], error);
    }
}

TEST(LevinsonDurbinOrders, StopZeroesTheStoppedRowAndLeavesTheRest)
{
    const double r[] = {1.0, 0.0, -1.0, 0.3};
    RowTable table(3);
    double errors[4] = {-1, -1, -1, -1};
    levinsonDurbinOrders(r, table.rows.data(), 3, errors);
    EXPECT_EQ(table.rows[2][0], 1.0);   // written before the stability test
    EXPECT_EQ(table.rows[2][1], -7.0);  // as the caller left it
    EXPECT_EQ(table.rows[2][2], 0.0);
    EXPECT_EQ(table.rows[2][3], 0.0);
    EXPECT_EQ(table.rows[3][0], -7.0);  // rows above the stop untouched
    EXPECT_EQ(errors[1], 1.0);
    EXPECT_EQ(errors[2], -1.0);
}

TEST(LevinsonDurbinRows, MatchesOrdersWithoutErrors)
{
    const double r[] = {3.0, 1.2, 0.4, -0.1, 0.05};
    RowTable withErrors(4), without(4);
    double errors[5] = {};
    levinsonDurbinOrders(r, withErrors.rows.data(), 4, errors);
    levinsonDurbinRows(r, without.rows.data(), 4);
    EXPECT_EQ(withErrors.storage, without.storage);
}

TEST(LevinsonDurbinRows, ReturnsTheHighestOrderItCompleted)
{
    const double stable[] = {3.0, 1.2, 0.4, -0.1, 0.05};
    RowTable table(4);
    EXPECT_EQ(levinsonDurbinRows(stable, table.rows.data(), 4), 4);
    EXPECT_EQ(levinsonDurbinRows(stable, table.rows.data(), 0), 1);  // the first order is always formed
    // k1 = 0, then k2 = 1.5: the recursion stops at the second order.
    const double unstable[] = {1.0, 0.0, -1.5, 0.0};
    RowTable stopped(3);
    EXPECT_EQ(levinsonDurbinRows(unstable, stopped.rows.data(), 3), 1);
    EXPECT_EQ(stopped.rows[2][1], -7.0);  // entry 1 of the stopped row untouched
}

TEST(Burg, AllZeroSamplesFailAtStageZero)
{
    const std::vector<double> x(64, 0.0);
    double a[4] = {9, 9, 9, 9};
    EXPECT_EQ(burg(x.data(), 64, a, 3), -1);
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], 0.0);
    EXPECT_EQ(a[2], 0.0);
    EXPECT_EQ(a[3], 0.0);
}

TEST(Burg, OrderOneIsMinusTheFirstReflection)
{
    const double x[] = {1.0, 0.5, -0.25, 0.75};
    double numerator = 0.0, denominator = 0.0;
    for (int i = 0; i < 3; ++i) {
        numerator += x[i] * x[i + 1];
        denominator += x[i + 1] * x[i + 1] + x[i] * x[i];
    }
    double a[2] = {};
    EXPECT_EQ(burg(x, 4, a, 1), 0);
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], -(2.0 * numerator / denominator));
}

TEST(Burg, RecoversLongAr2Process)
{
    const std::vector<double> x = ar2Process(50000, 11);
    double a[3] = {};
    ASSERT_EQ(burg(x.data(), static_cast<int>(x.size()), a, 2), 0);
    // Estimation error of an AR(2) fit over 50000 samples is about 1/sqrt(n) ~ 0.005.
    EXPECT_NEAR(a[1], -1.5, 0.02);
    EXPECT_NEAR(a[2], 0.7, 0.02);
}

TEST(BurgOrders, RowsHoldEachOrderAndRowZeroTheHighest)
{
    const std::vector<double> x = ar2Process(3000, 5);
    const int order = 5;
    RowTable table(order);
    ASSERT_EQ(burgOrders(x.data(), static_cast<int>(x.size()), table.rows.data(), order), 0);
    for (int m = 1; m <= order; ++m) {
        SCOPED_TRACE(m);
        std::vector<double> a(m + 1);
        burg(x.data(), static_cast<int>(x.size()), a.data(), m);
        for (int j = 0; j <= m; ++j) EXPECT_EQ(table.rows[m][j], a[j]);
        for (int j = m + 1; j <= order; ++j) EXPECT_EQ(table.rows[m][j], 0.0);
    }
    EXPECT_EQ(table.storage[0], table.storage[order]);  // row 0 is not the trivial polynomial
}

TEST(BurgOrders, SilenceLeavesLeadingOnesAndZeros)
{
    const std::vector<double> x(32, 0.0);
    RowTable table(3);
    EXPECT_EQ(burgOrders(x.data(), 32, table.rows.data(), 3), -1);
    EXPECT_EQ(table.rows[0][0], 1.0);
    EXPECT_EQ(table.rows[1][0], 1.0);
    EXPECT_EQ(table.rows[1][1], 0.0);
    EXPECT_EQ(table.rows[2][0], 0.0);
}

}  // namespace
