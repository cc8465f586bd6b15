#include "ar/StageTwiddles.h"
#include "signal/PortableCosine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr long double pi = 3.141592653589793238462643383279502884L;
constexpr double floatEpsilon = 0x1p-24;

void expectSame(const StageTwiddles& a, const StageTwiddles& b)
{
    EXPECT_EQ(a.cos1, b.cos1);
    EXPECT_EQ(a.sin1, b.sin1);
    EXPECT_EQ(a.cos3, b.cos3);
    EXPECT_EQ(a.sin3, b.sin3);
}

long double errorAgainst(const StageTwiddles& w, long double angle)
{
    return std::max({std::fabs(w.cos1 - std::cos(angle)), std::fabs(w.sin1 - std::sin(angle)),
                     std::fabs(w.cos3 - std::cos(3.0L * angle)),
                     std::fabs(w.sin3 - std::sin(3.0L * angle))});
}

// Largest error of the twiddles j = 0 .. size/4 - 1 over every stage from 16 to n.
template <class TwiddleOfStage>
long double worstTwiddleError(int n, TwiddleOfStage twiddles)
{
    long double worst = 0.0L;
    for (int size = 16; size <= n; size *= 2) {
        const StageTwiddles step = StageTwiddles::forStage(n, size);
        twiddles(step, size / 4, [&](int j, const StageTwiddles& w) {
            worst = std::max(worst, errorAgainst(w, 2.0L * pi * j / size));
        });
    }
    return worst;
}

}  // namespace

TEST(StageTwiddles, StartIsNarrowedFrom64BitValues)
{
    const double a = 6.283185307179586 / 16.0;
    const StageTwiddles start = StageTwiddles::start(8);
    EXPECT_EQ(start.cos1, static_cast<float>(standardLib::cosine(a)));
    EXPECT_EQ(start.sin1, static_cast<float>(standardLib::sine(a)));
    EXPECT_EQ(start.cos3, static_cast<float>(standardLib::cosine(3.0 * a)));
    EXPECT_EQ(start.sin3, static_cast<float>(standardLib::sine(3.0 * a)));
}

TEST(StageTwiddles, EachStageHoldsTheStartDoubledOncePerHalving)
{
    for (int n : {4, 64, 65536}) {
        SCOPED_TRACE(n);
        StageTwiddles expected = StageTwiddles::start(n);
        for (int size = n; size >= 4; size /= 2) {
            expected = expected.doubled();
            expectSame(StageTwiddles::forStage(n, size), expected);
        }
    }
}

TEST(StageTwiddles, DoublingUsesTheFloatDoubleAngleFormulas)
{
    const StageTwiddles w{0.8f, 0.6f, -0.28f, 0.96f};
    const StageTwiddles twice = w.doubled();
    EXPECT_EQ(twice.sin1, 2.0f * 0.6f * 0.8f);
    EXPECT_EQ(twice.cos1, 1.0f - 2.0f * 0.6f * 0.6f);
    EXPECT_EQ(twice.sin3, 2.0f * 0.96f * -0.28f);
    EXPECT_EQ(twice.cos3, 1.0f - 2.0f * 0.96f * 0.96f);
}

TEST(StageTwiddles, MultiplesFollowTheBinaryDigits)
{
    const StageTwiddles step = StageTwiddles::forStage(1024, 256);
    expectSame(step.multiple(0), StageTwiddles{});
    expectSame(step.multiple(1), step);
    expectSame(step.multiple(4), step.doubled().doubled());
    // 6 = 2 + 4: the identity turned by 2e, then by 4e.
    expectSame(step.multiple(6), StageTwiddles{}.rotatedBy(step.doubled()).rotatedBy(
                                     step.doubled().doubled()));
}

// Each twiddle of j < 2^14 at n = 65536 takes at most 15 doublings of the narrowed start
// and 14 angle additions, each adding a few float roundings: 32 roundings of 2^-24
// bound it. Measured: 5.8e-7.
TEST(StageTwiddles, TwiddleErrorAt65536StaysWithinThirtyTwoRoundings)
{
    const long double worst = worstTwiddleError(65536, [](const StageTwiddles& step, int count,
                                                          auto check) {
        for (int j = 0; j < count; ++j) check(j, step.multiple(j));
    });
    RecordProperty("worstTwiddleError", std::to_string(static_cast<double>(worst)));
    EXPECT_LT(worst, 32.0 * floatEpsilon);
}

// The alternative the binary digits avoid: one angle addition per j drifts, since the
// roundings of cos near 1.0f are biased and add up over the 8191 steps of the top stage.
TEST(StageTwiddles, SteppingOneAngleAtATimeWouldDriftAt65536)
{
    const long double worst = worstTwiddleError(65536, [](const StageTwiddles& step, int count,
                                                          auto check) {
        StageTwiddles w;
        for (int j = 0; j < count; ++j, w = w.rotatedBy(step)) check(j, w);
    });
    EXPECT_GT(worst, 1e-4);
}
