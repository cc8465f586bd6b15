// process_fuzz COUNT [SEED] [MAX_RATE]: drives process() through the C interface
// with random methods (also past both ends of the table), rates, region lengths (up
// to just past each method's limit), channel counts and content, on arrays exactly
// as long as methodReach says with guard zones around each. Every call must return
// what the method's rules say, leave the guards alone, change nothing outside the
// region and its crossfades, and keep finite input finite. Prints the failing case
// and exits 1 on the first failure; the same COUNT and SEED repeat the same calls.
#include <ferrotip/ferrotip.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "module/Dispatch.h"
#include "module/MethodReach.h"
#include "module/MethodTable.h"
#include "support/GuardedChannels.h"

namespace {

using testsupport::GuardedChannels;
using testsupport::TestRandom;

struct FuzzCase {
    int method;
    int rate;
    int length;
    int channelCount;
};

int expectedResult(const FuzzCase& c, const MethodCounts& counts)
{
    if (c.method >= methodCount || c.method == 0) return 0;
    if (c.method < 0) return -1;
    if (c.length <= counts.maxGapSamples) return 0;
    if (c.method <= 2) return c.channelCount > 0 ? 1 : 0;  // refused by the first channel's repair
    return c.method == 6 ? 1 : -1;
}

// Low rates (where the reach changes most) half the time, any rate up to maxRate else.
FuzzCase drawCase(TestRandom& random, int maxRate)
{
    FuzzCase c{};
    c.method = random.between(0, 9) < 9 ? random.between(0, methodCount - 1) : random.between(-2, 9);
    c.rate = random.between(0, 1) ? random.between(1, std::min(8000, maxRate)) : random.between(1, maxRate);
    const int row = std::min(std::max(c.method, 0), methodCount - 1);
    const int limit = row == 0 ? c.rate / 10 : deriveCounts(methodRow(row), c.rate, 0).maxGapSamples;
    c.length = random.between(0, 7) == 0 ? random.between(0, 3) : random.between(0, std::max(limit, 0) + 2);
    c.channelCount = random.between(0, 4);
    return c;
}

std::string describe(const FuzzCase& c)
{
    return "method " + std::to_string(c.method) + ", rate " + std::to_string(c.rate) + " Hz, length " +
           std::to_string(c.length) + ", " + std::to_string(c.channelCount) + " channels";
}

// Empty when the call behaved; otherwise what went wrong.
std::string runCase(const FuzzCase& c, TestRandom& random)
{
    const int row = std::min(std::max(c.method, 0), methodCount - 1);
    const MethodCounts counts = deriveCounts(methodRow(row), c.rate, c.length);
    const bool inTable = c.method >= 0 && c.method < methodCount;
    const MethodReach reach = inTable ? methodReach(c.method, counts, c.length) : MethodReach{0, 0};
    GuardedChannels channels(c.channelCount, static_cast<std::size_t>(reach.before) + reach.after);
    fillRandomContent(channels, random);
    std::vector<std::vector<float>> original;
    for (int ch = 0; ch < c.channelCount; ++ch)
        original.emplace_back(channels.channel(ch), channels.channel(ch) + channels.length());

    int32_t leftFade = -5, rightFade = -5;
    const int result = process(nullptr, channels.pointers(), c.channelCount, c.rate, reach.before,
                               c.length, c.method, &leftFade, &rightFade);
    const int expected = inTable || c.method < 0 ? expectedResult(c, counts) : 0;
    if (result != expected)
        return "returned " + std::to_string(result) + ", expected " + std::to_string(expected);
    if (!channels.guardsIntact()) return "a guard zone changed";
    const bool repaired = inTable && result == 0;
    const int fade = c.method >= 3 && inTable ? waveformCrossfade(c.length) - 1 : 0;
    for (int ch = 0; ch < c.channelCount; ++ch)
        for (int i = 0; i < static_cast<int>(channels.length()); ++i) {
            const float value = channels.channel(ch)[i];
            const bool mayChange =
                repaired && i >= reach.before - fade && i < reach.before + c.length + fade;
            if (!mayChange && value != original[ch][i])
                return "sample " + std::to_string(i) + " of channel " + std::to_string(ch) + " changed";
            if (mayChange && !std::isfinite(value))
                return "sample " + std::to_string(i) + " of channel " + std::to_string(ch) + " is not finite";
        }
    return {};
}

int parse(const char* text, const char* what)
{
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (*text == '\0' || *end != '\0' || value < 1 || value > 384000000) {
        std::fprintf(stderr, "process_fuzz: %s '%s' must be a whole number from 1\n", what, text);
        std::exit(2);
    }
    return static_cast<int>(value);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 4) {
        std::fprintf(stderr, "usage: process_fuzz COUNT [SEED] [MAX_RATE (1..384000, default 384000)]\n");
        return 2;
    }
    const int count = parse(argv[1], "COUNT");
    const int seed = argc > 2 ? parse(argv[2], "SEED") : 1;
    const int maxRate = argc > 3 ? parse(argv[3], "MAX_RATE") : 384000;
    if (maxRate > 384000) {
        std::fprintf(stderr, "process_fuzz: MAX_RATE '%s' must be from 1 to 384000\n", argv[3]);
        return 2;
    }
    TestRandom random(static_cast<std::uint64_t>(seed));
    for (int i = 0; i < count; ++i) {
        const FuzzCase c = drawCase(random, maxRate);
        const std::string failure = runCase(c, random);
        if (!failure.empty()) {
            std::printf("process_fuzz: seed %d, call %d (%s): %s\n", seed, i, describe(c).c_str(),
                        failure.c_str());
            return 1;
        }
    }
    std::printf("process_fuzz: %d calls with seed %d, every one within its reach\n", count, seed);
    return 0;
}
