#include "kalman/MatrixToolkit.h"

#include "kalman/KalmanTestSupport.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

using kalman::matMul;
using kalman::RowMatrix;
using kalman_test::makeMatrix;

namespace {

// Expects every element of the first rows by cols of `actual` to equal `expected`
// exactly: the operands are small integers, so every product and sum is exact.
void expectMatrix(const RowMatrix& actual, std::initializer_list<std::initializer_list<float>> expected) {
    int r = 0;
    for (const auto& row : expected) {
        int c = 0;
        for (float v : row) {
            EXPECT_EQ(actual[r][c], v) << "at [" << r << "][" << c << "]";
            ++c;
        }
        ++r;
    }
}

RowMatrix filled(int rows, int cols, float value) {
    RowMatrix m(rows, cols);
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < cols; ++c) m[r][c] = value;
    return m;
}

constexpr float kSentinel = 7.0f;

}  // namespace

// ---- matMul, one test per row of its case table ----

TEST(MatMul, NormalWithOneRowOfBIsTheOuterProduct) {
    RowMatrix a = makeMatrix({{1, 2, 3}});
    RowMatrix b = makeMatrix({{4, 5}});
    RowMatrix c = filled(3, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 3, 1, 1, 2, 0, 0);
    expectMatrix(c, {{4, 5}, {8, 10}, {12, 15}});
}

