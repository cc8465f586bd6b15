#include "ar/SplitRadixFft.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "DirectDft.h"
#include "support/AllocationCounter.h"

namespace {

constexpr long double floatEpsilon = 0x1p-24L;

// Each output of a split-radix transform passes through log2 n butterfly levels, each
// adding a few float roundings (and the twiddles' own error of a few ulps), so the
// error of any bin stays below C ε log2 n ‖x‖₂ (‖X‖₂ of the full spectrum for the
// inverse). Measured C over all sizes: 0.9 forward real, 1.5 inverse real, 3.0 complex;
// C = 8 leaves room for other seeds and no more: stepping the twiddles one angle at a
// time instead gives C = 210 at n = 65536.
constexpr long double errorConstant = 8.0L;

// Every size is checked in full up to 4096; above, the direct sums are O(n) per bin,
// so a sample of bins is: the edges and an evenly spread set.
constexpr int fullCheckLimit = 4096;
constexpr int sampledBins = 48;

std::vector<float> randomBlock(int n, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> uniform(-1.0f, 1.0f);
    std::vector<float> x(n);
    for (float& v : x) v = uniform(rng);
    return x;
}

long double norm(const std::vector<float>& x)
{
    long double sum = 0.0L;
    for (float v : x) sum += static_cast<long double>(v) * v;
    return std::sqrt(sum);
}

long double bound(int n, long double scale)
{
    return errorConstant * floatEpsilon * std::log2(static_cast<long double>(n)) * scale;
}

// Bins 0 .. last: all of them for small sizes, the edges and a spread sample above.
std::vector<int> binsToCheck(int n, int last)
{
    std::vector<int> bins;
    if (n <= fullCheckLimit) {
        for (int k = 0; k <= last; ++k) bins.push_back(k);
        return bins;
    }
    for (int k : {0, 1, 2, last - 1, last}) bins.push_back(k);
    for (int s = 1; s < sampledBins; ++s) bins.push_back(static_cast<int>(1LL * last * s / sampledBins) + s % 3);
    return bins;
}

std::vector<int> transformSizes()
{
    std::vector<int> sizes;
    for (int n = 2; n <= 65536; n *= 2) sizes.push_back(n);
    return sizes;
}

// Packed-spectrum value of bin k: Im is zero at bins 0 and n/2.
LongComplex packedBin(const std::vector<float>& packed, int k)
{
    const int n = static_cast<int>(packed.size());
    const long double im = (k == 0 || k == n / 2) ? 0.0L : packed[n - k];
    return {packed[k], im};
}

// Full Hermitian spectrum norm of a packed half spectrum.
long double packedNorm(const std::vector<float>& packed)
{
    const int n = static_cast<int>(packed.size());
    long double sum = static_cast<long double>(packed[0]) * packed[0] +
                      static_cast<long double>(packed[n / 2]) * packed[n / 2];
    for (int k = 1; k < n / 2; ++k) sum += 2.0L * std::norm(packedBin(packed, k));
    return std::sqrt(sum);
}

}  // namespace

TEST(ForwardRealFft, ConstantBlockOfEightOnesGivesEightInEntryZero)
{
    std::vector<float> x(8, 1.0f);
    forwardRealFft(x.data(), 8);
    EXPECT_EQ(x[0], 8.0f);
    for (int k = 1; k < 8; ++k) EXPECT_EQ(x[k], 0.0f) << k;
}

TEST(ForwardRealFft, SizeTwoIsSumAndDifference)
{
    float x[2] = {3.0f, 1.0f};
    forwardRealFft(x, 2);
    EXPECT_EQ(x[0], 4.0f);
    EXPECT_EQ(x[1], 2.0f);
}

