#include "crackle/FftCrackleDetectorOpt.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "crackle/CrackleTestSignals.h"
#include "support/AllocationCounter.h"

namespace {

using cracklefixture::Channels;

constexpr int frameSize = 2048;
constexpr int hop = 512;
constexpr int latency = 1566;
constexpr int taps = FftCrackleDetectorOpt::filterOrder + 1;

using Filter = std::vector<double>;

Filter filterOf(const double* taps_) { return Filter(taps_, taps_ + taps); }
bool isZero(const Filter& f)
{
    return std::all_of(f.begin(), f.end(), [](double v) { return v == 0.0; });
}

// Feeds one hop per call, so that every call runs exactly one hop step, and calls
// `afterHop(h)` after hop h.
template <typename AfterHop>
void stepHops(FftCrackleDetectorOpt& detector, const Channels& input, AfterHop afterHop)
{
    const int channels = static_cast<int>(input.size());
    const int hops = static_cast<int>(input[0].size()) / hop;
    Channels audio(channels, std::vector<float>(hop));
    Channels residual(channels, std::vector<float>(hop));
    std::vector<std::vector<int>> marks(channels, std::vector<int>(hop));
    std::vector<float*> a(channels), r(channels);
    std::vector<int*> m(channels);
    for (int h = 0; h < hops; ++h) {
        for (int c = 0; c < channels; ++c) {
            std::copy_n(input[c].begin() + h * hop, hop, audio[c].begin());
            a[c] = audio[c].data();
            r[c] = residual[c].data();
            m[c] = marks[c].data();
        }
        detector.process(m.data(), a.data(), r.data(), hop);
        afterHop(h, marks);
    }
}

// Loud partials: the tonal path carries them from the fourth hop on.
Channels tonal(int channels, int hops) { return cracklefixture::musicLike(channels, hops * hop, 21); }

TEST(FftCrackleDetectorOpt, DerivedSizesAndDefaults)
{
    FftCrackleDetectorOpt detector(2, frameSize);
    EXPECT_EQ(detector.hop(), hop);
    EXPECT_EQ(detector.latency(), latency);
    EXPECT_EQ(detector.sensitivity(), 3.0f);
    EXPECT_EQ(detector.spectralFloor(), 1e-7f);
    EXPECT_EQ(detector.level(0), 1e-8f);  // set by reset
    EXPECT_EQ(detector.ringPosition(), 0);
}

TEST(FftCrackleDetectorOpt, OneChannelUsesItsFilterThreeHopsAfterStoringIt)
{
    FftCrackleDetectorOpt detector(1, frameSize);
    std::vector<Filter> stored;
    int hopsWithFilter = 0;
    stepHops(detector, tonal(1, 16), [&](int h, auto&) {
        stored.push_back(filterOf(detector.storedFilter(h % 4, 0)));
        const Filter inUse = filterOf(detector.filterInUse(0));
        SCOPED_TRACE(h);
        EXPECT_EQ(inUse, h >= 3 ? stored[h - 3] : Filter(taps, 0.0));
        if (isZero(inUse)) {
            // No filter: both passes give |x|, and the statistic is 2|x| exactly.
            for (int k = 0; k < hop; ++k)
                ASSERT_EQ(detector.statistic(0)[k], 2.0f * std::fabs(detector.residualHop(0)[k])) << k;
        } else {
            ++hopsWithFilter;
        }
    });
    EXPECT_GT(hopsWithFilter, 5);
}

TEST(FftCrackleDetectorOpt, TwoChannelsNeverUseAFilter)
{
    FftCrackleDetectorOpt detector(2, frameSize);
    bool anyStored = false;
    stepHops(detector, tonal(2, 16), [&](int, auto&) {
        for (int c = 0; c < 2; ++c) {
            EXPECT_TRUE(isZero(filterOf(detector.filterInUse(c))));
            for (int slot = 0; slot < 4; ++slot)
                anyStored = anyStored || !isZero(filterOf(detector.storedFilter(slot, c)));
        }
    });
    EXPECT_TRUE(anyStored);  // filters are stored, in slots that are never read
}

TEST(FftCrackleDetectorOpt, ThreeChannelsUseEachFilterOneHopAfterStoringIt)
{
    FftCrackleDetectorOpt detector(3, frameSize);
    std::vector<std::vector<Filter>> stored(3);
    int hopsWithFilter = 0;
    stepHops(detector, tonal(3, 12), [&](int h, auto&) {
        for (int c = 0; c < 3; ++c) {
            // Channel c of hop h wrote slot (3h + c) mod 4 and read the next one.
            stored[c].push_back(filterOf(detector.storedFilter((3 * h + c) % 4, c)));
            const Filter inUse = filterOf(detector.filterInUse(c));
            SCOPED_TRACE(testing::Message() << "hop " << h << " channel " << c);
            EXPECT_EQ(inUse, h >= 1 ? stored[c][h - 1] : Filter(taps, 0.0));
            hopsWithFilter += !isZero(inUse);
        }
    });
    EXPECT_GT(hopsWithFilter, 10);
}

TEST(FftCrackleDetectorOpt, SilentTonalPathKeepsTheStoredFilters)
{
    // Tonal audio for 10 hops, then silence: the tonal path is all zero from hop
    // 10 + 3 (delay) + 3 (frame ring) on, and the dither alone (energy about
    // 512 * 8.3e-14 = 4.3e-11) stays below 1e-10.
    FftCrackleDetectorOpt detector(1, frameSize);
    Channels input = tonal(1, 24);
    std::fill(input[0].begin() + 10 * hop, input[0].end(), 0.0f);
    std::vector<Filter> held;
    stepHops(detector, input, [&](int h, auto&) {
        if (h < 17) return;
        std::vector<Filter> slots;
        for (int slot = 0; slot < 4; ++slot) slots.push_back(filterOf(detector.storedFilter(slot, 0)));
        if (held.empty()) held = slots;
        EXPECT_EQ(slots, held) << h;
    });
    for (const Filter& f : held) EXPECT_FALSE(isZero(f));
}

TEST(FftCrackleDetectorOpt, LevelStaysAtItsFloorUntilNineQuantilesAreNonZero)
{
    // Entry 11 of the sorted ring needs nine non-zero quantiles; each hop adds
    // two, so the first four hops after construction cannot lift the level.
    FftCrackleDetectorOpt detector(2, frameSize);
    stepHops(detector, tonal(2, 10), [&](int h, auto&) {
        SCOPED_TRACE(h);
        if (h < 4) {
            EXPECT_EQ(detector.level(0), 1e-9f);
        }
        if (h >= 7) {
            EXPECT_GT(detector.level(0), 1e-9f);
        }
    });
}

TEST(FftCrackleDetectorOpt, ResetKeepsTheQuantilePositionAndTheSameAudioGivesTheSameLevels)
{
    // Two channels use no filter, so the statistic does not depend on the dither.
    FftCrackleDetectorOpt detector(2, frameSize);
    const Channels input = tonal(2, 17);
    std::vector<float> firstRun;
    stepHops(detector, input, [&](int, auto&) { firstRun.push_back(detector.level(1)); });
    const int position = detector.quantilePosition(0);
    EXPECT_EQ(position, (2 * 17) % 20);
    detector.reset();
    EXPECT_EQ(detector.quantilePosition(0), position);
    EXPECT_EQ(detector.ringPosition(), 0);
    std::vector<float> secondRun;
    stepHops(detector, input, [&](int, auto&) { secondRun.push_back(detector.level(1)); });
    // The ring fills from another index, but the sorted entries are the same.
    EXPECT_EQ(secondRun, firstRun);
    EXPECT_GT(firstRun.back(), 1e-9f);
}

TEST(FftCrackleDetectorOpt, RunBridgesFiveQuietSamplesWhereTheStandardDetectorSplits)
{
    // A quiet alternating +-1e-4 (its Nyquist bin, power 6e-10, stays below the
    // floor) makes the statistic of two channels, 2|x|, a flat 2e-4 and the level
    // the same; two spikes of 0.2 six samples apart (bin power at most 4e-8 each)
    // are the only strong hits. The mark of sample j's statistic falls on sample
    // j - 1 (the alignment made for first differences). The spikes come after the
    // level has left its start-up floor.
    const int spikeAt = 9 * hop + 250;
    Channels input(2, std::vector<float>(16 * hop));
    for (auto& row : input) {
        for (size_t t = 0; t < row.size(); ++t) row[t] = (t % 2) != 0 ? 1e-4f : -1e-4f;
        row[spikeAt] = 0.2f;
        row[spikeAt + 6] = -0.2f;
    }
    FftCrackleDetectorOpt detector(2, frameSize);
    std::vector<int> marks;
    stepHops(detector, input, [&](int, auto& hopMarks) {
        marks.insert(marks.end(), hopMarks[0].begin(), hopMarks[0].end());
    });
    const int at = spikeAt + latency;
    std::vector<int> marked;
    for (int i = at - 60; i < at + 60; ++i)
        if (marks[i] != 0) marked.push_back(i - at);
    EXPECT_EQ(marked, (std::vector<int>{-1, 0, 1, 2, 3, 4, 5}));
}

TEST(FftCrackleDetectorOpt, ProcessAllocatesNothing)
{
    FftCrackleDetectorOpt detector(2, frameSize);
    const auto input = tonal(2, 8);
    std::size_t allocations = 0;
    Channels audio(2, std::vector<float>(hop));
    Channels residual(2, std::vector<float>(hop));
    std::vector<std::vector<int>> marks(2, std::vector<int>(hop));
    float* a[2] = {audio[0].data(), audio[1].data()};
    float* r[2] = {residual[0].data(), residual[1].data()};
    int* m[2] = {marks[0].data(), marks[1].data()};
    for (int h = 0; h < 8; ++h) {
        for (int c = 0; c < 2; ++c) std::copy_n(input[c].begin() + h * hop, hop, audio[c].begin());
        allocations += testsupport::allocationsDuring([&] { detector.process(m, a, r, hop); });
    }
    EXPECT_EQ(allocations, 0u);
}

}  // namespace