TEST(MatMul, NormalWithOneColumnOfBIsMatrixTimesVector) {
    RowMatrix a = makeMatrix({{1, 2, 3}, {4, 5, 6}});
    RowMatrix b = makeMatrix({{1, -1, 2}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 3, 3, 1, 0, 0);
    expectMatrix(c, {{5, 11}, {kSentinel, kSentinel}});
}

TEST(MatMul, NormalGeneralProduct) {
    RowMatrix a = makeMatrix({{1, 2, 3}, {4, 5, 6}});
    RowMatrix b = makeMatrix({{1, 2}, {3, 4}, {5, 6}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 3, 3, 2, 0, 0);
    expectMatrix(c, {{22, 28}, {49, 64}});
}

TEST(MatMul, TransposedAWithOneColumnOfAIsVectorTimesMatrix) {
    RowMatrix a = makeMatrix({{1, 2, 3}});
    RowMatrix b = makeMatrix({{1, 2}, {3, 4}, {5, 6}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 3, 1, 3, 2, 1, 0);
    expectMatrix(c, {{22, 28}, {kSentinel, kSentinel}});
}

TEST(MatMul, TransposedAWithOneColumnOfB) {
    RowMatrix a = makeMatrix({{1, 2}, {3, 4}, {5, 6}});
    RowMatrix b = makeMatrix({{1, 0, -1}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 3, 2, 3, 1, 1, 0);
    expectMatrix(c, {{-4, -4}, {kSentinel, kSentinel}});
}

TEST(MatMul, TransposedAGeneralProduct) {
    RowMatrix a = makeMatrix({{1, 2}, {3, 4}, {5, 6}});
    RowMatrix b = makeMatrix({{1, 0, 2}, {0, 1, 1}, {1, 1, 0}});
    RowMatrix c = filled(2, 3, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 3, 2, 3, 3, 1, 0);
    expectMatrix(c, {{6, 8, 5}, {8, 10, 8}});
}

TEST(MatMul, BothTransposedWithOneColumnOfA) {
    RowMatrix a = makeMatrix({{1, 2, 3}});
    RowMatrix b = makeMatrix({{1, 1, 1}, {1, 0, -1}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 3, 1, 2, 3, 1, 1);
    expectMatrix(c, {{6, -2}, {kSentinel, kSentinel}});
}

TEST(MatMul, BothTransposedWithOneColumnOfBSumsOneTerm) {
    RowMatrix a = makeMatrix({{1, 2, 3}, {4, 5, 6}});
    RowMatrix b = makeMatrix({{3}});
    RowMatrix c = filled(2, 3, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 3, 1, 1, 1, 1);
    expectMatrix(c, {{3, 6, 9}, {kSentinel, kSentinel, kSentinel}});
}

TEST(MatMul, BothTransposedGeneralProduct) {
    RowMatrix a = makeMatrix({{1, 2}, {3, 4}, {5, 6}});
    RowMatrix b = makeMatrix({{1, 0, 1}, {2, 1, 0}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 3, 2, 2, 3, 1, 1);
    expectMatrix(c, {{6, 5}, {8, 8}});
}

TEST(MatMul, TransposedBWithOneColumnOfBIsTheOuterProduct) {
    RowMatrix a = makeMatrix({{1, 2}});
    RowMatrix b = makeMatrix({{3}, {4}, {5}});
    RowMatrix c = filled(2, 3, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 1, 3, 1, 0, 1);
    expectMatrix(c, {{3, 4, 5}, {6, 8, 10}});
}

TEST(MatMul, TransposedBGeneralProduct) {
    RowMatrix a = makeMatrix({{1, 2, 3}, {4, 5, 6}});
    RowMatrix b = makeMatrix({{1, 0, 1}, {0, 1, 0}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 3, 2, 3, 0, 1);
    expectMatrix(c, {{4, 2}, {10, 5}});
}

TEST(MatMul, OneRowOfBTakesPrecedenceOverOneColumn) {
    RowMatrix a = makeMatrix({{2, 3}});
    RowMatrix b = makeMatrix({{5}});
    RowMatrix c = filled(2, 1, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 1, 1, 1, 0, 0);
    expectMatrix(c, {{10}, {15}});
}

// ---- matMul, the inputs that leave C untouched ----

TEST(MatMul, TransposeFlagTwoLeavesCUntouched) {
    RowMatrix a = makeMatrix({{1, 2}, {3, 4}});
    RowMatrix b = makeMatrix({{1, 0}, {0, 1}});
    for (auto [transA, transB] : {std::pair{2, 0}, {0, 2}, {-1, 0}, {1, 3}}) {
        RowMatrix c = filled(2, 2, kSentinel);
        matMul(a.rows(), b.rows(), c.rows(), 2, 2, 2, 2, transA, transB);
        expectMatrix(c, {{kSentinel, kSentinel}, {kSentinel, kSentinel}});
    }
}

TEST(MatMul, EmptyBLeavesCUntouched) {
    RowMatrix a = makeMatrix({{1, 2}, {3, 4}});
    RowMatrix b = makeMatrix({{1, 0}, {0, 1}});
    for (auto [rowsB, colsB, transB] : {std::tuple{0, 2, 0}, {0, 2, 1}, {2, 0, 1}}) {
        RowMatrix c = filled(2, 2, kSentinel);
        matMul(a.rows(), b.rows(), c.rows(), 2, 2, rowsB, colsB, 0, transB);
        expectMatrix(c, {{kSentinel, kSentinel}, {kSentinel, kSentinel}});
    }
}

// ---- matMul, order of summation ----

// 1e8 + 1 rounds back to 1e8 in float, so the ascending sum 1e8 + 1 - 1e8 is 0 and
// any other order would give 1.
TEST(MatMul, SumsRunInAscendingOrderFromZero) {
    RowMatrix a = makeMatrix({{1e8f, 1.0f, -1e8f}, {1e8f, 1.0f, -1e8f}});
    RowMatrix b = makeMatrix({{1, 1}, {1, 1}, {1, 1}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 3, 3, 2, 0, 0);
    expectMatrix(c, {{0, 0}, {0, 0}});
    RowMatrix at = makeMatrix({{1e8f, 1e8f}, {1.0f, 1.0f}, {-1e8f, -1e8f}});
    matMul(at.rows(), b.rows(), c.rows(), 3, 2, 3, 2, 1, 0);
    expectMatrix(c, {{0, 0}, {0, 0}});
}

// A sum starts from +0, so a single product of -0 comes out as +0.
TEST(MatMul, SumOfNegativeZeroProductsIsPositiveZero) {
    RowMatrix a = makeMatrix({{-0.0f, -0.0f}, {-0.0f, -0.0f}});
    RowMatrix b = makeMatrix({{1, 1}, {1, 1}});
    RowMatrix c = filled(2, 2, kSentinel);
    matMul(a.rows(), b.rows(), c.rows(), 2, 2, 2, 2, 0, 0);
    EXPECT_FALSE(std::signbit(c[0][0]));
    EXPECT_FALSE(std::signbit(c[1][1]));
}

// The general product against a plain i, j, k loop, bit for bit, on random sizes and
// values: the library's loop order must not change a rounding.
TEST(MatMul, GeneralProductsMatchPlainLoopsBitForBit) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        std::mt19937 generator(seed);
        std::uniform_int_distribution<int> size(2, 17);
        std::uniform_real_distribution<float> value(-3.0f, 3.0f);
        const int rows = size(generator), inner = size(generator), cols = size(generator);
        RowMatrix a(rows, inner), at(inner, rows), b(inner, cols), bt(cols, inner);
        for (int i = 0; i < rows; ++i)
            for (int k = 0; k < inner; ++k) at[k][i] = a[i][k] = value(generator);
        for (int k = 0; k < inner; ++k)
            for (int j = 0; j < cols; ++j) bt[j][k] = b[k][j] = value(generator);
        RowMatrix expected(rows, cols);
        for (int i = 0; i < rows; ++i)
            for (int j = 0; j < cols; ++j)
                for (int k = 0; k < inner; ++k) expected[i][j] += a[i][k] * b[k][j];
        RowMatrix c(rows, cols);
        matMul(a.rows(), b.rows(), c.rows(), rows, inner, inner, cols, 0, 0);
        for (int i = 0; i < rows; ++i) EXPECT_TRUE(kalman_test::sameBits(c[i], expected[i], cols));
        matMul(at.rows(), b.rows(), c.rows(), inner, rows, inner, cols, 1, 0);
        for (int i = 0; i < rows; ++i) EXPECT_TRUE(kalman_test::sameBits(c[i], expected[i], cols));
        matMul(at.rows(), bt.rows(), c.rows(), inner, rows, cols, inner, 1, 1);
        for (int i = 0; i < rows; ++i) EXPECT_TRUE(kalman_test::sameBits(c[i], expected[i], cols));
        matMul(a.rows(), bt.rows(), c.rows(), rows, inner, cols, inner, 0, 1);
        for (int i = 0; i < rows; ++i) EXPECT_TRUE(kalman_test::sameBits(c[i], expected[i], cols));
    }
}

// ---- the element-wise operations ----

TEST(VecDot, SumsInAscendingOrder) {
    const float a[] = {1e8f, 1.0f, -1e8f};
    const float b[] = {1.0f, 1.0f, 1.0f};
    EXPECT_EQ(kalman::vecDot(a, b, 3), 0.0f);
    EXPECT_EQ(kalman::vecDot(a, b, 2), 1e8f);
    EXPECT_EQ(kalman::vecDot(a, b, 0), 0.0f);
}

TEST(MatAdd, AddsAIntoB) {
    RowMatrix a = makeMatrix({{1, 2}, {3, 4}});
    RowMatrix b = makeMatrix({{10, 20}, {30, 40}});
    kalman::matAdd(a.rows(), b.rows(), 2, 2);
    expectMatrix(b, {{11, 22}, {33, 44}});
}

TEST(MatSub, SubtractsAFromB) {
    RowMatrix a = makeMatrix({{1, 2}, {3, 4}});
    RowMatrix b = makeMatrix({{10, 20}, {30, 40}});
    kalman::matSub(a.rows(), b.rows(), 2, 2);
    expectMatrix(b, {{9, 18}, {27, 36}});
}

TEST(VecScale, ScalesIntoOutAndInPlace) {
    float a[] = {1, -2, 3};
    float out[3] = {};
    kalman::vecScale(a, out, 2.0f, 3);
    EXPECT_EQ(out[0], 2.0f);
    EXPECT_EQ(out[1], -4.0f);
    EXPECT_EQ(out[2], 6.0f);
    kalman::vecScale(a, a, -1.0f, 3);
    EXPECT_EQ(a[1], 2.0f);
}

TEST(VecAdd, AddsElementWise) {
    const float a[] = {1, 2, 3};
    const float b[] = {10, 20, 30};
    float out[3] = {};
    kalman::vecAdd(a, b, out, 3);
    EXPECT_EQ(out[0], 11.0f);
    EXPECT_EQ(out[2], 33.0f);
}

TEST(MatIdentity, OverwritesWithTheIdentity) {
    RowMatrix m = filled(3, 3, kSentinel);
    kalman::matIdentity(m.rows(), 3);
    expectMatrix(m, {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
}

TEST(VecOuter, FormsTheSquareOuterProduct) {
    const float a[] = {1, 2};
    const float b[] = {3, -4};
    RowMatrix m = filled(2, 2, kSentinel);
    kalman::vecOuter(a, b, m.rows(), 2);
    expectMatrix(m, {{3, -4}, {6, -8}});
}

TEST(ResetVector, ReplacesWithZeros) {
    std::vector<float> v{1, 2, 3};
    kalman::resetVector(v, 5);
    EXPECT_EQ(v, std::vector<float>(5, 0.0f));
    kalman::resetVector(v, 0);
    EXPECT_TRUE(v.empty());
}

// A matrix released and remade with another row count: the release covers exactly the
// rows the old matrix had (the sanitizer build would report anything else).
TEST(ResetMatrix, ReplacesWithAZeroedMatrixOfTheNewShape) {
    RowMatrix m = filled(4, 2, kSentinel);
    kalman::resetMatrix(m, 2, 5);
    EXPECT_EQ(m.rowCount(), 2);
    EXPECT_EQ(m.colCount(), 5);
    expectMatrix(m, {{0, 0, 0, 0, 0}, {0, 0, 0, 0, 0}});
    kalman::resetMatrix(m, 6, 1);
    EXPECT_EQ(m.rowCount(), 6);
    EXPECT_EQ(m[5][0], 0.0f);
}

TEST(MatFree, LeavesAnEmptyMatrix) {
    RowMatrix m = filled(3, 3, kSentinel);
    kalman::matFree(m);
    EXPECT_EQ(m.rowCount(), 0);
    EXPECT_FALSE(m.isAllocated());
}

// A negative count is no shape at all: C stays as it was on every path.
TEST(MatMulGuard, NegativeCountsLeaveCUntouched) {
    RowMatrix a = makeMatrix({{1, 2, 3}, {4, 5, 6}});
    RowMatrix b = makeMatrix({{1, 2}, {3, 4}, {5, 6}});
    for (const auto& counts : {std::array{2, 3, 3, -2}, std::array{-2, 3, 3, 2},
                               std::array{2, -3, 3, 2}, std::array{2, 3, -3, 2}}) {
        for (int transA : {0, 1})
            for (int transB : {0, 1}) {
                RowMatrix c = filled(3, 3, kSentinel);
                matMul(a.rows(), b.rows(), c.rows(), counts[0], counts[1], counts[2], counts[3],
                       transA, transB);
                expectMatrix(c, {{kSentinel, kSentinel, kSentinel},
                                 {kSentinel, kSentinel, kSentinel},
                                 {kSentinel, kSentinel, kSentinel}});
            }
    }
}
