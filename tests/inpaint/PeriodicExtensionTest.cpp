// Period repetition on synthetic voiced sound: exact on a strictly periodic signal
// (also across a hole shorter than its period),
// each side's own period near its edge, and nothing read beyond its reach.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "inpaint/PeriodicExtension.h"

namespace {

constexpr double pi = 3.14159265358979323846;

// Three harmonics of a fundamental with an integer period, shifted in phase per channel.
double voiced(int n, int period, int channel)
{
    const double phase = 2 * pi * n / period + 0.3 * channel;
    return 0.5 * std::sin(phase) + 0.3 * std::sin(2 * phase + 1.0) + 0.1 * std::sin(3 * phase + 2.0);
}

struct Hole {
    int before, length, after;
    int start() const { return before; }
    int size() const { return before + length + after; }
};

std::vector<std::vector<double>> periodicChannels(const Hole& hole, int periodBefore, int periodAfter)
{
    std::vector<std::vector<double>> channels(2, std::vector<double>(hole.size()));
    for (int c = 0; c < 2; ++c)
        for (int n = 0; n < hole.size(); ++n)
            channels[c][n] = voiced(n, n < hole.start() + hole.length / 2 ? periodBefore : periodAfter, c);
    return channels;
}

std::vector<std::vector<double>> fillOf(PeriodicExtension& extension, const std::vector<std::vector<double>>& channels,
                                        const Hole& hole)
{
    std::vector<std::vector<double>> out(2, std::vector<double>(hole.length));
    const double* segments[2] = {channels[0].data(), channels[1].data()};
    double* rows[2] = {out[0].data(), out[1].data()};
    extension.fill(segments, 2, hole.start(), hole.length, rows);
    return out;
}

// Both sides repeat the same period: the fill is the signal up to rounding.
void expectRestoredExactly(const Hole& hole, int period)
{
    PeriodicExtension extension(100, 500, 400, 2);
    const auto channels = periodicChannels(hole, period, period);
    const auto out = fillOf(extension, channels, hole);
    constexpr double tolerance = 1e-12;
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < hole.length; ++i) ASSERT_NEAR(out[c][i], channels[c][hole.start() + i], tolerance) << c << " " << i;
}

TEST(PeriodicExtension, RestoresAStrictlyPeriodicSignal) { expectRestoredExactly({1000, 4410, 1000}, 160); }

// A hole shorter than a cycle holds no whole cycle: the phase runs on at the pitch
// (forcing a cycle into it would double the pitch and cancel the fill).
TEST(PeriodicExtension, RestoresAHoleShorterThanItsPeriod) { expectRestoredExactly({1000, 300, 1000}, 450); }

TEST(PeriodicExtension, EachEdgeContinuesItsOwnPeriod)
{
    PeriodicExtension extension(100, 500, 400, 2);
    const Hole hole{1200, 8000, 1200};
    const auto channels = periodicChannels(hole, 150, 230);
    const auto out = fillOf(extension, channels, hole);
    // Next to each edge the crossfade weighs that side's continuation almost fully.
    constexpr double nearEdge = 1e-3 * 2;  // weight of the far side at 4 samples in, times the amplitude
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < 4; ++i) {
            EXPECT_NEAR(out[c][i], voiced(hole.start() + i, 150, c), nearEdge);
            const int last = hole.length - 1 - i;
            EXPECT_NEAR(out[c][last], voiced(hole.start() + last, 230, c), nearEdge);
        }
}

TEST(PeriodicExtension, ReadsOnlyItsReach)
{
    PeriodicExtension extension(100, 500, 400, 2);
    const Hole hole{1500, 3000, 1500};
    auto channels = periodicChannels(hole, 160, 160);
    const double poison = std::numeric_limits<double>::quiet_NaN();
    for (auto& channel : channels)
        for (int n = 0; n < hole.size(); ++n)
            if (n < hole.start() - extension.reach() || (n >= hole.start() && n < hole.start() + hole.length) ||
                n >= hole.start() + hole.length + extension.reach())
                channel[n] = poison;
    const auto out = fillOf(extension, channels, hole);
    for (const auto& row : out)
        for (double v : row) ASSERT_TRUE(std::isfinite(v));
}

}  // namespace
