#include "signal/DelayClass.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <csignal>
#include <random>
#include <unistd.h>
#include <vector>

namespace {

using Channels = std::vector<std::vector<float>>;

Channels randomChannels(int channels, int length, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    Channels signal(channels, std::vector<float>(length));
    for (auto& channel : signal)
        for (auto& sample : channel)
            sample = value(generator);
    return signal;
}

Channels delayed(const Channels& input, int delay)
{
    Channels expected = input;
    for (size_t c = 0; c < input.size(); ++c)
        for (size_t n = 0; n < input[c].size(); ++n)
            expected[c][n] = n < size_t(delay) ? 0.0f : input[c][n - delay];
    return expected;
}

// Streams `input` through the delay in the given blocks, in place or not.
Channels stream(DelayClass& line, const Channels& input, const std::vector<int>& blocks,
                bool inPlace)
{
    const int channels = static_cast<int>(input.size());
    Channels work = input;
    Channels output(channels, std::vector<float>(input[0].size(), 99.0f));
    std::vector<float*> in(channels), out(channels);
    for (int c = 0; c < channels; ++c) {
        in[c] = work[c].data();
        out[c] = inPlace ? work[c].data() : output[c].data();
    }
    int position = 0;
    for (int count : blocks) {
        line.process(in.data(), position, out.data(), position, count);
        position += count;
    }
    return inPlace ? work : output;
}

TEST(DelayClass, IsValidAfterConstructionAndSetDelay)
{
    DelayClass line(2, 30, 31);
    EXPECT_EQ(line.isValid(), 1);
    line.setDelay(12);
    EXPECT_EQ(line.isValid(), 1);
    EXPECT_EQ(line.delay(), 12);
    DelayClass none(0, 30, 31);
    EXPECT_EQ(none.isValid(), 1);
}

TEST(DelayClass, InPlaceBlockOfHundredRunsInThirtyOnesAndMatchesDirectPath)
{
    const unsigned seed = 3;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    const Channels input = randomChannels(2, 100, seed);
    DelayClass inPlace(2, 30, 31), separate(2, 30, 31);
    const Channels runs = stream(inPlace, input, {100}, true);
    const Channels direct = stream(separate, input, {100}, false);
    EXPECT_EQ(runs, direct);
    EXPECT_EQ(runs, delayed(input, 30));

    // The scratch tail shows the runs: the last run of 7 (samples 93..99) sits at
    // elements 30..36, and the run before it, of 31 ending at 92, behind it.
    for (int c = 0; c < 2; ++c) {
        const float* line = inPlace.line(c);
        for (int i = 0; i < 7; ++i)
            EXPECT_EQ(line[30 + i], input[c][93 + i]) << "element " << 30 + i;
        for (int i = 7; i < 31; ++i)
            EXPECT_EQ(line[30 + i], input[c][62 + i]) << "element " << 30 + i;
        // History: the newest 30 samples, oldest first.
        for (int i = 0; i < 30; ++i)
            EXPECT_EQ(line[i], input[c][70 + i]);
        // The direct path leaves the same history.
        for (int i = 0; i < 30; ++i)
            EXPECT_EQ(separate.line(c)[i], input[c][70 + i]);
    }
}

TEST(DelayClass, OutOfPlaceShortBlockTakesTheRunPath)
{
    const Channels input = randomChannels(1, 10, 4);
    DelayClass line(1, 30, 31);
    const Channels output = stream(line, input, {10}, false);
    EXPECT_EQ(output, delayed(input, 30));
    // Only the run path writes the scratch tail.
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(line.line(0)[30 + i], input[0][i]);
}

TEST(DelayClass, StreamsAgreeForAnySplitInPlaceOrNot)
{
    for (unsigned seed : {1u, 2u, 3u, 4u}) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        const Channels input = randomChannels(2, 2000, seed);
        const Channels expected = delayed(input, 30);
        std::mt19937 generator(seed);
        std::uniform_int_distribution<int> block(0, 120);
        std::vector<int> blocks;
        for (int done = 0; done < 2000;) {
            const int count = std::min(block(generator), 2000 - done);
            blocks.push_back(count);
            done += count;
        }
        DelayClass a(2, 30, 31), b(2, 30, 31), c(2, 30, 31);
        EXPECT_EQ(stream(a, input, blocks, true), expected);
        EXPECT_EQ(stream(b, input, blocks, false), expected);
        EXPECT_EQ(stream(c, input, {2000}, true), expected);
    }
}

TEST(DelayClass, OffsetsSelectWhereToReadAndWrite)
{
    const Channels input = randomChannels(1, 80, 6);
    DelayClass line(1, 5, 8);
    std::vector<float> out(100, 7.0f);
    float* in[] = {const_cast<float*>(input[0].data())};
    float* outs[] = {out.data()};
    line.process(in, 10, outs, 20, 70);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(out[20 + i], 0.0f);
    for (int i = 5; i < 70; ++i)
        EXPECT_EQ(out[20 + i], input[0][10 + i - 5]);
    EXPECT_EQ(out[19], 7.0f);
    EXPECT_EQ(out[90], 7.0f);
}

TEST(DelayClass, ResetSilencesTheHistory)
{
    const Channels first = randomChannels(2, 64, 7);
    DelayClass line(2, 30, 31);
    stream(line, first, {64}, true);
    line.reset();
    const Channels input = randomChannels(2, 200, 8);
    EXPECT_EQ(stream(line, input, {13, 87, 100}, true), delayed(input, 30));
}

TEST(DelayClass, SetDelayLosesHistoryEvenWhenUnchanged)
{
    const Channels first = randomChannels(1, 64, 9);
    DelayClass line(1, 30, 31);
    stream(line, first, {64}, true);
    line.setDelay(30);
    const Channels input = randomChannels(1, 100, 10);
    EXPECT_EQ(stream(line, input, {100}, true), delayed(input, 30));
    line.setDelay(4);
    EXPECT_EQ(stream(line, input, {50, 50}, false), delayed(input, 4));
}

TEST(DelayClass, ProcessingAllocatesNothing)
{
    DelayClass line(2, 30, 31);
    std::vector<float> a(512, 1.0f), b(512, 2.0f), c(512), d(512);
    float* io[] = {a.data(), b.data()};
    float* out[] = {c.data(), d.data()};
    testsupport::AllocationScope scope;
    line.process(io, 0, io, 0, 512);
    line.process(io, 0, out, 0, 512);
    line.process(io, 0, out, 0, 10);
    line.reset();
    EXPECT_EQ(scope.count(), 0);
}

TEST(DelayClassDeathTest, ZeroScratchCannotAdvanceOnTheRunPath)
{
    // With no scratch every run is empty and the loop never ends; the alarm ends it.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            DelayClass line(1, 30, 0);
            std::vector<float> block(10, 1.0f);
            float* io[] = {block.data()};
            alarm(1);
            line.process(io, 0, io, 0, 10);
            std::exit(0);
        },
        ::testing::KilledBySignal(SIGALRM), "");
}

}  // namespace
