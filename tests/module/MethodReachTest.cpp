// Every method at many rates on arrays exactly as long as methodReach says, with
// guard zones around each array: nothing outside may be read or written, and the
// repair changes only the region and its crossfades.
#include <ferrotip/ferrotip.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "module/Dispatch.h"
#include "module/MethodReach.h"
#include "module/MethodTable.h"
#include "support/GuardedChannels.h"

namespace {

using testsupport::GuardedChannels;
using testsupport::TestRandom;

struct RateCase {
    int method;
    int rate;
};

// A length up to the method's limit: the limit itself, the shortest, or in between.
// The straight line has no limit of its own; it is kept to 100 ms.
int pickLength(int method, const MethodCounts& limitCounts, int rate, TestRandom& random)
{
    const int limit = method == 0 ? rate / 10 : limitCounts.maxGapSamples;
    if (limit <= 0) return 0;
    switch (random.between(0, 3)) {
    case 0: return limit;
    case 1: return random.between(0, std::min(limit, 3));
    default: return random.between(0, limit);
    }
}

// Positions process() may change, [first, end): the region, and for waveform
// replacement the F - 1 samples of each crossfade.
struct Changeable {
    int first, end;
};

Changeable changeable(int method, int start, int length)
{
    const int fade = method >= 3 ? waveformCrossfade(length) - 1 : 0;
    return {start - fade, start + length + fade};
}

void repairWithinReach(const RateCase& run, TestRandom& random)
{
    const MethodDescription& row = methodRow(run.method);
    const int length = pickLength(run.method, deriveCounts(row, run.rate, 0), run.rate, random);
    const int channelCount = random.between(1, 3);
    const MethodReach reach = methodReach(run.method, deriveCounts(row, run.rate, length), length);
    GuardedChannels channels(channelCount, static_cast<std::size_t>(reach.before) + reach.after);
    fillRandomContent(channels, random);
    std::vector<std::vector<float>> original;
    for (int c = 0; c < channelCount; ++c)
        original.emplace_back(channels.channel(c), channels.channel(c) + channels.length());

    int32_t leftFade = 0, rightFade = 0;
    const int result = process(nullptr, channels.pointers(), channelCount, run.rate, reach.before,
                               length, run.method, &leftFade, &rightFade);

    SCOPED_TRACE("method " + std::to_string(run.method) + " at " + std::to_string(run.rate) +
                 " Hz, length " + std::to_string(length) + ", " + std::to_string(channelCount) +
                 " channels");
    ASSERT_EQ(result, 0);
    ASSERT_TRUE(channels.guardsIntact());
    const Changeable region = changeable(run.method, reach.before, length);
    for (int c = 0; c < channelCount; ++c) {
        const float* x = channels.channel(c);
        for (int i = 0; i < static_cast<int>(channels.length()); ++i) {
            // The assertions only where one fails: a million of them cost more than the repair.
            const bool changeableHere = i >= region.first && i < region.end;
            if (changeableHere && !std::isfinite(x[i])) {
                FAIL() << "channel " << c << ", index " << i << " is " << x[i];
            }
            if (!changeableHere && x[i] != original[c][i]) {
                ASSERT_EQ(x[i], original[c][i]) << "channel " << c << ", index " << i;
            }
        }
    }
}

// process() sees the rate only through whole samples per millisecond, so the reach
// changes at every multiple of 1000 Hz. Every rate up to 8000 Hz is run for the
// click methods, and up to 3000 Hz (where the template outgrows the left context)
// for the shortest waveform context; the waveform methods, whose scans cost more,
// get both sides of every kilohertz step and a stride of rates between.
std::vector<RateCase> lowRates()
{
    std::vector<RateCase> runs;
    for (int rate = 1; rate <= 8000; ++rate) {
        for (int method : {0, 1, 2}) runs.push_back({method, rate});
        const bool nearStep = rate % 1000 <= 1 || rate % 1000 == 999;
        if (rate <= 3000 || nearStep || rate % 97 == 0) runs.push_back({4, rate});
        if (nearStep || rate % 211 == 0)
            for (int method : {3, 5, 6}) runs.push_back({method, rate});
    }
    return runs;
}

std::vector<RateCase> highRates(TestRandom& random)
{
    std::vector<RateCase> runs;
    for (int rate : {11025, 22050, 44100, 48000, 96000, 192000, 384000})
        for (int method = 0; method < methodCount; ++method) runs.push_back({method, rate});
    for (int i = 0; i < 40; ++i) {
        const int rate = random.between(8001, 384000);
        runs.push_back({random.between(0, 2), rate});
        runs.push_back({4, rate});
    }
    return runs;
}

TEST(MethodReach, EveryMethodStaysWithinItsReachAtEveryLowRate)
{
    TestRandom random(12);
    for (const RateCase& run : lowRates()) {
        repairWithinReach(run, random);
        if (HasFatalFailure()) return;
    }
}

TEST(MethodReach, EveryMethodStaysWithinItsReachUpTo384kHz)
{
    TestRandom random(384);
    for (const RateCase& run : highRates(random)) {
        repairWithinReach(run, random);
        if (HasFatalFailure()) return;
    }
}

}  // namespace
