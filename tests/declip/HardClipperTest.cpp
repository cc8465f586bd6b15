#include "declip/HardClipper.h"

#include <gtest/gtest.h>

#include "declip/DeclipTestSignals.h"

namespace {

TEST(HardClipper, ClipsToTheRequestedSdr)
{
    const auto signal = declipsignals::tonal(20000, 7);
    for (double target : {1.0, 3.0, 5.0, 7.0, 10.0, 15.0, 20.0}) {
        const auto clipped = hardclip::clip(signal, hardclip::levelForSdr(signal, target));
        EXPECT_NEAR(hardclip::sdr(signal.data(), clipped.data(), signal.size()), target, 0.01) << target;
    }
}

TEST(HardClipper, SdrOfAnExactCopyIsInfinite)
{
    const auto signal = declipsignals::tonal(100, 8);
    EXPECT_TRUE(std::isinf(hardclip::sdr(signal.data(), signal.data(), signal.size())));
}

}  // namespace