TEST(ForwardRealFft, MatchesTheDirectDftAtEverySize)
{
    for (int n : transformSizes()) {
        const unsigned seed = 100u + static_cast<unsigned>(n);
        SCOPED_TRACE(::testing::Message() << "n = " << n << ", seed = " << seed);
        const std::vector<float> x = randomBlock(n, seed);
        std::vector<float> packed = x;
        forwardRealFft(packed.data(), n);
        const DirectDft dft(n);
        const long double limit = bound(n, norm(x));
        for (int k : binsToCheck(n, n / 2)) {
            const LongComplex expected = dft.forwardBin(x.data(), nullptr, k);
            ASSERT_LE(std::abs(packedBin(packed, k) - expected), limit) << "bin " << k;
        }
    }
}

TEST(InverseRealFft, MatchesTheDirectInverseAtEverySize)
{
    for (int n : transformSizes()) {
        const unsigned seed = 200u + static_cast<unsigned>(n);
        SCOPED_TRACE(::testing::Message() << "n = " << n << ", seed = " << seed);
        const std::vector<float> packed = randomBlock(n, seed);
        std::vector<float> y = packed;
        inverseRealFft(y.data(), n);
        const DirectDft dft(n);
        const long double limit = bound(n, packedNorm(packed));
        for (int t : binsToCheck(n, n - 1)) {
            const long double expected = dft.inverseRealSample(packed.data(), t);
            ASSERT_LE(std::fabs(y[t] - expected), limit) << "sample " << t;
        }
    }
}

TEST(ComplexFft, MatchesTheDirectDftAtEverySize)
{
    for (int n : transformSizes()) {
        const unsigned seed = 300u + static_cast<unsigned>(n);
        SCOPED_TRACE(::testing::Message() << "n = " << n << ", seed = " << seed);
        const std::vector<float> re = randomBlock(n, seed);
        const std::vector<float> im = randomBlock(n, seed + 1);
        std::vector<float> outRe = re, outIm = im;
        complexFft(outRe.data(), outIm.data(), n);
        const DirectDft dft(n);
        const long double limit = bound(n, std::hypot(norm(re), norm(im)));
        for (int k : binsToCheck(n, n - 1)) {
            const LongComplex expected = dft.forwardBin(re.data(), im.data(), k);
            ASSERT_LE(std::abs(LongComplex(outRe[k], outIm[k]) - expected), limit) << "bin " << k;
        }
    }
}

// The inverse undoes the forward transform up to the factor n; its error is the sum of
// both transforms' (the inverse sees the spectrum, of norm √n ‖x‖₂).
TEST(RealFftPair, ForwardThenInverseScalesByN)
{
    for (int n : transformSizes()) {
        SCOPED_TRACE(n);
        const std::vector<float> x = randomBlock(n, 400u + static_cast<unsigned>(n));
        std::vector<float> y = x;
        forwardRealFft(y.data(), n);
        inverseRealFft(y.data(), n);
        const long double limit = 2.0L * bound(n, std::sqrt(static_cast<long double>(n)) * norm(x));
        long double worst = 0.0L;
        for (int t = 0; t < n; ++t) worst = std::max(worst, std::fabs(y[t] - static_cast<long double>(n) * x[t]));
        EXPECT_LE(worst, limit);
    }
}

// Transforming twice gives n x[-t mod n].
TEST(ComplexFft, TwiceReversesTimeAndScalesByN)
{
    const int n = 512;
    const std::vector<float> re = randomBlock(n, 500u), im = randomBlock(n, 501u);
    std::vector<float> r = re, i = im;
    complexFft(r.data(), i.data(), n);
    complexFft(r.data(), i.data(), n);
    const long double limit = 2.0L * bound(n, std::sqrt(static_cast<long double>(n)) * std::hypot(norm(re), norm(im)));
    for (int t = 0; t < n; ++t) {
        const int source = (n - t) % n;
        EXPECT_LE(std::fabs(r[t] - static_cast<long double>(n) * re[source]), limit) << t;
        EXPECT_LE(std::fabs(i[t] - static_cast<long double>(n) * im[source]), limit) << t;
    }
}

TEST(SplitRadixFft, TransformsDoNotAllocate)
{
    std::vector<float> re = randomBlock(1024, 600u), im = randomBlock(1024, 601u);
    EXPECT_EQ(testsupport::allocationsDuring([&] {
                  forwardRealFft(re.data(), 1024);
                  inverseRealFft(re.data(), 1024);
                  complexFft(re.data(), im.data(), 1024);
              }),
              0u);
}

