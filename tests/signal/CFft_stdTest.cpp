// The transform object in all its data forms: agreement with the kernels, the
// scaling of each form, aliasing through scratch, and the refused sizes.
#include "signal/CFft_std.h"

#include "support/AllocationCounter.h"
#include "signal/FftKernels.h"
#include "signal/FftTestSupport.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace ferrotip_test;
using standardLib::LayoutNyquistLast;
using standardLib::LayoutNyquistSecond;
using standardLib::LayoutRealsFirst;
using standardLib::standard::CFft_std;

constexpr int log2N = 10;
constexpr int n = 1 << log2N;
constexpr int half = n / 2;

// The kernel's own packed spectrum of the given samples.
template <typename T>
std::vector<T> packedSpectrum(const std::vector<T>& samples) {
    std::vector<T> data = samples;
    const std::vector<T> table = realTable<T>(static_cast<int>(samples.size()));
    standardLib::fftRealForward(data.data(), log2N, 1, table.data());
    return data;
}

// A forward and inverse pair loses about two transforms' worth of rounding.
template <typename T>
long double roundTripBound() {
    return 2 * rmsBound<T>(log2N);
}

template <typename T>
class CFftStd : public testing::Test {};

using Precisions = testing::Types<float, double>;
TYPED_TEST_SUITE(CFftStd, Precisions);

TYPED_TEST(CFftStd, RealForwardThenInverseOnTheSameArraysReturnsTheInput) {
    const std::uint32_t seed = 41u;
    SCOPED_TRACE(seed);
    const std::vector<TypeParam> input = randomValues<TypeParam>(n, seed);
    CFft_std<TypeParam> fft(n);
    std::vector<TypeParam> re = input;  // holds the samples, then N/2 + 1 real parts
    re.resize(n);
    std::vector<TypeParam> im(half + 1, TypeParam(5));
    fft.realForward(re.data(), re.data(), im.data());
    EXPECT_EQ(im[0], TypeParam(0));
    EXPECT_EQ(im[half], TypeParam(0));
    const std::vector<TypeParam> packed = packedSpectrum(input);
    EXPECT_EQ(re[0], packed[0]);
    EXPECT_EQ(re[half], packed[1]);
    for (int k = 1; k < half; ++k) {
        ASSERT_EQ(re[k], packed[2 * k]) << k;
        ASSERT_EQ(im[k], packed[2 * k + 1]) << k;
    }
    fft.realInverse(re.data(), im.data(), re.data());
    EXPECT_LE(relativeRmsDifference(re, input), roundTripBound<TypeParam>());
}

TYPED_TEST(CFftStd, RealForwardInterleavedWritesExactlyNPlusTwoElements) {
    const std::vector<TypeParam> input = randomValues<TypeParam>(n, 42u);
    CFft_std<TypeParam> fft(n);
    const TypeParam sentinel = TypeParam(-99);
    std::vector<TypeParam> out(n + 4, sentinel);
    fft.realForwardInterleaved(input.data(), out.data());
    const std::vector<TypeParam> packed = packedSpectrum(input);
    EXPECT_EQ(out[0], packed[0]);
    EXPECT_EQ(out[1], TypeParam(0));
    for (int i = 2; i < n; ++i)
        ASSERT_EQ(out[i], packed[i]) << i;
    EXPECT_EQ(out[n], packed[1]);
    EXPECT_EQ(out[n + 1], TypeParam(0));
    EXPECT_EQ(out[n + 2], sentinel);
    EXPECT_EQ(out[n + 3], sentinel);
}

TYPED_TEST(CFftStd, RealInverseIgnoresTheImaginaryPartsOfTheEndBins) {
    CFft_std<TypeParam> fft(n);
    const std::vector<TypeParam> re = randomValues<TypeParam>(half + 1, 43u);
    std::vector<TypeParam> im = randomValues<TypeParam>(half + 1, 44u);
    std::vector<TypeParam> expected(n);
    im[0] = TypeParam(0);
    im[half] = TypeParam(0);
    fft.realInverse(re.data(), im.data(), expected.data());
    im[0] = TypeParam(1e6);
    im[half] = TypeParam(-3);
    std::vector<TypeParam> got(n);
    fft.realInverse(re.data(), im.data(), got.data());
    EXPECT_EQ(got, expected);
}

TYPED_TEST(CFftStd, RealInverseIntoItsOwnArrayGivesTheBitsOfTheInPlaceRoute) {
    // An out apart from re and im is transformed where it lies; out == re goes
    // through scratch. Both run the same kernel on the same values.
    CFft_std<TypeParam> fft(n);
    const std::vector<TypeParam> re = randomValues<TypeParam>(half + 1, 45u);
    const std::vector<TypeParam> im = randomValues<TypeParam>(half + 1, 46u);
    std::vector<TypeParam> inPlace(re.begin(), re.end());
    inPlace.resize(n);
    fft.realInverse(inPlace.data(), im.data(), inPlace.data());
    std::vector<TypeParam> apart(n, TypeParam(-99));
    fft.realInverse(re.data(), im.data(), apart.data());
    EXPECT_EQ(apart, inPlace);
}

