#include "signal/Correlation.h"

#include "signal/FftKernels.h"
#include "signal/FftTables.h"

#include "signal/FftTestSupport.h"
#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

namespace {

using ferrotip_test::randomValues;
using standardLib::Correlation;
using standardLib::standard::Correlation_std;

// Exposes the work buffer, to see what a call did to it.
template <typename T>
class ProbedCorrelation : public Correlation_std<T> {
public:
    using Correlation_std<T>::Correlation_std;
    const T* work() const { return this->scratch.get(); }
};

// Direct sums in long double. `circular` wraps indices of y modulo size; otherwise
// y is zero outside 0..length-1. Inputs beyond `size` are ignored, as the transform
// does.
template <typename T>
long double directCorrelation(const std::vector<T>& x, const std::vector<T>& y, int lag, int size,
                              bool circular)
{
    const int lx = std::min<int>(x.size(), size), ly = std::min<int>(y.size(), size);
    long double sum = 0;
    for (int n = 0; n < lx; ++n) {
        int m = n + lag;
        if (circular)
            m = ((m % size) + size) % size;
        if (m >= 0 && m < ly)
            sum += static_cast<long double>(x[n]) * y[m];
    }
    return sum;
}

template <typename T>
long double energy(const std::vector<T>& x)
{
    long double sum = 0;
    for (T v : x)
        sum += static_cast<long double>(v) * v;
    return sum;
}

// Error bound relative to sqrt(Ex * Ey) (Cauchy-Schwarz bounds every lag by it).
// Each result passes a forward transform of each signal, a product and an inverse:
// three graphs of log2(N) levels, each adding a few u per level at worst (the
// transforms' own bound is 2.5 u log2 N at the maximum relative to the norm). We
// allow 4 u log2 N: 4.4e-15 for double and 2.4e-6 for float at N = 1024. Measured
// for the autocorrelation at N = 64 and 1024: 0.08 to 0.32 u log2 N.
template <typename T>
double tolerance(int log2Size)
{
    return 4.0 * std::numeric_limits<T>::epsilon() / 2 * log2Size;
}

template <typename T>
class CorrelationTest : public ::testing::Test {};
using Precisions = ::testing::Types<double, float>;
TYPED_TEST_SUITE(CorrelationTest, Precisions);

// The conjugate product rounds each of its four products and two sums on its own,
// under every compiler target: the expected values take every product through a
// volatile, which no compiler can fuse into the following addition.
TYPED_TEST(CorrelationTest, CrossCorrelationRoundsEveryProductOnItsOwn)
{
    using T = TypeParam;
    constexpr int size = 64;
    const std::vector<T> x = randomValues<T>(size, 31u), y = randomValues<T>(size, 32u);
    std::vector<T> table(size / 4 + 1), spectrumX(x), spectrumY(y);
    int log2Size = 0;
    ASSERT_EQ(standardLib::buildRealCosTable(&log2Size, size, table.data()), 0);
    standardLib::fftRealForward(spectrumX.data(), log2Size, 1, table.data());
    standardLib::fftRealForward(spectrumY.data(), log2Size, 1, table.data());
    const auto rounded = [](T a, T b) {
        volatile T product = a * b;
        return static_cast<T>(product);
    };
    spectrumX[0] = rounded(spectrumX[0], spectrumY[0]);
    spectrumX[1] = rounded(spectrumX[1], spectrumY[1]);
    for (int k = 2; k < size; k += 2) {
        const T xRe = spectrumX[k], xIm = spectrumX[k + 1], yRe = spectrumY[k], yIm = spectrumY[k + 1];
        spectrumX[k] = rounded(xRe, yRe) + rounded(xIm, yIm);
        spectrumX[k + 1] = rounded(xRe, yIm) - rounded(xIm, yRe);
    }
    standardLib::fftRealInverse(spectrumX.data(), log2Size, 1, table.data());

    Correlation_std<T> correlation(size);
    std::vector<T> result(size);
    correlation.crossCorrelate(x.data(), size, y.data(), size, result.data(), 0, size - 1);
    for (int lag = 0; lag < size; ++lag) ASSERT_EQ(result[lag], spectrumX[lag]) << "lag " << lag;
}

TYPED_TEST(CorrelationTest, AutocorrelationOfAnImpulse)
{
    Correlation_std<TypeParam> correlation(64);
    std::vector<TypeParam> impulse(64, TypeParam(0)), result(64, TypeParam(7));
    impulse[0] = 1;
    correlation.autocorrelate(impulse.data(), 64, result.data(), 64);
    // Lag 0 comes out exact; the others are zero up to the inverse transform's
    // twiddle roundings (about 1e-16 in double), not exactly.
    EXPECT_EQ(result[0], TypeParam(1));
    for (int lag = 1; lag < 64; ++lag)
        EXPECT_NEAR(result[lag], 0.0, tolerance<TypeParam>(6)) << "lag " << lag;
}

TYPED_TEST(CorrelationTest, AutocorrelationMatchesDirectSumsCircularAndLinear)
{
    for (unsigned seed : {1u, 2u}) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        Correlation_std<TypeParam> correlation(1024);
        // A full-length signal: circular. A short one with a long zero tail: linear.
        for (int length : {1024, 600}) {
            const auto x = randomValues<TypeParam>(length, seed * 10 + length);
            const int lags = length == 1024 ? 1024 : 1024 - 600;
            std::vector<TypeParam> result(lags);
            correlation.autocorrelate(x.data(), length, result.data(), lags);
            const double bound = tolerance<TypeParam>(10) * energy(x);
            for (int lag = 0; lag < lags; ++lag) {
                const long double circular = directCorrelation(x, x, lag, 1024, true);
                ASSERT_NEAR(result[lag], circular, bound) << "length " << length << " lag " << lag;
                if (length == 600) {
                    ASSERT_EQ(circular, directCorrelation(x, x, lag, 1024, false));
                }
            }
        }
    }
}

