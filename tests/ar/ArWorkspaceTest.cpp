#include "ar/ArWorkspace.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "support/AllocationCounter.h"

namespace {

// The least-squares AR interpolation problem solved densely in long double: the
// unknowns minimise the sum of squared prediction errors e(t) = sum_k a_k y(t-k)
// over every t whose error involves a gap sample. y = left (m) | gap (L) | right (m).
std::vector<double> denseLeastSquares(const std::vector<double>& a, const std::vector<float>& left,
                                      const std::vector<float>& right, int gap)
{
    const int m = static_cast<int>(a.size()) - 1;
    const int total = 2 * m + gap;
    auto known = [&](int index) -> long double {
        if (index < m) return left[index];
        return right[index - m - gap];
    };
    // Normal equations: for each unknown u, sum_t a_{t-u} * e(t) = 0.
    std::vector<std::vector<long double>> sys(gap, std::vector<long double>(gap + 1, 0.0L));
    for (int t = m; t < total; ++t) {
        for (int u = 0; u < gap; ++u) {
            const int lagU = t - (m + u);
            if (lagU < 0 || lagU > m) continue;
            for (int k = 0; k <= m; ++k) {
                const int index = t - k;
                if (index >= m && index < m + gap) sys[u][index - m] += a[lagU] * a[k];
                else sys[u][gap] -= a[lagU] * a[k] * known(index);
            }
        }
    }
    for (int col = 0; col < gap; ++col) {
        int pivot = col;
        for (int i = col + 1; i < gap; ++i)
            if (std::fabs(sys[i][col]) > std::fabs(sys[pivot][col])) pivot = i;
        std::swap(sys[col], sys[pivot]);
        for (int i = col + 1; i < gap; ++i) {
            const long double f = sys[i][col] / sys[col][col];
            for (int j = col; j <= gap; ++j) sys[i][j] -= f * sys[col][j];
        }
    }
    std::vector<double> x(gap);
    for (int i = gap - 1; i >= 0; --i) {
        long double s = sys[i][gap];
        for (int j = i + 1; j < gap; ++j) s -= sys[i][j] * x[j];
        x[i] = static_cast<double>(s / sys[i][i]);
    }
    return x;
}

std::vector<float> contextOf(const std::vector<float>& left, const std::vector<float>& right, int gap)
{
    std::vector<float> context(left);
    context.insert(context.end(), right.begin(), right.end());
    if (static_cast<int>(context.size()) < gap) context.resize(gap, 0.0f);
    return context;
}

struct Problem {
    std::vector<double> a;
    std::vector<float> left, right;
};

// A stable model (a damped resonance plus small higher terms) and random context.
Problem randomProblem(int m, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
    std::uniform_real_distribution<double> small(-0.05, 0.05);
    Problem p;
    p.a.assign(m + 1, 0.0);
    p.a[0] = 1.0;
    for (int j = 1; j <= m; ++j) p.a[j] = small(rng);
    if (m >= 2) { p.a[1] = -1.6; p.a[2] = 0.8; }
    for (int i = 0; i < m; ++i) { p.left.push_back(sample(rng)); p.right.push_back(sample(rng)); }
    return p;
}

TEST(ArWorkspace, FirstDifferenceModelDrawsAStraightLine)
{
    ArWorkspace workspace(4, 4);
    const double a[] = {1.0, -1.0};
    float context[2] = {1.0f, 4.0f};
    EXPECT_EQ(workspace.interpolateGap(context, a, 1, 2), 0);
    EXPECT_EQ(context[0], 2.0f);
    EXPECT_EQ(context[1], 3.0f);
}

TEST(ArWorkspace, GapOfZeroWritesNothingAndReportsMinusOne)
{
    ArWorkspace workspace(4, 4);
    const double a[] = {1.0, -1.0};
    float context[2] = {1.0f, 4.0f};
    EXPECT_EQ(workspace.interpolateGap(context, a, 1, 0), -1);
    EXPECT_EQ(context[0], 1.0f);
    EXPECT_EQ(context[1], 4.0f);
}

TEST(ArWorkspace, GapOfOneComesBackAsSilenceFromAFreshWorkspace)
{
    ArWorkspace workspace(4, 4);
    const double a[] = {1.0, -1.0};
    float context[2] = {1.0f, 4.0f};
    EXPECT_EQ(workspace.interpolateGap(context, a, 1, 1), -1);
    EXPECT_EQ(context[0], 0.0f);
}

TEST(ArWorkspace, GapOfTwoIsTheSmallestSolved)
{
    const double row[] = {2.0, -1.0};
    const double rhs[] = {1.0, 4.0};
    double x[2] = {}, scratch[2] = {};
    EXPECT_EQ(ArWorkspace::solveToeplitz(row, rhs, 2, x, scratch), 0);
    EXPECT_DOUBLE_EQ(x[0], 2.0);
    EXPECT_DOUBLE_EQ(x[1], 3.0);
    EXPECT_EQ(scratch[0], -0.5);  // one round, k = 0: G = A / delta
}

TEST(SolveToeplitz, SingularLeadingBlockStopsAtFirstRound)
{
    const double row[] = {1.0, 1.0};
    const double rhs[] = {3.0, 5.0};
    double x[2] = {-9.0, -9.0}, scratch[2] = {};
    EXPECT_EQ(ArWorkspace::solveToeplitz(row, rhs, 2, x, scratch), -2);
    EXPECT_EQ(x[0], 3.0);  // inv * rhs[0]
    EXPECT_EQ(x[1], 0.0);
}

TEST(SolveToeplitz, SizeOneAndTinyDiagonalLeaveTheSolutionUntouched)
{
    const double rhs[] = {1.0, 1.0};
    double x[2] = {-9.0, -9.0}, scratch[2] = {};
    const double row[] = {2.0, 0.1};
    EXPECT_EQ(ArWorkspace::solveToeplitz(row, rhs, 1, x, scratch), -1);
    const double tiny[] = {1e-11, 0.1};
    EXPECT_EQ(ArWorkspace::solveToeplitz(tiny, rhs, 2, x, scratch), -2);
    EXPECT_EQ(x[0], -9.0);
    EXPECT_EQ(x[1], -9.0);
}

TEST(ArWorkspace, GapSolveEqualsDenseLeastSquares)
{
    for (int m : {1, 2, 5, 16}) {
        for (int gap : {2, 3, m, 2 * m, 3 * m + 1}) {
            if (gap < 2) continue;
            SCOPED_TRACE(testing::Message() << "m=" << m << " gap=" << gap);
            const Problem p = randomProblem(m, 100u * m + gap);
            ArWorkspace workspace(m + 1, gap + 1);
            std::vector<float> context = contextOf(p.left, p.right, gap);
            ASSERT_EQ(workspace.interpolateGap(context.data(), p.a.data(), m, gap), 0);
            const std::vector<double> expected = denseLeastSquares(p.a, p.left, p.right, gap);
            for (int i = 0; i < gap; ++i) {
                // The solve runs in double; the result is rounded once to float.
                EXPECT_NEAR(context[i], expected[i], 2e-6 * (1.0 + std::fabs(expected[i])))
                    << "sample " << i;
            }
        }
    }
}

TEST(ArWorkspace, MiddleOfALongGapFollowsFromTheSolveAlone)
{
    // With L >= 2m the positions farther than m from both sides have a zero right
    // side; they still follow the model's continuation from both ends.
    const int m = 3, gap = 8;
    const Problem p = randomProblem(m, 5);
    ArWorkspace workspace(m + 1, gap);
    std::vector<float> context = contextOf(p.left, p.right, gap);
    workspace.interpolateGap(context.data(), p.a.data(), m, gap);
    const std::vector<double> expected = denseLeastSquares(p.a, p.left, p.right, gap);
    for (int i = 0; i < gap; ++i) EXPECT_NEAR(context[i], expected[i], 1e-5);
}

TEST(ArWorkspace, SolveAllocatesNothing)
{
    const int m = 8, gap = 12;
    const Problem p = randomProblem(m, 9);
    ArWorkspace workspace(m + 1, gap);
    std::vector<float> context = contextOf(p.left, p.right, gap);
    EXPECT_EQ(testsupport::allocationsDuring(
                  [&] { workspace.interpolateGap(context.data(), p.a.data(), m, gap); }),
              0u);
}

TEST(ArWorkspace, ForwardWithFullLimitEqualsFullSolveAndPrintsNothing)
{
    const int m = 6, gap = 5;
    const Problem p = randomProblem(m, 21);
    ArWorkspace full(m + 1, gap), forward(m + 1, gap);
    std::vector<float> a = contextOf(p.left, p.right, gap), b = a;
    full.interpolateGap(a.data(), p.a.data(), m, gap);
    testing::internal::CaptureStdout();
    forward.interpolateGapForward(b.data(), p.a.data(), m, gap, 100);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(a, b);
}

TEST(ArWorkspace, ForwardReadsOnlyTheLimitedRightContext)
{
    const int m = 6, gap = 4, limit = 2;
    const Problem p = randomProblem(m, 22);
    ArWorkspace one(m + 1, gap), two(m + 1, gap);
    std::vector<float> a = contextOf(p.left, p.right, gap), b = a;
    for (int j = limit; j < m; ++j) b[m + j] = 1000.0f;  // beyond the limit: never read
    one.interpolateGapForward(a.data(), p.a.data(), m, gap, limit);
    two.interpolateGapForward(b.data(), p.a.data(), m, gap, limit);
    for (int i = 0; i < gap; ++i) EXPECT_EQ(a[i], b[i]);
}

TEST(ArWorkspace, ForwardPrintsTheSolverCode)
{
    ArWorkspace workspace(4, 4);
    const double a[] = {1.0, -1.0};
    float context[2] = {1.0f, 4.0f};
    testing::internal::CaptureStdout();
    workspace.interpolateGapForward(context, a, 1, 1, 32);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " error in lsar: -1\n");
    EXPECT_EQ(context[0], 0.0f);

