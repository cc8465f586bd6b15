// Continuing a recording past its edges: predicted next to the edge, the point
// reflection further out, faded to silence.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include "declick/EdgeContinuation.h"

namespace {

std::vector<float> tone(int count, double cyclesPerSample, double phase, int from = 0)
{
    std::vector<float> samples(static_cast<std::size_t>(count));
    for (int n = 0; n < count; ++n)
        samples[n] = static_cast<float>(0.5 * std::cos(2.0 * std::numbers::pi * cyclesPerSample * (n + from) + phase));
    return samples;
}

// Within a few thousandths of the tone; its point reflection would be off by up to
// 0.7 eight samples out, where the tone's curvature flips.
TEST(EdgeContinuation, ASteadyToneGoesOnAsItWouldHave)
{
    constexpr double frequency = 0.0275;  // 220 Hz at 8 kHz
    for (const double phase : {0.0, 1.0, 2.5}) {
        const std::vector<float> recording = tone(2048, frequency, phase);
        std::vector<float> after(512), before(512);
        continuePastEdge(recording, false, after, 1e15f);
        continuePastEdge(recording, true, before, 1e15f);
        const std::vector<float> next = tone(8, frequency, phase, 2048);
        const std::vector<float> previous = tone(8, frequency, phase, -8);
        for (int j = 0; j < 8; ++j) {
            EXPECT_NEAR(after[j], next[j], 2e-3) << "phase " << phase << ", sample " << j;
            EXPECT_NEAR(before[504 + j], previous[j], 2e-3) << "phase " << phase << ", sample " << j;
        }
    }
}

TEST(EdgeContinuation, FurtherOutItIsThePointReflectionFadedToSilence)
{
    std::vector<float> recording(3000);
    unsigned state = 7;
    for (float& sample : recording) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<float>(static_cast<int>(state >> 9) - (1 << 22)) / (1 << 23);
    }
    std::vector<float> after(1024);
    continuePastEdge(recording, false, after, 1e15f);
    const double pivot = 2.0 * recording.back();
    for (int distance = 65; distance <= 512; ++distance)
        EXPECT_EQ(after[distance - 1], static_cast<float>(pivot - recording[recording.size() - 1 - distance]))
            << distance;
    EXPECT_LT(std::fabs(after.back()), 1e-4 * (std::fabs(pivot) + 1.0));
}

TEST(EdgeContinuation, BothEdgesAreContinuedAlike)
{
    std::vector<float> recording = tone(1500, 0.013, 0.3);
    for (int n = 0; n < 1500; ++n) recording[n] += 0.2f * static_cast<float>(std::sin(0.37 * n * n / 1500.0));
    std::vector<float> reversed(recording.rbegin(), recording.rend());
    std::vector<float> after(700), before(700);
    continuePastEdge(recording, false, after, 1e15f);
    continuePastEdge(reversed, true, before, 1e15f);
    EXPECT_TRUE(std::equal(after.begin(), after.end(), before.rbegin()));
}

TEST(EdgeContinuation, ShortSilentAndHugeRecordingsGiveFiniteHeldValues)
{
    std::vector<float> out(300);
    continuePastEdge({}, false, out, 1e15f);
    EXPECT_TRUE(std::ranges::all_of(out, [](float v) { return v == 0.0f; }));
    const std::vector<float> silence(2000, 0.0f);
    continuePastEdge(silence, true, out, 1e15f);
    EXPECT_TRUE(std::ranges::all_of(out, [](float v) { return v == 0.0f; }));
    const std::vector<float> few{0.25f, 0.5f, -0.25f};
    continuePastEdge(few, false, out, 1e15f);
    EXPECT_FLOAT_EQ(out[0], 2 * -0.25f - 0.5f);
    EXPECT_FLOAT_EQ(out[5], 2 * -0.25f - 0.25f);  // the reflection holds its last value
    std::vector<float> huge = tone(2000, 0.01, 0.0);
    for (float& v : huge) v *= 2e15f;
    continuePastEdge(huge, false, out, 1e15f);
    EXPECT_TRUE(std::ranges::all_of(out, [](float v) { return std::isfinite(v) && std::fabs(v) <= 1e15f; }));
}

}  // namespace