TYPED_TEST(CorrelationTest, AutocorrelationWithNoLagsWorksAndWritesNothing)
{
    ProbedCorrelation<TypeParam> correlation(32);
    std::vector<TypeParam> x(32, TypeParam(0)), result(4, TypeParam(7));
    x[0] = 2;
    correlation.autocorrelate(x.data(), 32, result.data(), 0);
    EXPECT_EQ(result, std::vector<TypeParam>(4, TypeParam(7)));
    // The work was done: lag 0 of the impulse of height 2 is in the work buffer.
    EXPECT_NEAR(correlation.work()[0], 4.0, 1e-6);
}

TYPED_TEST(CorrelationTest, FullLengthAutocorrelationWraps)
{
    Correlation_std<TypeParam> correlation(16);
    std::vector<TypeParam> x(16, TypeParam(0));
    x[0] = 3;
    x[15] = 5;
    std::vector<TypeParam> result(2);
    correlation.autocorrelate(x.data(), 16, result.data(), 2);
    // Lag 1: x[15] * x[0] by the wrap; the linear sum would be 0.
    EXPECT_NEAR(result[1], 15.0, tolerance<TypeParam>(4) * 34);
    EXPECT_NEAR(result[0], 34.0, tolerance<TypeParam>(4) * 34);
}

TYPED_TEST(CorrelationTest, LengthBeyondSizeUsesTheFirstSizeSamples)
{
    Correlation_std<TypeParam> correlation(64);
    const auto x = randomValues<TypeParam>(100, 3);
    std::vector<TypeParam> longer(64), exact(64);
    correlation.autocorrelate(x.data(), 100, longer.data(), 64);
    correlation.autocorrelate(x.data(), 64, exact.data(), 64);
    EXPECT_EQ(longer, exact);
}

TYPED_TEST(CorrelationTest, CrossCorrelationPeaksAtTheDelay)
{
    const unsigned seed = 4;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    Correlation_std<TypeParam> correlation(256);
    const auto x = randomValues<TypeParam>(100, seed);
    std::vector<TypeParam> y(105, TypeParam(0));
    std::copy(x.begin(), x.end(), y.begin() + 5);  // y lags x by 5
    std::vector<TypeParam> result(41);
    correlation.crossCorrelate(x.data(), 100, y.data(), 105, result.data(), -20, 20);
    const auto peak = std::max_element(result.begin(), result.end()) - result.begin();
    EXPECT_EQ(peak - 20, 5);
}

