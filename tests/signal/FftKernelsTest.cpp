// The eight kernels against the long-double DFT at every accepted size, their
// structure against the level-by-level reference graph (to the bit), and the
// edge cases of the flow graph.
#include "signal/FftKernels.h"

#include "signal/DirectDft.h"
#include "signal/FftReferenceGraph.h"
#include "signal/FftTestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <memory>
#include <vector>

namespace {

using namespace ferrotip_test;
using standardLib::fftComplexForward;
using standardLib::fftComplexInverse;
using standardLib::fftRealForward;
using standardLib::fftRealInverse;

constexpr int complexMin = 3;
constexpr int complexMax = 19;
constexpr int realMin = 4;
constexpr int realMax = 20;

// One DirectDft per size for the whole program: its tables take a while at 2^20.
const DirectDft& directDft(int n) {
    static std::map<int, std::unique_ptr<DirectDft>> cache;
    auto& slot = cache[n];
    if (!slot)
        slot = std::make_unique<DirectDft>(n);
    return *slot;
}

std::uint32_t seedFor(int log2Size, int variant) {
    return 1000u + 17u * static_cast<std::uint32_t>(log2Size) + static_cast<std::uint32_t>(variant);
}

template <typename T>
std::vector<LongComplex> toComplex(const std::vector<T>& interleaved) {
    std::vector<LongComplex> points(interleaved.size() / 2);
    for (std::size_t i = 0; i < points.size(); ++i)
        points[i] = {interleaved[2 * i], interleaved[2 * i + 1]};
    return points;
}

template <typename T>
long double rmsOf(const std::vector<T>& values, long double perOutputCount) {
    long double sum = 0.0L;
    for (T v : values)
        sum += static_cast<long double>(v) * v;
    return std::sqrt(sum / perOutputCount);
}

template <typename T>
void expectWithinBounds(const ErrorStats& stats, int log2Size) {
    EXPECT_LE(stats.rms, rmsBound<T>(log2Size)) << "rms relative error";
    EXPECT_LE(stats.max, maxBound<T>(log2Size)) << "max relative error";
}

// Complex transform of 2^m random points against the direct sums.
template <typename T>
ErrorStats complexError(int m, bool inverse) {
    const int n = 1 << m;
    const std::uint32_t seed = seedFor(m, inverse ? 1 : 0);
    SCOPED_TRACE(testing::Message() << "N " << n << " inverse " << inverse << " seed " << seed);
    std::vector<T> data = randomValues<T>(2 * static_cast<std::size_t>(n), seed);
    const std::vector<LongComplex> input = toComplex(data);
    const std::vector<T> table = complexTable<T>(n);
    if (inverse)
        fftComplexInverse(data.data(), m, 1, table.data());
    else
        fftComplexForward(data.data(), m, 1, table.data());
    // Parseval: rms |X| = sqrt(N) rms |x| forward; rms |x_out| = rms |X| / sqrt(N) inverse.
    long double inputEnergy = 0.0L;
    for (const LongComplex& v : input)
        inputEnergy += std::norm(v);
    const long double inputRms = std::sqrt(inputEnergy / n);
    const long double rootN = std::sqrt(static_cast<long double>(n));
    const long double outputRms = inverse ? inputRms / rootN : inputRms * rootN;
    const DirectDft& dft = directDft(n);
    ErrorMeter meter(outputRms);
    for (int k : checkedIndices(n, {0, 1, n / 2, n / 4, n / 8, 3 * n / 8, n - 1, n / 2 - 1})) {
        LongComplex want = dft.complexBin(input, k, inverse ? 1 : -1);
        if (inverse)
            want /= static_cast<long double>(n);
        meter.add({data[2 * k], data[2 * k + 1]}, want);
    }
    return meter.stats();
}

// Real forward transform of 2^m random samples: R0, R(N/2), then R1, I1, ...
template <typename T>
ErrorStats realForwardError(int m) {
    const int n = 1 << m;
    const std::uint32_t seed = seedFor(m, 2);
    SCOPED_TRACE(testing::Message() << "N " << n << " seed " << seed);
    std::vector<T> data = randomValues<T>(static_cast<std::size_t>(n), seed);
    const std::vector<long double> input(data.begin(), data.end());
    const std::vector<T> table = realTable<T>(n);
    fftRealForward(data.data(), m, 1, table.data());
    // Parseval: mean over the N bins of |X|^2 = sum x^2.
    const long double outputRms = rmsOf(input, 1.0L);
    const DirectDft& dft = directDft(n);
    ErrorMeter meter(outputRms);
    const int half = n / 2;
    for (int k : checkedIndices(half + 1, {0, 1, half, n / 4, n / 8, 3 * n / 8, half - 1})) {
        const LongComplex want = dft.realBin(input, k);
        LongComplex got;
        if (k == 0)
            got = {data[0], 0.0L};
        else if (k == half)
            got = {data[1], 0.0L};
        else
            got = {data[2 * k], data[2 * k + 1]};
        meter.add(got, want);
    }
    return meter.stats();
}

// Real inverse transform of a random packed spectrum.
template <typename T>
ErrorStats realInverseError(int m) {
    const int n = 1 << m;
    const int half = n / 2;
    const std::uint32_t seed = seedFor(m, 3);
    SCOPED_TRACE(testing::Message() << "N " << n << " seed " << seed);
    std::vector<T> data = randomValues<T>(static_cast<std::size_t>(n), seed);
    std::vector<LongComplex> bins(half + 1);
    bins[0] = {data[0], 0.0L};
    bins[half] = {data[1], 0.0L};
    long double energy = static_cast<long double>(data[0]) * data[0] + static_cast<long double>(data[1]) * data[1];
    for (int k = 1; k < half; ++k) {
        bins[k] = {data[2 * k], data[2 * k + 1]};
        energy += 2.0L * std::norm(bins[k]);
    }
    const std::vector<T> table = realTable<T>(n);
    fftRealInverse(data.data(), m, 1, table.data());
    // Parseval: sum x^2 = (1/N) sum over all N bins |X|^2.
    const long double outputRms = std::sqrt(energy / n / n);
    const DirectDft& dft = directDft(n);
    ErrorMeter meter(outputRms);
    for (int j : checkedIndices(n, {0, 1, half, n - 1, n / 4}))
        meter.add({data[j], 0.0L}, {dft.realSample(bins, j), 0.0L});
    return meter.stats();
}

template <typename T>
class FftKernels : public testing::Test {};

using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(FftKernels, Precisions);

TYPED_TEST(FftKernels, ComplexForwardMatchesDirectDftAtEveryAcceptedSize) {
    for (int m = complexMin; m <= complexMax; ++m) {
        SCOPED_TRACE(m);
        expectWithinBounds<TypeParam>(complexError<TypeParam>(m, false), m);
    }
}

TYPED_TEST(FftKernels, ComplexInverseMatchesDirectDftAtEveryAcceptedSize) {
    for (int m = complexMin; m <= complexMax; ++m) {
        SCOPED_TRACE(m);
        expectWithinBounds<TypeParam>(complexError<TypeParam>(m, true), m);
    }
}

TYPED_TEST(FftKernels, RealForwardMatchesDirectDftAtEveryAcceptedSize) {
    for (int m = realMin; m <= realMax; ++m) {
        SCOPED_TRACE(m);
        expectWithinBounds<TypeParam>(realForwardError<TypeParam>(m), m);
    }
}

TYPED_TEST(FftKernels, RealInverseMatchesDirectDftAtEveryAcceptedSize) {
    for (int m = realMin; m <= realMax; ++m) {
        SCOPED_TRACE(m);
        expectWithinBounds<TypeParam>(realInverseError<TypeParam>(m), m);
    }
}

// A forward and inverse pair is the identity; its error is that of two transforms.
TYPED_TEST(FftKernels, ComplexForwardThenInverseReturnsTheInput) {
    for (int m : {3, 4, 5, 10, 11, 16}) {
        const int n = 1 << m;
        const std::uint32_t seed = seedFor(m, 4);
        SCOPED_TRACE(testing::Message() << "N " << n << " seed " << seed);
        const std::vector<TypeParam> input = randomValues<TypeParam>(2 * static_cast<std::size_t>(n), seed);
        const std::vector<TypeParam> table = complexTable<TypeParam>(n);
        std::vector<TypeParam> data = input;
        fftComplexForward(data.data(), m, 1, table.data());
        fftComplexInverse(data.data(), m, 1, table.data());
        EXPECT_LE(relativeRmsDifference(data, input), 2 * rmsBound<TypeParam>(m));
    }
}

TYPED_TEST(FftKernels, RealForwardThenInverseReturnsTheSamplesWithNoFactor) {
    for (int m : {4, 5, 6, 10, 11, 17}) {
        const int n = 1 << m;
        const std::uint32_t seed = seedFor(m, 5);
        SCOPED_TRACE(testing::Message() << "N " << n << " seed " << seed);
        const std::vector<TypeParam> input = randomValues<TypeParam>(static_cast<std::size_t>(n), seed);
        const std::vector<TypeParam> table = realTable<TypeParam>(n);
        std::vector<TypeParam> data = input;
        fftRealForward(data.data(), m, 1, table.data());
        fftRealInverse(data.data(), m, 1, table.data());
        EXPECT_LE(relativeRmsDifference(data, input), 2 * rmsBound<TypeParam>(m));
    }
}

// With no factor, every bin of the unit impulse is exactly 1: each butterfly meets
// a zero partner, and (a - w 0) + w 0 and 2a - a are exact.
TYPED_TEST(FftKernels, ForwardOfUnitImpulseGivesAllBinsOne) {
    for (int m : {3, 4, 5, 9, 10, 12}) {
        SCOPED_TRACE(m);
        const int n = 1 << m;
        std::vector<TypeParam> data(2 * static_cast<std::size_t>(n), TypeParam(0));
        data[0] = TypeParam(1);
        const std::vector<TypeParam> table = complexTable<TypeParam>(n);
        fftComplexForward(data.data(), m, 1, table.data());
        for (int k = 0; k < n; ++k) {
            ASSERT_EQ(data[2 * k], TypeParam(1)) << k;
            ASSERT_EQ(data[2 * k + 1], TypeParam(0)) << k;
        }
    }
}

// 16 real and 8 complex points have L = 2: pass 1 and the two-level leading pass,
// no radix-8 pass. Checked against the full direct transform.
TYPED_TEST(FftKernels, SmallestSizesWork) {
    expectWithinBounds<TypeParam>(complexError<TypeParam>(3, false), 3);
    expectWithinBounds<TypeParam>(complexError<TypeParam>(3, true), 3);
    expectWithinBounds<TypeParam>(realForwardError<TypeParam>(4), 4);
    expectWithinBounds<TypeParam>(realInverseError<TypeParam>(4), 4);
}

// L = M - 1 for the complex kernels and M - 2 for the real ones: consecutive M give
// all three leading forms (none, one level, two levels), each checked in full.
TYPED_TEST(FftKernels, AllThreeLeadingFormsGiveCorrectTransforms) {
    for (int m : {4, 5, 6}) {
        SCOPED_TRACE(testing::Message() << "complex M " << m << " L mod 3 " << (m - 1) % 3);
        expectWithinBounds<TypeParam>(complexError<TypeParam>(m, false), m);
        expectWithinBounds<TypeParam>(complexError<TypeParam>(m, true), m);
    }
    for (int m : {5, 6, 7}) {
        SCOPED_TRACE(testing::Message() << "real M " << m << " L mod 3 " << (m - 2) % 3);
        expectWithinBounds<TypeParam>(realForwardError<TypeParam>(m), m);
        expectWithinBounds<TypeParam>(realInverseError<TypeParam>(m), m);
    }
}

using KernelFunction = void (*)(float*, int, int, const float*);

struct KernelCase {
    const char* name;
    KernelFunction kernel;
    bool real;
};

const KernelCase floatKernels[] = {
    {"complexForward", &fftComplexForward<float>, false},
    {"complexInverse", &fftComplexInverse<float>, false},
    {"realForward", &fftRealForward<float>, true},
    {"realInverse", &fftRealInverse<float>, true},
};

TEST(FftKernelRows, ThreeRowsGiveTheSameAsThreeSeparateCalls) {
    for (const KernelCase& c : floatKernels) {
        for (int m : {4, 7, 10}) {
            SCOPED_TRACE(testing::Message() << c.name << " M " << m);
            const std::size_t rowLength = (c.real ? 1u : 2u) << m;
            const std::vector<float> table = realTable<float>(1 << m);
            std::vector<float> together = randomValues<float>(3 * rowLength, seedFor(m, 6));
            std::vector<float> separate = together;
            c.kernel(together.data(), m, 3, table.data());
            for (int row = 0; row < 3; ++row)
                c.kernel(separate.data() + row * rowLength, m, 1, table.data());
            EXPECT_EQ(0, std::memcmp(together.data(), separate.data(), together.size() * sizeof(float)));
        }
    }
}

TEST(FftKernelRows, ZeroOrNegativeRowsLeaveTheDataAsItWas) {
    for (const KernelCase& c : floatKernels) {
        SCOPED_TRACE(c.name);
        const std::vector<float> table = realTable<float>(1024);
        const std::vector<float> input = randomValues<float>(2048, 7u);
        for (int rows : {0, -1}) {
            std::vector<float> data = input;
            c.kernel(data.data(), 10, rows, table.data());
            EXPECT_EQ(data, input) << rows;
        }
    }
}

// Sizes beyond the tables (complex 2^20 and 2^2, real 2^21 and 2^3) are left
// untouched rather than read past the fixed tables.
TEST(FftKernelRows, SizesOutsideTheTablesLeaveTheDataUntouched) {
    const std::vector<float> table(1, 1.0f);
    const std::vector<float> input = randomValues<float>(64, 8u);
    const struct {
        KernelFunction kernel;
        int log2Size;
    } cases[] = {{&fftComplexForward<float>, 20}, {&fftComplexInverse<float>, 2},
                 {&fftRealForward<float>, 21},    {&fftRealInverse<float>, 3},
                 {&fftRealForward<float>, 2},     {&fftComplexForward<float>, -1}};
    for (const auto& c : cases) {
        std::vector<float> data = input;
        c.kernel(data.data(), c.log2Size, 1, table.data());
        EXPECT_EQ(data, input) << c.log2Size;
    }
}

}  // namespace
