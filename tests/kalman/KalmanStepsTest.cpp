#include "kalman/KalmanSteps.h"

#include "kalman/KalmanTestSupport.h"
#include "kalman/MatrixToolkit.h"

#include <gtest/gtest.h>

#include <limits>
#include <random>
#include <vector>

using kalman::RowMatrix;

namespace {

// The full transition of the model, delay included: the signal companion row, the
// shift of the signal block, the two-tap noise row and the noise shift.
RowMatrix fullTransition(const std::vector<float>& c, const std::vector<float>& nc, int m, int n) {
    RowMatrix f(n, n);
    for (std::size_t i = 0; i < c.size(); ++i) f[0][static_cast<int>(i)] = c[i];
    for (int r = 1; r < m; ++r) f[r][r - 1] = 1.0f;
    f[m][m] = nc[0];
    f[m][m + 1] = nc[1];
    f[m + 1][m] = 1.0f;
    return f;
}

std::vector<float> randomVector(std::mt19937& generator, int n) {
    std::uniform_real_distribution<float> value(-2.0f, 2.0f);
    std::vector<float> v(static_cast<std::size_t>(n));
    for (float& x : v) x = value(generator);
    return v;
}

// A random matrix with some exact zeros of either sign and a few subnormals, where a
// careless shortcut would change a sign or a rounding.
RowMatrix randomMatrix(std::mt19937& generator, int n) {
    std::uniform_real_distribution<float> value(-2.0f, 2.0f);
    std::uniform_int_distribution<int> kind(0, 9);
    RowMatrix m(n, n);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) {
            const int k = kind(generator);
            m[r][c] = k == 0 ? 0.0f : k == 1 ? -0.0f : k == 2 ? 1e-40f : value(generator);
        }
    return m;
}

void expectSameMatrix(const RowMatrix& a, const RowMatrix& b, int n) {
    for (int r = 0; r < n; ++r) EXPECT_TRUE(kalman_test::sameBits(a[r], b[r], n)) << "row " << r;
}

struct Shape {
    int p, d;
};

}  // namespace

// The sparse prediction is F * x and F * cov * F' with the full transition.
// Comparison by value: the hand-written steps skip the zero terms of F, which can
// only change the sign of an exact zero.
TEST(KalmanSteps, SparsePredictionEqualsTheFullTransition) {
    for (Shape shape : {Shape{1, 0}, Shape{3, 0}, Shape{4, 5}, Shape{10, 2}}) {
        const std::uint32_t seed = 100u + static_cast<std::uint32_t>(shape.p * 31 + shape.d);
        SCOPED_TRACE(testing::Message() << "p " << shape.p << " d " << shape.d << " seed " << seed);
        std::mt19937 generator(seed);
        const int m = shape.p + shape.d, n = m + 2;
        const std::vector<float> c = randomVector(generator, shape.p);
        const std::vector<float> nc = randomVector(generator, 2);
        const RowMatrix f = fullTransition(c, nc, m, n);

        const std::vector<float> x = randomVector(generator, n);
        std::vector<float> predicted(static_cast<std::size_t>(n));
        kalman::predictState(x.data(), c.data(), nc.data(), shape.p, 2, m, predicted.data());
        for (int r = 0; r < n; ++r) {
            float expected = 0.0f;
            for (int k = 0; k < n; ++k) expected += f[r][k] * x[static_cast<std::size_t>(k)];
            EXPECT_EQ(predicted[static_cast<std::size_t>(r)], expected) << "element " << r;
        }

        const RowMatrix cov = randomMatrix(generator, n);
        RowMatrix scratch(n, n), predictedCov(n, n), product(n, n), expected(n, n);
        kalman::predictCovariance(cov.rows(), c.data(), nc.data(), shape.p, m, n, scratch.rows(),
                                  predictedCov.rows());
        kalman::matMul(f.rows(), cov.rows(), product.rows(), n, n, n, n, 0, 0);
        kalman::matMul(product.rows(), f.rows(), expected.rows(), n, n, n, n, 0, 1);
        for (int r = 0; r < n; ++r)
            for (int col = 0; col < n; ++col) EXPECT_EQ(predictedCov[r][col], expected[r][col]) << r << "," << col;
    }
}

