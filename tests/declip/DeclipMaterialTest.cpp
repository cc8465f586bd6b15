// The material's test for references whose crests were flattened before: waveforms
// whose crest shapes are known by construction.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "DeclipMaterial.h"

namespace {

constexpr int rate = 44100;
constexpr double twoPi = 6.283185307179586;

// One second of shape(phase) at `frequency`.
std::vector<float> tone(double frequency, const std::function<double(double)>& shape)
{
    std::vector<float> samples(rate);
    for (int n = 0; n < rate; ++n) samples[n] = static_cast<float>(shape(twoPi * frequency * n / rate));
    return samples;
}

TEST(DeclipMaterial, CurvedCrestsAreNotFlat)
{
    // A sine's top 3% spans 23% of its crest above half the peak, under both tests' shares.
    EXPECT_FALSE(declipmaterial::flatTopped(tone(220.0, [](double p) { return 0.8 * std::sin(p); }), rate));
    EXPECT_FALSE(declipmaterial::flatTopped(tone(1500.0, [](double p) { return 0.8 * std::sin(p); }), rate));
    EXPECT_FALSE(declipmaterial::flatTopped(
        tone(220.0, [](double p) { return 0.6 * std::sin(p) + 0.3 * std::sin(3.1 * p + 1.0); }), rate));
}

TEST(DeclipMaterial, ALimitedToneIsFlatTopped)
{
    // tanh(3 sin) stays within 3% of its top over 60% of each crest, 2.7 ms at 220 Hz.
    EXPECT_TRUE(declipmaterial::flatTopped(tone(220.0, [](double p) { return std::tanh(3.0 * std::sin(p)); }), rate));
    // Four cycles at 600 Hz in silence: too few crests for the short plateaus' test, and
    // tops within 5% for 0.5 ms only, too short for the millisecond's; their top 3%
    // spans 0.45 ms.
    auto limited = tone(600.0, [](double p) { return std::tanh(3.0 * std::sin(p)); });
    std::fill(limited.begin() + 4 * rate / 600, limited.end(), 0.0f);
    EXPECT_LT(declipmaterial::flatCrests(limited, 5, 0.4), 10);
    EXPECT_FALSE(declipmaterial::holdsLongPlateau(limited, rate, 1.0f));
    EXPECT_TRUE(declipmaterial::flatTopped(limited, rate));
}

TEST(DeclipMaterial, AHighVoicesShortPlateausAreFlatTopped)
{
    // A 1.5 kHz tone limited at 0.8 of its amplitude: plateaus of about six samples
    // (0.14 ms, too short for the first test) over about half of each crest.
    const auto limited = tone(1500.0, [](double p) { return std::fmin(std::fmax(std::sin(p), -0.8), 0.8); });
    EXPECT_LT(declipmaterial::flatCrests(limited, static_cast<std::size_t>(0.3e-3 * rate), 0.35), 3);
    EXPECT_TRUE(declipmaterial::flatTopped(limited, rate));
}

}  // namespace
