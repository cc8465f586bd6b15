// Size, log2 and the layout conversions of the transform objects' base.
#include "signal/CFftBasis.h"

#include "signal/FftTestSupport.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using standardLib::CFftBasis;
using standardLib::LayoutNyquistLast;
using standardLib::LayoutNyquistSecond;
using standardLib::LayoutRealsFirst;

// A spectrum of N = 16 with distinct, recognisable values: Rk = 100 + k, Ik = 200 + k.
std::vector<float> layoutOf(unsigned int layout, int n) {
    const int half = n / 2;
    std::vector<float> data(n);
    auto re = [](int k) { return 100.0f + k; };
    auto im = [](int k) { return 200.0f + k; };
    if (layout == LayoutRealsFirst) {
        for (int k = 0; k <= half; ++k)
            data[k] = re(k);
        for (int k = 1; k < half; ++k)
            data[n - k] = im(k);
        return data;
    }
    data[0] = re(0);
    const int first = layout == LayoutNyquistSecond ? 2 : 1;
    for (int k = 1; k < half; ++k) {
        data[first + 2 * (k - 1)] = re(k);
        data[first + 2 * (k - 1) + 1] = im(k);
    }
    data[layout == LayoutNyquistSecond ? 1 : n - 1] = re(half);
    return data;
}

TEST(CFftBasis, Log2OfSizeComesFromTheLogarithms) {
    EXPECT_EQ(CFftBasis<float>(1024).getLog2Size(), 10);
    EXPECT_EQ(CFftBasis<float>(1000).getLog2Size(), 10);
    EXPECT_EQ(CFftBasis<double>(16).getLog2Size(), 4);
    EXPECT_EQ(CFftBasis<double>(1 << 20).getLog2Size(), 20);
    EXPECT_EQ(CFftBasis<float>(0).getLog2Size(), 0);
    EXPECT_EQ(CFftBasis<float>(0).getSize(), 0);
    EXPECT_EQ(CFftBasis<float>(2048).getSize(), 2048);
}

TEST(CFftBasis, EveryLayoutConvertsToEveryOtherExactly) {
    for (int n : {16, 64}) {
        CFftBasis<float> basis(n);
        for (unsigned int from = 1; from <= 3; ++from) {
            for (unsigned int to = 1; to <= 3; ++to) {
                SCOPED_TRACE(testing::Message() << "N " << n << " from " << from << " to " << to);
                std::vector<float> data = layoutOf(from, n);
                basis.reorderSpectrum(data.data(), from, to);
                EXPECT_EQ(data, layoutOf(to, n));
            }
        }
    }
}

TEST(CFftBasis, EachLayoutConvertedToEachOtherAndBackReturnsTheSameData) {
    const int n = 256;
    CFftBasis<double> basis(n);
    const std::vector<double> original = ferrotip_test::randomValues<double>(n, 31u);
    for (unsigned int from = 1; from <= 3; ++from) {
        for (unsigned int to = 1; to <= 3; ++to) {
            SCOPED_TRACE(testing::Message() << "from " << from << " to " << to);
            std::vector<double> data = original;
            basis.reorderSpectrum(data.data(), from, to);
            basis.reorderSpectrum(data.data(), to, from);
            EXPECT_EQ(data, original);
        }
    }
}

TEST(CFftBasis, UnknownLayoutsChangeNothing) {
    CFftBasis<float> basis(16);
    const std::vector<float> original = layoutOf(LayoutNyquistSecond, 16);
    const unsigned int pairs[][2] = {{2, 4}, {0, 2}, {2, 0}, {4, 1}, {3, 7}, {2, 2}};
    for (const auto& pair : pairs) {
        std::vector<float> data = original;
        basis.reorderSpectrum(data.data(), pair[0], pair[1]);
        EXPECT_EQ(data, original) << pair[0] << " to " << pair[1];
    }
}

TEST(CFftBasis, InterleaveAndDeinterleaveAreInverse) {
    const std::vector<float> re{1, 2, 3};
    const std::vector<float> im{4, 5, 6};
    std::vector<float> packed(6);
    CFftBasis<float>::interleave(re.data(), im.data(), packed.data(), 3);
    EXPECT_EQ(packed, (std::vector<float>{1, 4, 2, 5, 3, 6}));
    std::vector<float> re2(3);
    std::vector<float> im2(3);
    CFftBasis<float>::deinterleave(packed.data(), re2.data(), im2.data(), 3);
    EXPECT_EQ(re2, re);
    EXPECT_EQ(im2, im);
}

}  // namespace