TEST(SplitRadixFft, TransformSizesArePowersOfTwoFromTwo)
{
    for (int n : {2, 4, 8, 1024, 1 << 30}) EXPECT_TRUE(isTransformSize(n)) << n;
    for (int n : {-8, -1, 0, 1, 3, 6, 12, 1000, std::numeric_limits<int>::min()}) EXPECT_FALSE(isTransformSize(n)) << n;
}

using SplitRadixFftDeathTest = ::testing::Test;

// The process ends with status 1 and writes nothing.
TEST_F(SplitRadixFftDeathTest, ForwardRealExitsWithStatusOneOnABadSize)
{
    for (int n : {6, 0, 1, -4}) {
        std::vector<float> x(8, 0.0f);
        EXPECT_EXIT(forwardRealFft(x.data(), n), ::testing::ExitedWithCode(1), "^$") << n;
    }
}

TEST_F(SplitRadixFftDeathTest, InverseRealExitsWithStatusOneOnABadSize)
{
    for (int n : {12, 1}) {
        std::vector<float> x(16, 0.0f);
        EXPECT_EXIT(inverseRealFft(x.data(), n), ::testing::ExitedWithCode(1), "^$") << n;
    }
}

TEST_F(SplitRadixFftDeathTest, ComplexExitsWithStatusOneOnABadSize)
{
    for (int n : {3, 0}) {
        std::vector<float> re(4, 0.0f), im(4, 0.0f);
        EXPECT_EXIT(complexFft(re.data(), im.data(), n), ::testing::ExitedWithCode(1), "^$") << n;
    }
}

// ---- powerSpectrum

namespace {

PowerSpectrumBlock randomPowerBlock(int n, unsigned seed)
{
    PowerSpectrumBlock record;
    const std::vector<float> values = randomBlock(powerSpectrumCapacity, seed);
    std::copy(values.begin(), values.end(), record.block.begin());
    record.length = n;
    return record;
}

// n r[t] = n times the circular autocorrelation sum_j x[j] x[(j + t) mod n].
long double scaledAutocorrelation(const float* x, int n, int t)
{
    long double sum = 0.0L;
    for (int j = 0; j < n; ++j) sum += static_cast<long double>(x[j]) * x[(j + t) % n];
    return n * sum;
}

}  // namespace

TEST(PowerSpectrum, BlockOfSixIsLeftUnchanged)
{
    for (int n : {6, 0, 1, 7, -8}) {
        SCOPED_TRACE(n);
        PowerSpectrumBlock record = randomPowerBlock(n, 700u);
        const PowerSpectrumBlock before = record;
        powerSpectrum(record);
        EXPECT_EQ(record.block, before.block);
        EXPECT_EQ(record.length, n);
    }
}

TEST(PowerSpectrum, WritesEachPowerIntoEntryKAndEntryNMinusK)
{
    for (int n : {2, 4, 64, 8192}) {
        SCOPED_TRACE(n);
        PowerSpectrumBlock record = randomPowerBlock(n, 710u + static_cast<unsigned>(n));
        const PowerSpectrumBlock before = record;
        std::vector<float> spectrum(before.block.begin(), before.block.begin() + n);
        forwardRealFft(spectrum.data(), n);
        powerSpectrum(record);

        EXPECT_EQ(record.block[0], spectrum[0] * spectrum[0]);
        EXPECT_EQ(record.block[n / 2], spectrum[n / 2] * spectrum[n / 2]);
        for (int k = 1; k < n / 2; ++k) {
            const float power = spectrum[k] * spectrum[k] + spectrum[n - k] * spectrum[n - k];
            ASSERT_EQ(record.block[k], power) << k;
            ASSERT_EQ(record.block[n - k], power) << k;
        }
        for (int i = n; i < powerSpectrumCapacity; ++i) ASSERT_EQ(record.block[i], before.block[i]) << i;
    }
}

