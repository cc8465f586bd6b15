// The real-time declicker's floors (relative to each channel's running mean square,
// or given absolutely, applied at engine-block edges) and its latency per setting.
#include "RealtimeDeclicker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

namespace {

using ferrotip::lv2::RealtimeDeclicker;

constexpr double rate = 48000.0;
constexpr int engineLatency = 1926;

DeclickSettings onePass(DeclickPass pass)
{
    DeclickSettings settings;
    settings.passes[0] = pass;
    return settings;
}

DeclickSettings twoPasses()
{
    DeclickSettings settings = onePass({8.0f, {true, 1e-6}});
    settings.passes[1] = {16.0f, {true, 1e-3}};
    settings.passCount = 2;
    return settings;
}

// Feeds `seconds` of a tone in host blocks of 300, channel c at amplitudes[c].
void feedTone(RealtimeDeclicker& declicker, const std::vector<double>& amplitudes, double seconds)
{
    const std::size_t channels = amplitudes.size();
    std::vector<std::vector<float>> in(channels, std::vector<float>(300)), out = in;
    std::vector<const float*> input;
    std::vector<float*> output;
    for (std::size_t c = 0; c < channels; ++c) {
        input.push_back(in[c].data());
        output.push_back(out[c].data());
    }
    const int blocks = static_cast<int>(seconds * rate / 300);
    for (int b = 0; b < blocks; ++b) {
        for (std::size_t c = 0; c < channels; ++c)
            for (int i = 0; i < 300; ++i)
                in[c][i] = static_cast<float>(amplitudes[c] * std::sin(2 * M_PI * 1000.0 * (b * 300 + i) / rate));
        declicker.process(input.data(), output.data(), 300);
    }
}

TEST(RealtimeDeclicker, RelativeFloorFollowsEachChannelsMeanSquareOfTheLastTenSeconds)
{
    const DeclickSettings settings = onePass({12.0f, {true, 1e-3}});
    RealtimeDeclicker declicker(2, rate, {&settings, 1});
    declicker.setSettings(settings, DeclickListen::repaired);
    feedTone(declicker, {0.5, 0.05}, 1.0);
    EXPECT_NEAR(declicker.spectralFloor(0), 1e-3 * 0.125, 1e-3 * 0.125 * 1e-2);
    EXPECT_NEAR(declicker.spectralFloor(1), 1e-3 * 0.00125, 1e-3 * 0.00125 * 1e-2);
    // Twenty seconds later at a tenth of the level, the window holds only the new level.
    feedTone(declicker, {0.05, 0.05}, 20.0);
    EXPECT_NEAR(declicker.spectralFloor(0), 1e-3 * 0.00125, 1e-3 * 0.00125 * 1e-2);
}

TEST(RealtimeDeclicker, AbsoluteFloorIsWrittenAsGiven)
{
    const DeclickSettings settings = onePass({12.0f, {false, 3e-6}});
    RealtimeDeclicker declicker(1, rate, {&settings, 1});
    declicker.setSettings(settings, DeclickListen::repaired);
    feedTone(declicker, {0.5}, 0.1);
    EXPECT_EQ(declicker.spectralFloor(0), 3e-6f);
}

TEST(RealtimeDeclicker, LatencyIsTheChainedEnginesPlusOneEngineBlock)
{
    const std::vector<DeclickSettings> possible = {onePass({12.0f, {true, 1e-3}}), twoPasses()};
    RealtimeDeclicker declicker(2, rate, possible);
    EXPECT_EQ(declicker.fifoBlock(), 512);
    declicker.setSettings(possible[0], DeclickListen::repaired);
    declicker.reset();
    EXPECT_EQ(declicker.latency(), engineLatency + 512);
    declicker.setSettings(possible[1], DeclickListen::repaired);
    declicker.reset();
    EXPECT_EQ(declicker.latency(), 2 * engineLatency + 512);
}

TEST(RealtimeDeclicker, ALaneChangeReportsTheNewLatencyOnceItIsHeard)
{
    const std::vector<DeclickSettings> possible = {onePass({12.0f, {true, 1e-3}}), twoPasses()};
    RealtimeDeclicker declicker(1, rate, possible);
    declicker.setSettings(possible[0], DeclickListen::repaired);
    feedTone(declicker, {0.5}, 0.1);
    declicker.setSettings(possible[1], DeclickListen::repaired);
    feedTone(declicker, {0.5}, 0.05);  // still settling: the old lane is heard
    EXPECT_EQ(declicker.latency(), engineLatency + 512);
    feedTone(declicker, {0.5}, 0.5);
    EXPECT_EQ(declicker.latency(), 2 * engineLatency + 512);
}

TEST(RealtimeDeclicker, ASampleThatIsNotFiniteGoesInAsSilence)
{
    const std::vector<DeclickSettings> possible = {twoPasses()};
    RealtimeDeclicker declicker(1, rate, possible);
    declicker.setSettings(possible[0], DeclickListen::repaired);
    declicker.reset();
    const int frames = 20000;
    std::vector<float> in(frames), out(frames);
    for (int i = 0; i < frames; ++i) in[i] = static_cast<float>(0.3 * std::sin(0.05 * i));
    in[1000] = std::nanf("");
    in[3000] = INFINITY;
    const float* input = in.data();
    float* output = out.data();
    declicker.process(&input, &output, frames);
    for (int i = 0; i < frames; ++i) ASSERT_TRUE(std::isfinite(out[i])) << i;
}

}  // namespace
