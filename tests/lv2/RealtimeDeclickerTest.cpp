// The real-time declicker's floor: relative to the running mean square of the
// input, or given absolutely, and applied at engine-block edges.
#include "RealtimeDeclicker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using ferrotip::lv2::DeclickSettings;
using ferrotip::lv2::RealtimeDeclicker;

constexpr double rate = 48000.0;

// Feeds `seconds` of a tone of amplitude `amplitude` in host blocks of 300.
void feedTone(RealtimeDeclicker& declicker, double amplitude, double seconds)
{
    std::vector<float> in(300), out(300);
    const float* input[] = {in.data()};
    float* output[] = {out.data()};
    const int blocks = static_cast<int>(seconds * rate / 300);
    for (int b = 0; b < blocks; ++b) {
        for (int i = 0; i < 300; ++i)
            in[i] = static_cast<float>(amplitude * std::sin(2 * M_PI * 1000.0 * (b * 300 + i) / rate));
        declicker.process(input, output, 300);
    }
}

TEST(RealtimeDeclicker, RelativeFloorFollowsTheMeanSquareOfTheLastTenSeconds)
{
    RealtimeDeclicker declicker(1, rate);
    DeclickSettings settings;
    settings.floorRatio = 1e-3;
    declicker.setSettings(settings);
    feedTone(declicker, 0.5, 1.0);
    EXPECT_NEAR(declicker.spectralFloor(), 1e-3 * 0.125, 1e-3 * 0.125 * 1e-2);
    // Twenty seconds later at a tenth of the level, the window holds only the new level.
    feedTone(declicker, 0.05, 20.0);
    EXPECT_NEAR(declicker.spectralFloor(), 1e-3 * 0.00125, 1e-3 * 0.00125 * 1e-2);
}

TEST(RealtimeDeclicker, AbsoluteFloorIsWrittenAsGiven)
{
    RealtimeDeclicker declicker(1, rate);
    DeclickSettings settings;
    settings.absoluteFloor = true;
    settings.floor = 3e-6f;
    declicker.setSettings(settings);
    feedTone(declicker, 0.5, 0.1);
    EXPECT_EQ(declicker.spectralFloor(), 3e-6f);
}

TEST(RealtimeDeclicker, LatencyIsTheEngineLatencyPlusOneEngineBlock)
{
    EXPECT_EQ(RealtimeDeclicker(2, rate).latency(), 1926 + RealtimeDeclicker::engineBlock);
}

}  // namespace
