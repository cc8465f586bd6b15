#include "declick/ClickRefill.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "ar/ClassicRand.h"

namespace {

constexpr int rate = 44100;
constexpr int frames = 20000;

// Two partials and a little noise: audio the AR fill can predict.
std::vector<float> cleanTone(int seed)
{
    std::vector<float> tone(frames);
    unsigned state = static_cast<unsigned>(seed);
    for (int n = 0; n < frames; ++n) {
        state = state * 1664525u + 1013904223u;
        const double noise = (static_cast<double>(state >> 8) / 16777216.0 - 0.5) * 0.002;
        tone[n] = static_cast<float>(0.3 * std::sin(0.031 * n) + 0.1 * std::sin(0.173 * n + seed) + noise);
    }
    return tone;
}

struct Stream {
    std::vector<std::vector<float>> input, output;
    std::vector<RepairedSpan> spans;
};

// A click of `length` samples at `at` in channel 0 of the input; the output is the
// clean audio with a quarter of the click left in and its two neighbours on each side
// still off, as when a repair misses a click's ringing edges.
Stream clickedStream(int channels, int at, int length, float height)
{
    Stream stream;
    for (int c = 0; c < channels; ++c) stream.input.push_back(cleanTone(c + 1));
    stream.output = stream.input;
    for (int i = 0; i < length; ++i) stream.input[0][at + i] += height;
    for (int i = -2; i < length + 2; ++i) stream.output[0][at + i] += 0.25f * height;
    stream.spans.push_back({0, at, at + length - 1});
    return stream;
}

// Feeds the stream `chunk` frames at a time, each span before the output reaches it,
// and returns what the refill hands on.
std::vector<std::vector<float>> runRefill(const Stream& stream, int chunk, ClickRefill& refill)
{
    const auto channels = stream.input.size();
    std::vector<std::vector<float>> result(channels);
    const DeclickFrameSink sink = [&](const float* const* rows, int from, int count) {
        for (std::size_t c = 0; c < channels; ++c) result[c].insert(result[c].end(), rows[c] + from, rows[c] + from + count);
    };
    std::size_t nextSpan = 0;
    for (int first = 0; first < frames; first += chunk) {
        const int count = std::min(chunk, frames - first);
        std::vector<const float*> in, out;
        for (std::size_t c = 0; c < channels; ++c) {
            in.push_back(stream.input[c].data() + first);
            out.push_back(stream.output[c].data() + first);
        }
        refill.addInput(in.data(), count);
        while (nextSpan < stream.spans.size() && stream.spans[nextSpan].first < first + count)
            refill.addSpan(stream.spans[nextSpan++]);
        refill.addOutput(out.data(), 0, count);
        refill.release(sink, first + count == frames);
    }
    return result;
}

double errorEnergy(const std::vector<float>& a, const std::vector<float>& b, int from, int to)
{
    double sum = 0.0;
    for (int i = from; i < to; ++i) sum += (double(a[i]) - b[i]) * (double(a[i]) - b[i]);
    return sum;
}

TEST(ClickRefill, FillsALoudClickAndItsEdgesAgainAndLeavesTheRestAlone)
{
    const Stream stream = clickedStream(2, 9000, 20, 1.5f);
    ClickRefill refill(2, rate, frames);
    const auto result = runRefill(stream, 4096, refill);
    ASSERT_EQ(result[0].size(), std::size_t{frames});
    const auto clean = cleanTone(1);
    EXPECT_LT(errorEnergy(result[0], clean, 8990, 9030), 0.01 * errorEnergy(stream.output[0], clean, 8990, 9030));
    // Widened by 12 samples and its length (20) on each side.
    ASSERT_EQ(refill.refilled().size(), 1u);
    EXPECT_EQ(refill.refilled()[0].first, 9000 - 32);
    EXPECT_EQ(refill.refilled()[0].last, 9019 + 32);
    for (int i = 0; i < frames; ++i) {
        if (i < 9000 - 32 || i > 9019 + 32) {
            ASSERT_EQ(result[0][i], stream.output[0][i]) << i;
        }
    }
    EXPECT_EQ(result[1], stream.output[1]);
    EXPECT_EQ(refill.late(), 0);
}

TEST(ClickRefill, LeavesSpansWhoseRemovedPeakIsFaintOrShort)
{
    ClickRefill faint(1, rate, frames);
    EXPECT_EQ(runRefill(clickedStream(1, 9000, 20, 0.05f), 4096, faint)[0], clickedStream(1, 9000, 20, 0.05f).output[0]);
    EXPECT_TRUE(faint.refilled().empty());
    ClickRefill shortSpan(1, rate, frames);
    EXPECT_EQ(runRefill(clickedStream(1, 9000, 2, 1.5f), 4096, shortSpan)[0], clickedStream(1, 9000, 2, 1.5f).output[0]);
    EXPECT_TRUE(shortSpan.refilled().empty());
}

TEST(ClickRefill, GivesTheSameBitsForAnyChunkingAndWhateverRanOnTheThread)
{
    Stream stream = clickedStream(2, 9000, 30, 1.5f);
    for (int at : {500, 9050, 15000, frames - 40}) {
        for (int i = 0; i < 12; ++i) stream.input[1][at + i] -= 1.2f;
        stream.spans.push_back({1, at, at + 11});
    }
    std::sort(stream.spans.begin(), stream.spans.end(),
              [](const RepairedSpan& a, const RepairedSpan& b) { return a.first < b.first; });
    ClickRefill whole(2, rate, frames);
    const auto expected = runRefill(stream, frames, whole);
    EXPECT_EQ(whole.refilled().size(), 5u);
    for (int chunk : {512, 1000, 4096}) {
        ferrotip::srand(12345);
        ClickRefill refill(2, rate, frames);
        EXPECT_EQ(runRefill(stream, chunk, refill), expected) << chunk;
        EXPECT_EQ(refill.late(), 0);
    }
}

// The impulse and fine crackle search spreads the channels over threads: the same
// bits and the same stretches whatever their number and the chunking.
TEST(ClickRefill, GivesTheSameBitsOnAnyNumberOfSearchThreads)
{
    Stream stream = clickedStream(3, 9000, 30, 1.5f);
    for (std::size_t c = 0; c < stream.input.size(); ++c) {
        stream.input[c][12000 + 7 * c] += 3.0f;  // an impulse the engines did not mark
        for (int at = 3000; at + 2 < frames; at += 4100) stream.input[c][at + c] -= 0.05f;  // faint crackle
    }
    const auto run = [&](int jobs, int chunk) {
        ClickRefill::Settings settings;
        settings.fineThreshold = 8.0;
        settings.jobs = jobs;
        ClickRefill refill(3, rate, frames, settings);
        auto result = runRefill(stream, chunk, refill);
        // The stretches in order of channel and place (the order of refilling follows the chunks).
        std::vector<RepairedSpan> stretches = refill.refilled();
        std::sort(stretches.begin(), stretches.end(), [](const RepairedSpan& a, const RepairedSpan& b) {
            return std::pair{a.channel, a.first} < std::pair{b.channel, b.first};
        });
        return std::pair{result, stretches};
    };
    const auto expected = run(1, frames);
    for (int c = 0; c < 3; ++c)  // each channel's impulse was found and filled
        EXPECT_TRUE(std::any_of(expected.second.begin(), expected.second.end(), [&](const RepairedSpan& stretch) {
            return stretch.channel == c && stretch.first <= 12000 + 7 * c && 12000 + 7 * c <= stretch.last;
        })) << c;
    for (int jobs : {1, 2, 3, 8})
        for (int chunk : {700, 4096, frames}) EXPECT_EQ(run(jobs, chunk), expected) << jobs << " jobs, chunk " << chunk;
}

// The stretches refilled for two clicks of `length` samples, at 9000 and at `second`.
std::vector<RepairedSpan> refilledPair(int length, int second)
{
    Stream stream = clickedStream(1, 9000, length, 1.5f);
    for (int i = 0; i < length; ++i) stream.input[0][second + i] += 1.5f;
    stream.spans.push_back({0, second, second + length - 1});
    ClickRefill refill(1, rate, frames);
    runRefill(stream, 4096, refill);
    return refill.refilled();
}

TEST(ClickRefill, ClicksWhoseWidenedStretchesTouchAreFilledAsOne)
{
    // Each widened by 12 + 10 samples, they touch; the click they make, 35 samples
    // long, is widened by 12 + 24.
    EXPECT_EQ(refilledPair(10, 9025), (std::vector<RepairedSpan>{{0, 9000 - 36, 9034 + 36}}));
}

TEST(ClickRefill, ClicksWhoseWidenedStretchesDoNotTouchAreFilledApart)
{
    // Widened by 12 + 4 each: 8984-9019 and 9024-9059.
    EXPECT_EQ(refilledPair(4, 9040), (std::vector<RepairedSpan>{{0, 9000 - 16, 9003 + 16}, {0, 9040 - 16, 9043 + 16}}));
}

}  // namespace