// The covariance update takes only the non-zero columns of I - K H when the result
// cannot differ; it must give the dense product's bits, whatever the values.
TEST(KalmanSteps, CovarianceUpdateMatchesTheDenseProductBitForBit) {
    for (std::uint32_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 generator(seed);
        const int n = std::uniform_int_distribution<int>(3, 40)(generator);
        const int m = std::uniform_int_distribution<int>(1, n - 2)(generator);
        std::vector<float> gain = randomVector(generator, n);
        gain[static_cast<std::size_t>(seed % static_cast<std::uint32_t>(n))] = 0.0f;
        gain[0] = seed % 3 == 0 ? -0.0f : gain[0];
        RowMatrix correction(n, n);
        kalman::buildCorrection(gain.data(), m, n, correction.rows());
        RowMatrix predictedCov = randomMatrix(generator, n);
        RowMatrix fast(n, n), dense(n, n);
        kalman::updateCovariance(correction.rows(), predictedCov.rows(), m, n, fast.rows());
        kalman::updateCovarianceDense(correction.rows(), predictedCov.rows(), n, dense.rows());
        expectSameMatrix(fast, dense, n);
    }
}

// Non-finite values: in the gain the shortcut still applies (the non-finite terms sit
// in the columns it keeps); in the predicted covariance the dense product runs.
TEST(KalmanSteps, CovarianceUpdateWithNonFiniteValues) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (std::uint32_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 generator(seed);
        const int n = 9, m = 4;
        std::vector<float> gain = randomVector(generator, n);
        RowMatrix predictedCov = randomMatrix(generator, n);
        const float special = seed % 2 == 0 ? inf : nan;
        if (seed % 3 == 0)
            gain[seed % n] = special;
        else
            predictedCov[static_cast<int>(seed % n)][static_cast<int>((seed * 7) % n)] = special;
        RowMatrix correction(n, n), fast(n, n), dense(n, n);
        kalman::buildCorrection(gain.data(), m, n, correction.rows());
        kalman::updateCovariance(correction.rows(), predictedCov.rows(), m, n, fast.rows());
        kalman::updateCovarianceDense(correction.rows(), predictedCov.rows(), n, dense.rows());
        expectSameMatrix(fast, dense, n);
    }
}

// A single-element state takes matMul's outer-product case; the update follows it.
TEST(KalmanSteps, CovarianceUpdateOfOneElementFollowsMatMul) {
    RowMatrix correction = kalman_test::makeMatrix({{0.25f}});
    RowMatrix predictedCov = kalman_test::makeMatrix({{-0.0f}});
    RowMatrix fast(1, 1), dense(1, 1);
    kalman::updateCovariance(correction.rows(), predictedCov.rows(), 0, 1, fast.rows());
    kalman::updateCovarianceDense(correction.rows(), predictedCov.rows(), 1, dense.rows());
    expectSameMatrix(fast, dense, 1);
}

TEST(KalmanSteps, CorrectionIsIdentityMinusGainTimesObservation) {
    const float gain[] = {0.5f, 0.25f, 0.125f, -1.0f};
    RowMatrix correction(4, 4);
    kalman::buildCorrection(gain, 2, 4, correction.rows());
    const float expected[4][4] = {{0.5f, 0, -0.5f, 0},
                                  {-0.25f, 1, -0.25f, 0},
                                  {-0.125f, 0, 0.875f, 0},
                                  {1, 0, 1, 1}};
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) EXPECT_EQ(correction[r][c], expected[r][c]) << r << "," << c;
}

TEST(KalmanSteps, GainDividesTheObservedColumnsByTheInnovationVariance) {
    RowMatrix predictedCov = kalman_test::makeMatrix({{2, 0, 1}, {1, 3, 1}, {1, 0, 3}});
    float gain[3] = {};
    kalman::computeGain(predictedCov.rows(), 2, 3, gain);
    // Innovation variance: (3 + 1) + (1 + 2) = 7.
    EXPECT_EQ(gain[0], 3.0f / 7.0f);
    EXPECT_EQ(gain[1], 2.0f / 7.0f);
    EXPECT_EQ(gain[2], 4.0f / 7.0f);
}