    testing::internal::CaptureStdout();
    workspace.interpolateGap(context, a, 1, 1);
    workspace.interpolateGapBackward(context, a, 1, 0, 32);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " error in lsar: -1\n");  // from the mirror's forward solve
}

TEST(ArWorkspace, BackwardIsTheForwardSolveOfTheTimeReversedProblem)
{
    const int m = 5, gap = 4, limit = 3;
    const Problem p = randomProblem(m, 33);
    std::vector<float> context = contextOf(p.left, p.right, gap);
    ArWorkspace backward(m + 1, gap);
    backward.interpolateGapBackward(context.data(), p.a.data(), m, gap, limit);

    // Reversed problem: the right side read backwards becomes the left context, the
    // nearest `limit` left samples read backwards become the right context.
    std::vector<float> reversed(2 * m, 0.0f);
    for (int i = 0; i < m; ++i) reversed[i] = p.right[m - 1 - i];
    for (int i = 0; i < limit; ++i) reversed[m + i] = p.left[m - 1 - i];
    ArWorkspace forward(m + 1, gap);
    forward.interpolateGapForward(reversed.data(), p.a.data(), m, gap, limit);
    for (int i = 0; i < gap; ++i) EXPECT_EQ(context[i], reversed[gap - 1 - i]);
}

TEST(ArWorkspace, ClearRestoresTheSilentSolution)
{
    const int m = 2, gap = 3;
    const Problem p = randomProblem(m, 3);
    ArWorkspace workspace(m + 1, gap);
    std::vector<float> context = contextOf(p.left, p.right, gap);
    workspace.interpolateGap(context.data(), p.a.data(), m, gap);
    workspace.clear();
    float one[4] = {0.5f, 0.5f, 0.5f, 0.5f};
    workspace.interpolateGap(one, p.a.data(), m, 1);  // refused: solution as cleared
    EXPECT_EQ(one[0], 0.0f);
}

}  // namespace