// With entries n/2 + 1 .. n - 1 cleared the block is the packed spectrum |X[k]|², whose
// inverse is n times the circular autocorrelation. Bound: the power spectrum carries the
// forward error of both squares (2 × bound relative to |X|², scaled by ‖x‖₂²) and the
// inverse adds its own on a spectrum of norm about √n ‖x‖₂².
TEST(PowerSpectrum, InverseOfTheClearedBlockIsNTimesTheCircularAutocorrelation)
{
    for (int n : {2, 8, 256, 4096}) {
        SCOPED_TRACE(n);
        PowerSpectrumBlock record = randomPowerBlock(n, 720u + static_cast<unsigned>(n));
        const std::vector<float> x(record.block.begin(), record.block.begin() + n);
        powerSpectrum(record);
        std::fill(record.block.begin() + n / 2 + 1, record.block.begin() + n, 0.0f);
        inverseRealFft(record.block.data(), n);

        const long double energy = norm(x) * norm(x);
        const long double limit = 4.0L * bound(n, std::sqrt(static_cast<long double>(n)) * energy);
        for (int t = 0; t < n; ++t)
            ASSERT_LE(std::fabs(record.block[t] - scaledAutocorrelation(x.data(), n, t)), limit) << t;
    }
}

// Uncleared, entry n - k reads as the imaginary part P[k] of bin k: the inverse of
// P[k] (1 + i) is n r[t] - 2 sum_k P[k] sin(2π kt/n), the autocorrelation plus an odd
// part; its even part y[t] + y[n - t] is still 2 n r[t].
TEST(PowerSpectrum, InverseOfTheUnclearedBlockAddsAnOddSinePart)
{
    for (int n : {8, 256, 4096}) {
        SCOPED_TRACE(n);
        PowerSpectrumBlock record = randomPowerBlock(n, 730u + static_cast<unsigned>(n));
        const std::vector<float> x(record.block.begin(), record.block.begin() + n);
        powerSpectrum(record);
        const std::vector<float> power(record.block.begin(), record.block.begin() + n);
        inverseRealFft(record.block.data(), n);

        const DirectDft dft(n);
        const long double energy = norm(x) * norm(x);
        const long double limit = 4.0L * bound(n, std::sqrt(static_cast<long double>(n)) * energy);
        long double largestOddPart = 0.0L;
        for (int t = 0; t < n; ++t) {
            long double odd = 0.0L;
            for (int k = 1; k < n / 2; ++k) odd += 2.0L * power[k] * dft.sine(1LL * k * t);
            largestOddPart = std::max(largestOddPart, std::fabs(odd));
            const long double autocorrelation = scaledAutocorrelation(x.data(), n, t);
            ASSERT_LE(std::fabs(record.block[t] - (autocorrelation - odd)), limit) << t;
            const long double even = record.block[t] + static_cast<long double>(record.block[(n - t) % n]);
            ASSERT_LE(std::fabs(even - 2.0L * autocorrelation), 2.0L * limit) << t;
        }
        EXPECT_GT(largestOddPart, 1000.0L * limit);  // the difference is real, not rounding
    }
}

TEST(PowerSpectrum, SizeTwoSquaresBothBins)
{
    PowerSpectrumBlock record;
    record.block[0] = 3.0f;
    record.block[1] = 1.0f;
    record.length = 2;
    powerSpectrum(record);
    EXPECT_EQ(record.block[0], 16.0f);
    EXPECT_EQ(record.block[1], 4.0f);
}

// The block holds 8192 entries: a longer power of two is refused, not transformed
// past the block's end.
TEST(PowerSpectrumGuard, PowerOfTwoAboveTheBlockLeavesItUntouched)
{
    for (int n : {16384, 1 << 30}) {
        auto record = std::make_unique<PowerSpectrumBlock>();
        for (int i = 0; i < powerSpectrumCapacity; ++i) record->block[i] = 0.25f * (i % 7);
        record->length = n;
        const auto before = record->block;
        powerSpectrum(*record);
        EXPECT_EQ(record->block, before) << n;
    }
}
