// The similarity search on material that repeats: it finds the repetition, copies it
// at the right level, never takes its passage from the hole, and reports no match
// where there is no room.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "inpaint/GapFiller.h"
#include "inpaint/PatternSearch.h"

namespace {

// Noise repeating every `period` samples: only a copy restores it, no predictor does.
std::vector<double> repeatingNoise(int count, int period, unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise(0.0, 0.3);
    std::vector<double> cycle(period);
    for (double& v : cycle) v = noise(generator);
    std::vector<double> x(count);
    for (int i = 0; i < count; ++i) x[i] = cycle[i % period];
    return x;
}

// The search's fill of the hole in one channel x, and its score.
double searchFill(const std::vector<double>& x, int hole, int length, int border, std::vector<double>& fill)
{
    fill.assign(length, 1.0);
    PatternSearch search(static_cast<int>(x.size()), 1);
    const double* segments[1] = {x.data()};
    double* out[1] = {fill.data()};
    search.begin(segments, 1, static_cast<int>(x.size()));
    return search.fill(hole, length, border, out);
}

TEST(PatternSearch, FindsTheRepetitionAndCopiesIt)
{
    const int count = 40000, hole = 20000, length = 3000, border = 500;
    auto x = repeatingNoise(count, 7001, 1);
    const std::vector<double> original = x;
    std::fill_n(x.begin() + hole, length, 0.0);
    std::vector<double> fill;
    EXPECT_GT(searchFill(x, hole, length, border, fill), 0.999);
    for (int i = 0; i < length; ++i) ASSERT_NEAR(fill[i], original[hole + i], 1e-9) << i;
}

TEST(PatternSearch, ScalesAQuieterRepetitionToTheBorders)
{
    const int count = 30000, hole = 20000, length = 3000, border = 500, period = 9000;
    auto x = repeatingNoise(count, period, 2);
    for (int i = 0; i < hole - border - length; ++i) x[i] *= 0.5;  // the earlier cycles are quieter
    const std::vector<double> original = x;
    std::fill_n(x.begin() + hole, length, 0.0);
    std::vector<double> fill;
    searchFill(x, hole, length, border, fill);
    for (int i = 0; i < length; ++i) ASSERT_NEAR(fill[i], original[hole + i], 1e-9) << i;
}

TEST(PatternSearch, NoRoomMeansNoMatch)
{
    const int count = 4000, hole = 1000, length = 2000, border = 500;
    auto x = repeatingNoise(count, 700, 3);
    std::vector<double> fill;
    EXPECT_EQ(searchFill(x, hole, length, border, fill), 0.0);
    for (double v : fill) ASSERT_EQ(v, 0.0);
}

// Every window's score is the normalised correlation of its borders with the hole's,
// summed plainly; windows over the hole score 0.
TEST(PatternSearch, ScoresEveryWindowByItsBordersCorrelation)
{
    const int count = 3000, hole = 1400, length = 100, border = 200, span = 2 * border + length;
    auto x = repeatingNoise(count, 611, 4);
    for (int i = 0; i < count; ++i) x[i] += 0.2 * std::sin(0.37 * i * i / count);  // no exact repeat
    std::fill_n(x.begin() + hole, length, 0.0);
    PatternSearch search(count, 1);
    const double* segments[1] = {x.data()};
    search.begin(segments, 1, count);
    int windows = 0;
    const double* scores = search.scores(hole, length, border, windows);
    ASSERT_EQ(windows, count - span + 1);
    for (int u = 0; u < windows; ++u) {
        if (u < hole + length && u + span > hole) {
            ASSERT_EQ(scores[u], 0.0) << u;
            continue;
        }
        double product = 0.0, here = 0.0, there = 0.0;
        for (int j = 0; j < span; ++j) {
            if (j >= border && j < border + length) continue;
            product += x[hole - border + j] * x[u + j];
            here += x[hole - border + j] * x[hole - border + j];
            there += x[u + j] * x[u + j];
        }
        ASSERT_NEAR(scores[u], product / std::sqrt(here * there), 1e-9) << u;
    }
}

// A long segment is correlated block by block: every window's score over two channels,
// across many blocks and their joins, is still the plain sums' normalised correlation
// (to rounding; to single precision's in the transforms that only rank candidates, which
// still rank the same window first).
TEST(PatternSearch, ScoresEveryWindowAcrossBlocksAndChannels)
{
    for (const auto precision : {PatternSearch::Precision::exact, PatternSearch::Precision::ranking}) {
        const double tolerance = precision == PatternSearch::Precision::exact ? 1e-9 : 2e-5;
        const int count = 30000, hole = 17000, length = 300, border = 450, span = 2 * border + length;
        std::vector<std::vector<double>> x = {repeatingNoise(count, 977, 5), repeatingNoise(count, 977, 6)};
        for (int c = 0; c < 2; ++c) {
            for (int i = 0; i < count; ++i) x[c][i] += 0.3 * std::sin(0.21 * i * i / count + c);
            std::fill_n(x[c].begin() + hole, length, 0.0);
        }
        PatternSearch search(count, 2, span, precision);
        const double* segments[2] = {x[0].data(), x[1].data()};
        search.begin(segments, 2, count);
        int windows = 0;
        const double* scores = search.scores(hole, length, border, windows);
        ASSERT_EQ(windows, count - span + 1);
        int best = 0;
        double bestExpected = -1.0;
        for (int u = 0; u < windows; ++u) {
            if (u < hole + length && u + span > hole) continue;
            double product = 0.0, here = 0.0, there = 0.0;
            for (int c = 0; c < 2; ++c)
                for (int j = 0; j < span; ++j) {
                    if (j >= border && j < border + length) continue;
                    product += x[c][hole - border + j] * x[c][u + j];
                    here += x[c][hole - border + j] * x[c][hole - border + j];
                    there += x[c][u + j] * x[c][u + j];
                }
            const double expected = product / std::sqrt(here * there);
            ASSERT_NEAR(scores[u], expected, tolerance) << u;
            if (expected > bestExpected) {
                bestExpected = expected;
                best = u;
            }
        }
        EXPECT_EQ(std::max_element(scores, scores + windows) - scores, best);
        // A template longer than the largest block of a search built for short ones finds nothing.
        PatternSearch narrow(count, 2, 100);
        narrow.begin(segments, 2, count);
        EXPECT_EQ(narrow.scores(hole, length, PatternSearch::blockMinimum, windows), nullptr);
        EXPECT_EQ(windows, 0);
    }
}

// A 100 ms gap in repeating stereo noise: the filler takes the repetition.
TEST(GapFiller, LongGapInRepeatingSoundTakesTheRepetition)
{
    const int rate = 44100, gap = rate / 10;
    GapFiller filler(rate, gap, 2);
    const int context = filler.contextLength(gap);
    const auto noise = repeatingNoise(2 * context + gap, 20011, 4);
    std::vector<std::vector<float>> original(2, std::vector<float>(noise.size()));
    for (std::size_t i = 0; i < noise.size(); ++i) {
        original[0][i] = static_cast<float>(noise[i]);
        original[1][i] = static_cast<float>(-0.5 * noise[i]);
    }
    auto channels = original;
    for (auto& c : channels) std::fill_n(c.begin() + context, gap, 0.0f);
    float* pointers[2] = {channels[0].data(), channels[1].data()};
    filler.fill(pointers, 2, context, gap);
    for (int c = 0; c < 2; ++c)
        for (int i = context; i < context + gap; ++i) ASSERT_NEAR(channels[c][i], original[c][i], 1e-5) << c << " " << i;
}

}  // namespace