TYPED_TEST(CorrelationTest, SymmetricLagRangeMatchesDirectSums)
{
    const unsigned seed = 5;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    Correlation_std<TypeParam> correlation(128);
    const auto x = randomValues<TypeParam>(60, seed), y = randomValues<TypeParam>(50, seed + 1);
    std::vector<TypeParam> result(8, TypeParam(99));
    correlation.crossCorrelate(x.data(), 60, y.data(), 50, result.data(), -3, 3);
    EXPECT_EQ(result[7], TypeParam(99));  // exactly 7 values
    const double bound = tolerance<TypeParam>(7) * std::sqrt(double(energy(x) * energy(y)));
    for (int i = 0; i < 7; ++i)
        EXPECT_NEAR(result[i], directCorrelation(x, y, i - 3, 128, false), bound) << "lag " << i - 3;
    // Index 3 is lag 0, written by both halves with the same value.
    EXPECT_NEAR(result[3], directCorrelation(x, y, 0, 128, false), bound);
}

TYPED_TEST(CorrelationTest, WideLagRangesMatchDirectSums)
{
    // Negative lags come from the conjugate spectrum; check all of them, linear
    // (lengths fit without wrap) and circular (full-length signals).
    for (int length : {40, 64}) {
        const unsigned seed = 60 + length;
        SCOPED_TRACE(::testing::Message() << "length " << length << " seed " << seed);
        Correlation_std<TypeParam> correlation(64);
        const auto x = randomValues<TypeParam>(length, seed), y = randomValues<TypeParam>(length, seed + 1);
        const bool circular = length == 64;
        const int minLag = circular ? -63 : -23, maxLag = circular ? 63 : 23;
        std::vector<TypeParam> result(maxLag - minLag + 1);
        correlation.crossCorrelate(x.data(), length, y.data(), length, result.data(), minLag, maxLag);
        const double bound = tolerance<TypeParam>(6) * std::sqrt(double(energy(x) * energy(y)));
        for (int lag = minLag; lag <= maxLag; ++lag)
            ASSERT_NEAR(result[lag - minLag], directCorrelation(x, y, lag, 64, circular), bound)
                << "lag " << lag;
    }
}

TYPED_TEST(CorrelationTest, OnlyNegativeLagsUseOneInverseTransform)
{
    ProbedCorrelation<TypeParam> correlation(32);
    const auto x = randomValues<TypeParam>(20, 6), y = randomValues<TypeParam>(20, 7);
    std::vector<TypeParam> result(4, TypeParam(99));
    correlation.crossCorrelate(x.data(), 20, y.data(), 20, result.data(), -3, -1);
    EXPECT_EQ(result[3], TypeParam(99));
    const double bound = tolerance<TypeParam>(5) * std::sqrt(double(energy(x) * energy(y)));
    for (int i = 0; i < 3; ++i)
        EXPECT_NEAR(result[i], directCorrelation(x, y, i - 3, 32, false), bound);

    // The call stopped before the second inverse: the work buffer still holds the
    // product spectrum conj(X) Y, whose R0 is the product of the two sums.
    long double sumX = 0, sumY = 0;
    for (int n = 0; n < 20; ++n) {
        sumX += x[n];
        sumY += y[n];
    }
    EXPECT_NEAR(correlation.work()[0], sumX * sumY, 1e-4);
}

TYPED_TEST(CorrelationTest, NonNegativeMinLagWithMaxLagZeroWritesNothing)
{
    Correlation_std<TypeParam> correlation(32);
    const auto x = randomValues<TypeParam>(20, 8), y = randomValues<TypeParam>(20, 9);
    std::vector<TypeParam> result(3, TypeParam(99));
    correlation.crossCorrelate(x.data(), 20, y.data(), 20, result.data(), 0, 0);
    EXPECT_EQ(result, std::vector<TypeParam>(3, TypeParam(99)));

    correlation.crossCorrelate(x.data(), 20, y.data(), 20, result.data(), 0, 1);
    const double bound = tolerance<TypeParam>(5) * std::sqrt(double(energy(x) * energy(y)));
    EXPECT_NEAR(result[0], directCorrelation(x, y, 0, 32, false), bound);
    EXPECT_NEAR(result[1], directCorrelation(x, y, 1, 32, false), bound);
    EXPECT_EQ(result[2], TypeParam(99));

    correlation.crossCorrelate(x.data(), 20, y.data(), 20, result.data(), 2, 3);
    EXPECT_NEAR(result[0], directCorrelation(x, y, 2, 32, false), bound);
    EXPECT_NEAR(result[1], directCorrelation(x, y, 3, 32, false), bound);
}