TYPED_TEST(CFftStd, RealInverseInterleavedReadsNeitherElementOneNorNPlusOne) {
    const std::vector<TypeParam> input = randomValues<TypeParam>(n, 45u);
    CFft_std<TypeParam> fft(n);
    std::vector<TypeParam> spectrum(n + 2);
    fft.realForwardInterleaved(input.data(), spectrum.data());
    spectrum[1] = TypeParam(7);
    spectrum[n + 1] = TypeParam(-7);
    std::vector<TypeParam> viaInterleaved = spectrum;  // in and out the same array
    fft.realInverseInterleaved(viaInterleaved.data(), viaInterleaved.data());
    viaInterleaved.resize(n);
    std::vector<TypeParam> packed = packedSpectrum(input);
    fft.realInverseInPlace(packed.data(), LayoutNyquistSecond);
    EXPECT_EQ(viaInterleaved, packed);
    EXPECT_LE(relativeRmsDifference(viaInterleaved, input), roundTripBound<TypeParam>());
}

TYPED_TEST(CFftStd, InPlaceFormsGiveEachLayout) {
    const std::vector<TypeParam> input = randomValues<TypeParam>(n, 46u);
    CFft_std<TypeParam> fft(n);
    const std::vector<TypeParam> packed = packedSpectrum(input);
    for (unsigned int layout : {LayoutNyquistLast, LayoutNyquistSecond, LayoutRealsFirst}) {
        SCOPED_TRACE(layout);
        std::vector<TypeParam> data = input;
        fft.realForwardInPlace(data.data(), layout);
        std::vector<TypeParam> expected = packed;
        fft.reorderSpectrum(expected.data(), LayoutNyquistSecond, layout);
        EXPECT_EQ(data, expected);
    }
    std::vector<TypeParam> data = input;
    fft.realForwardInPlace(data.data(), LayoutRealsFirst);
    EXPECT_EQ(data[0], packed[0]);
    EXPECT_EQ(data[half], packed[1]);
    EXPECT_EQ(data[1], packed[2]);
    EXPECT_EQ(data[n - 1], packed[3]);
}

TYPED_TEST(CFftStd, UnknownLayoutsActAsLayoutTwo) {
    const std::vector<TypeParam> input = randomValues<TypeParam>(n, 47u);
    CFft_std<TypeParam> fft(n);
    std::vector<TypeParam> forward = input;
    fft.realForwardInPlace(forward.data(), 0);
    EXPECT_EQ(forward, packedSpectrum(input));
    std::vector<TypeParam> unknown = forward;
    std::vector<TypeParam> two = forward;
    fft.realInverseInPlace(unknown.data(), 9);
    fft.realInverseInPlace(two.data(), LayoutNyquistSecond);
    EXPECT_EQ(unknown, two);
}

TYPED_TEST(CFftStd, InPlacePairsHaveFactorOneExceptLayoutThreeWithFactorN) {
    const std::vector<TypeParam> input = randomValues<TypeParam>(n, 48u);
    CFft_std<TypeParam> fft(n);
    for (unsigned int layout : {LayoutNyquistLast, LayoutNyquistSecond, LayoutRealsFirst}) {
        SCOPED_TRACE(layout);
        std::vector<TypeParam> data = input;
        fft.realForwardInPlace(data.data(), layout);
        fft.realInverseInPlace(data.data(), layout);
        std::vector<TypeParam> expected = input;
        if (layout == LayoutRealsFirst) {
            for (TypeParam& v : expected)
                v *= n;
        }
        EXPECT_LE(relativeRmsDifference(data, expected), roundTripBound<TypeParam>());
    }
}

// Every complex form runs the same kernel: equal bits, and in == out allowed.
TYPED_TEST(CFftStd, ComplexFormsAgreeAndPairWithFactorOne) {
    const std::vector<TypeParam> input = randomValues<TypeParam>(2 * n, 49u);
    CFft_std<TypeParam> fft(n);
    std::vector<TypeParam> inPlace = input;
    fft.complexForwardInPlace(inPlace.data());
    std::vector<TypeParam> copied(2 * n);
    fft.complexForward(input.data(), copied.data());
    EXPECT_EQ(copied, inPlace);
    std::vector<TypeParam> aliased = input;
    fft.complexForward(aliased.data(), aliased.data());
    EXPECT_EQ(aliased, inPlace);

    std::vector<TypeParam> re(n), im(n);
    CFft_std<TypeParam>::deinterleave(input.data(), re.data(), im.data(), n);
    std::vector<TypeParam> reOut(n), imOut(n);
    fft.complexForwardSplitTo(re.data(), im.data(), reOut.data(), imOut.data());
    fft.complexForwardSplit(re.data(), im.data());
    EXPECT_EQ(re, reOut);
    EXPECT_EQ(im, imOut);
    std::vector<TypeParam> split(2 * n);
    CFft_std<TypeParam>::interleave(re.data(), im.data(), split.data(), n);
    EXPECT_EQ(split, inPlace);

    const std::vector<TypeParam> table = realTable<TypeParam>(n);
    std::vector<TypeParam> kernel = input;
    standardLib::fftComplexForward(kernel.data(), log2N, 1, table.data());
    EXPECT_EQ(kernel, inPlace);

    std::vector<TypeParam> back(2 * n);
    fft.complexInverse(inPlace.data(), back.data());
    EXPECT_LE(relativeRmsDifference(back, input), roundTripBound<TypeParam>());
    fft.complexInverseInPlace(inPlace.data());
    EXPECT_EQ(inPlace, back);
    fft.complexInverseSplit(re.data(), im.data());
    fft.complexInverseSplitTo(reOut.data(), imOut.data(), reOut.data(), imOut.data());
    EXPECT_EQ(re, reOut);
    EXPECT_EQ(im, imOut);
    CFft_std<TypeParam>::interleave(re.data(), im.data(), split.data(), n);
    EXPECT_EQ(split, back);
}

