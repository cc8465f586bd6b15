// The repeat search on sound that repeats seconds apart: it finds the repeat, agrees
// with an exhaustive search of every shift, keeps out of the hole and of what it is
// not given, finds nothing in silence, and allocates nothing. The gap filler then
// carries a short gap in such sound by the repeat, where its models alone cannot.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "inpaint/GapFiller.h"
#include "inpaint/RepeatSearch.h"
#include "support/AllocationCounter.h"

namespace {

constexpr int rate = 44100;

// A cycle of coloured noise repeating every `period` samples, each repeat varied by
// coloured noise of its own: faintly in the repeats that hold `here` or `clean`, ten
// times more and growing with the distance from `clean` in the others.
std::vector<std::vector<float>> repeatingSound(int count, int period, int here, int clean, unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise(0.0, 1.0);
    std::vector<double> cycle(period);
    double low = 0.0;
    for (double& v : cycle) v = low = 0.9 * low + 0.1 * noise(generator);
    std::vector<std::vector<float>> channels(2, std::vector<float>(count));
    double variation[2] = {};
    for (int i = 0; i < count; ++i) {
        const int fromClean = std::abs(i / period - clean / period);
        const double level = i / period == here / period || fromClean == 0 ? 0.01 : 0.1 * (1 + fromClean);
        for (double& v : variation) v = 0.9 * v + 0.1 * noise(generator);
        channels[0][i] = static_cast<float>(cycle[i % period] + level * variation[0]);
        channels[1][i] = static_cast<float>(0.6 * cycle[i % period] + level * variation[1]);
    }
    return channels;
}

// The normalised correlation of the hole's borders with those of the same window
// shifted by `shift`, summed over the channels, as plainly as it can be written.
double plainCorrelation(const std::vector<std::vector<float>>& x, int hole, int length, int border, int shift)
{
    double product = 0.0, here = 0.0, there = 0.0;
    for (const auto& channel : x)
        for (int t = hole - border; t < hole + length + border; ++t) {
            if (t >= hole && t < hole + length) continue;
            const double a = channel[t], b = channel[t + shift];
            product += a * b;
            here += a * a;
            there += b * b;
        }
    return product / std::sqrt(here * there);
}

struct Search {
    explicit Search(std::vector<std::vector<float>> sound) : x(std::move(sound)), search(count(), rate / 5000)
    {
        for (int c = 0; c < 2; ++c) rows[c] = x[c].data();
    }
    int count() const { return static_cast<int>(x[0].size()); }
    RepeatSearch::Match find(int from, int to, int hole, int length, int border)
    {
        return search.find(rows, 2, from, to, hole, length, border);
    }
    std::vector<std::vector<float>> x;
    RepeatSearch search;
    const float* rows[2];
};

TEST(RepeatSearch, FindsARepeatSecondsAway)
{
    const int period = 2 * rate + 123, hole = 3 * rate, length = rate / 50, border = 4000;
    Search s(repeatingSound(6 * rate, period, hole, hole + period, 1));
    for (auto& channel : s.x) std::fill_n(channel.begin() + hole, length, 0.0f);
    const RepeatSearch::Match found = s.find(0, s.count(), hole, length, border);
    EXPECT_EQ(found.source, hole + period);
    EXPECT_GT(found.correlation, 0.999);
    EXPECT_NEAR(found.gain, 1.0, 0.01);
}

TEST(RepeatSearch, AgreesWithEveryShiftTried)
{
    const int period = 9001, length = 500, border = 1000;
    for (int hole : {30011, 40000}) {
        Search s(repeatingSound(64000, period, hole, hole - 3 * period, 2));
        // The hole is never read: whatever the damage left there changes nothing.
        for (auto& channel : s.x) std::fill_n(channel.begin() + hole, length, std::nanf(""));
        double best = 0.0;
        int bestShift = 0;
        for (int shift = -(hole - border); hole + length + border + shift <= s.count(); ++shift) {
            if (shift > -(length + border) && shift < length + border) continue;
            const double r = plainCorrelation(s.x, hole, length, border, shift);
            if (r > best) {
                best = r;
                bestShift = shift;
            }
        }
        const RepeatSearch::Match found = s.find(0, s.count(), hole, length, border);
        EXPECT_EQ(found.source - hole, bestShift) << hole;
        EXPECT_NEAR(found.correlation, best, 1e-9) << hole;
    }
}

TEST(RepeatSearch, KeepsOutOfTheHoleAndWithinItsRange)
{
    // A period shorter than the borders: every close repeat would overlap the hole.
    const int period = 700, hole = 20000, length = 441, border = 2000;
    Search s(repeatingSound(40000, period, hole, hole, 3));
    for (auto& channel : s.x) std::fill_n(channel.begin() + hole, length, 0.0f);
    const int from = 12000, to = 30000;
    const RepeatSearch::Match found = s.find(from, to, hole, length, border);
    ASSERT_GT(found.correlation, 0.5);
    const int shift = found.source - hole;
    EXPECT_GE(std::abs(shift), length + border);
    EXPECT_GE(found.source - border, from);
    EXPECT_LE(found.source + length + border, to);
}

TEST(RepeatSearch, SilenceHasNoRepeat)
{
    Search s(std::vector<std::vector<float>>(2, std::vector<float>(50000, 0.0f)));
    EXPECT_EQ(s.find(0, s.count(), 25000, 441, 2000).correlation, 0.0);
}

TEST(RepeatSearch, FindingAllocatesNothing)
{
    Search s(repeatingSound(4 * rate, rate + 17, 2 * rate, 2 * rate, 4));
    const std::size_t allocations = testsupport::allocationsDuring([&] { s.find(0, s.count(), 2 * rate, 882, 4000); });
    EXPECT_EQ(allocations, 0u);
}

// A 20 ms gap in coloured noise that repeats every 1.5 s: no model predicts the noise
// across the gap, but its repeat does.
TEST(GapFiller, ShortGapInRepeatingSoundTakesTheRepeat)
{
    const int gap = rate / 50;
    InpaintSettings withoutRepeats;
    withoutRepeats.repetitionReachMs = 0.0;
    GapFiller filler(rate, gap, 2), modelsAlone(rate, gap, 2, withoutRepeats);
    const int context = filler.contextLength(gap);
    const int period = 3 * rate / 2 + 31;
    const auto original = repeatingSound(2 * context + gap, period, context, context - period, 5);
    auto snrOf = [&](GapFiller& f) {
        auto channels = original;
        for (auto& channel : channels) std::fill_n(channel.begin() + context, gap, 0.0f);
        float* pointers[2] = {channels[0].data(), channels[1].data()};
        f.fill(pointers, 2, context, gap);
        double signal = 0.0, error = 0.0;
        for (int c = 0; c < 2; ++c)
            for (int i = context; i < context + gap; ++i) {
                signal += double(original[c][i]) * original[c][i];
                error += (double(channels[c][i]) - original[c][i]) * (double(channels[c][i]) - original[c][i]);
            }
        return 10.0 * std::log10(signal / error);
    };
    EXPECT_LT(snrOf(modelsAlone), 10.0);
    EXPECT_GT(snrOf(filler), 30.0);
}

}  // namespace