TYPED_TEST(CorrelationTest, CorrelateOneSignalIsSymmetric)
{
    Correlation_std<TypeParam> correlation(128);
    const auto x = randomValues<TypeParam>(40, 10);
    const int m = 40;
    std::vector<TypeParam> result(2 * m, TypeParam(99));
    correlation.correlate(x.data(), m, x.data(), m, result.data());
    EXPECT_EQ(result[2 * m - 1], TypeParam(99));  // 2m - 1 elements
    for (int i = 0; i < m - 1; ++i)
        EXPECT_EQ(result[m - 1 - (i + 1)], result[m - 1 + (i + 1)]) << "offset " << i + 1;
    const double bound = tolerance<TypeParam>(7) * energy(x);
    for (int lag = 0; lag < m; ++lag)
        EXPECT_NEAR(result[m - 1 + lag], directCorrelation(x, x, lag, 128, false), bound);
}

TYPED_TEST(CorrelationTest, CorrelateOneSignalUsesTheLongerLength)
{
    Correlation_std<TypeParam> correlation(128);
    const auto x = randomValues<TypeParam>(50, 11);
    std::vector<TypeParam> shortFirst(99, TypeParam(99)), longFirst(99, TypeParam(99));
    correlation.correlate(x.data(), 30, x.data(), 50, shortFirst.data());
    correlation.correlate(x.data(), 50, x.data(), 30, longFirst.data());
    EXPECT_EQ(shortFirst, longFirst);
    const double bound = tolerance<TypeParam>(7) * energy(x);
    EXPECT_NEAR(shortFirst[49], directCorrelation(x, x, 0, 128, false), bound);  // all 50 samples
}

TYPED_TEST(CorrelationTest, CorrelateTwoSignalsGivesTheFullLinearRange)
{
    Correlation_std<TypeParam> correlation(128);
    const auto x = randomValues<TypeParam>(50, 12), y = randomValues<TypeParam>(30, 13);
    std::vector<TypeParam> result(80, TypeParam(99));
    correlation.correlate(x.data(), 50, y.data(), 30, result.data());
    EXPECT_EQ(result[79], TypeParam(99));  // lengthX + lengthY - 1 elements
    const double bound = tolerance<TypeParam>(7) * std::sqrt(double(energy(x) * energy(y)));
    for (int lag = -49; lag <= 29; ++lag)
        EXPECT_NEAR(result[lag + 49], directCorrelation(x, y, lag, 128, false), bound) << "lag " << lag;

    // The same contents through two pointers take the cross path and agree.
    const auto copy = x;
    std::vector<TypeParam> cross(99), own(99);
    correlation.correlate(x.data(), 50, copy.data(), 50, cross.data());
    correlation.correlate(x.data(), 50, x.data(), 50, own.data());
    const double selfBound = tolerance<TypeParam>(7) * energy(x);
    for (int i = 0; i < 99; ++i)
        EXPECT_NEAR(cross[i], own[i], 2 * selfBound) << "index " << i;
}

TEST(Correlation, CrackleSizeAutocorrelationMatchesDirectSums)
{
    // The repair's use: size 1024, an analysis block and the lags of its AR model.
    Correlation<double> correlation(1024);
    const unsigned seed = 14;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    const auto x = randomValues<double>(512, seed);
    std::vector<double> result(41);
    correlation.autocorrelate(x.data(), 512, result.data(), 41);
    for (int lag = 0; lag <= 40; ++lag)
        EXPECT_NEAR(result[lag], static_cast<double>(directCorrelation(x, x, lag, 1024, false)),
                    tolerance<double>(10) * energy(x))
            << "lag " << lag;
}

TEST(Correlation, OperationsAllocateNothing)
{
    Correlation<double> correlation(1024);
    const auto x = randomValues<double>(700, 15), y = randomValues<double>(300, 16);
    std::vector<double> result(2048);
    testsupport::AllocationScope scope;
    correlation.autocorrelate(x.data(), 700, result.data(), 100);
    correlation.crossCorrelate(x.data(), 700, y.data(), 300, result.data(), -50, 50);
    correlation.correlate(x.data(), 300, y.data(), 300, result.data());
    correlation.correlate(x.data(), 300, x.data(), 300, result.data());
    EXPECT_EQ(scope.count(), 0);
}

}  // namespace
