// The public transform object is the portable one under its library name.
#include "signal/CFft.h"

#include "signal/FftTestSupport.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

namespace {

TEST(CFft, IsThePortableFloatTransform) {
    static_assert(std::is_base_of_v<standardLib::standard::CFft_std<float>, standardLib::CFft<float>>);
    static_assert(std::has_virtual_destructor_v<standardLib::CFft<float>>);
    static_assert(sizeof(standardLib::CFft<float>) == sizeof(standardLib::standard::CFft_std<float>));
    standardLib::CFft<float> fft(2048);
    standardLib::standard::CFft_std<float> portable(2048);
    EXPECT_EQ(fft.getLog2Size(), 11);
    const std::vector<float> input = ferrotip_test::randomValues<float>(2048, 51u);
    std::vector<float> a = input;
    std::vector<float> b = input;
    fft.realForwardInPlace(a.data(), standardLib::LayoutRealsFirst);
    portable.realForwardInPlace(b.data(), standardLib::LayoutRealsFirst);
    EXPECT_EQ(a, b);
}

}  // namespace