// The object builds its table for N and serves complex transforms up to 2^19
// points; at 2^20 the complex kernels do not run and leave the data as it was.
TYPED_TEST(CFftStd, ComplexTransformsStopAtTwoToTheNineteen) {
    CFft_std<TypeParam> largest(1 << 19);
    std::vector<TypeParam> data(2 << 19, TypeParam(0));
    data[0] = TypeParam(1);
    largest.complexForwardInPlace(data.data());
    EXPECT_EQ(data[2 * 12345], TypeParam(1));

    CFft_std<TypeParam> beyond(1 << 20);
    std::vector<TypeParam> wide(2 << 20, TypeParam(0));
    wide[0] = TypeParam(1);
    beyond.complexForwardInPlace(wide.data());
    EXPECT_EQ(wide[2], TypeParam(0));
    std::vector<TypeParam> real(1 << 20, TypeParam(0));
    real[0] = TypeParam(1);
    beyond.realForwardInPlace(real.data(), LayoutNyquistSecond);
    EXPECT_EQ(real[2 * 777], TypeParam(1));
}

// 1000 rounds to log2 10 like 1024, and the table builder refuses it; every
// transform then leaves its outputs untouched.
TYPED_TEST(CFftStd, RefusedSizesKeepTheLogarithmAndTransformNothing) {
    CFft_std<TypeParam> power(1024);
    EXPECT_EQ(power.getLog2Size(), 10);
    CFft_std<TypeParam> refused(1000);
    EXPECT_EQ(refused.getLog2Size(), 10);
    const std::vector<TypeParam> input = randomValues<TypeParam>(2000, 50u);
    std::vector<TypeParam> data = input;
    refused.realForwardInPlace(data.data(), LayoutNyquistSecond);
    refused.complexForwardInPlace(data.data());
    EXPECT_EQ(data, input);
    std::vector<TypeParam> out(2002, TypeParam(3));
    refused.realForwardInterleaved(input.data(), out.data());
    EXPECT_EQ(out, std::vector<TypeParam>(2002, TypeParam(3)));
    CFft_std<TypeParam> eight(8);
    EXPECT_EQ(eight.getLog2Size(), 3);
    std::vector<TypeParam> small = {1, 2, 3, 4, 5, 6, 7, 8};
    eight.realForwardInPlace(small.data(), LayoutNyquistSecond);
    EXPECT_EQ(small, (std::vector<TypeParam>{1, 2, 3, 4, 5, 6, 7, 8}));
}

// Only the constructor allocates: no data form and no layout conversion does.
TYPED_TEST(CFftStd, NoOperationAllocates) {
    CFft_std<TypeParam> fft(n);
    std::vector<TypeParam> data = randomValues<TypeParam>(2 * n + 2, 52u);
    std::vector<TypeParam> re(n), im(n), out(2 * n + 2);
    testsupport::AllocationScope scope;
    fft.realForward(data.data(), re.data(), im.data());
    fft.realForwardInterleaved(data.data(), out.data());
    fft.realInverse(re.data(), im.data(), out.data());
    fft.realInverseInterleaved(data.data(), out.data());
    for (unsigned int layout = 1; layout <= 3; ++layout) {
        fft.realForwardInPlace(data.data(), layout);
        fft.realInverseInPlace(data.data(), layout);
    }
    fft.complexForward(data.data(), out.data());
    fft.complexForwardInPlace(data.data());
    fft.complexForwardSplit(re.data(), im.data());
    fft.complexForwardSplitTo(re.data(), im.data(), re.data(), im.data());
    fft.complexInverse(data.data(), out.data());
    fft.complexInverseInPlace(data.data());
    fft.complexInverseSplit(re.data(), im.data());
    fft.complexInverseSplitTo(re.data(), im.data(), re.data(), im.data());
    EXPECT_EQ(scope.count(), 0);
    testsupport::AllocationScope construction;
    CFft_std<TypeParam> another(n);
    EXPECT_EQ(construction.count(), 2) << "the counter sees the constructor's scratch and table";
}

}  // namespace
