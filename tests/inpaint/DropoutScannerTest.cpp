// Dropouts inserted into real recordings are all found with their exact bounds;
// clean recordings, silence between passages, fades to zero and the stream's ends
// give nothing, while a dropout a few milliseconds from an end is found; held runs that
// touch are one dropout; the blocks the frames come in change nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "inpaint/DropoutMaterial.h"
#include "inpaint/DropoutScanner.h"

namespace {

using inpaint_test::Recording;

DropoutCriteria criteria(int rate)
{
    return {static_cast<int>(std::ceil(0.5 * rate / 1000)), rate / 4, rate / 100, 1e-3, 0.99};
}

std::vector<double> interleave(const Recording& r)
{
    std::vector<double> frames(r.channels[0].size() * 2);
    for (std::size_t f = 0; f < r.channels[0].size(); ++f)
        for (int c = 0; c < 2; ++c) frames[2 * f + c] = r.channels[c][f];
    return frames;
}

std::vector<Dropout> scan(const std::vector<double>& frames, int rate, std::int64_t block)
{
    DropoutScanner scanner(2, criteria(rate));
    const std::int64_t total = static_cast<std::int64_t>(frames.size() / 2);
    for (std::int64_t at = 0; at < total; at += block)
        scanner.push(frames.data() + 2 * at, std::min(block, total - at));
    return scanner.finish();
}

double rms(const std::vector<double>& frames, std::int64_t first, int count)
{
    double e = 0.0;
    for (std::int64_t f = first; f < first + count; ++f) e += frames[2 * f] * frames[2 * f] + frames[2 * f + 1] * frames[2 * f + 1];
    return std::sqrt(e / (2 * count));
}

const std::vector<Recording>& material()
{
    static const std::vector<Recording> recordings = [] {
        auto m = inpaint_test::loadMusic(2, 8.0);
        auto s = inpaint_test::loadSpeech();
        m.insert(m.end(), s.begin(), s.end());
        return m;
    }();
    return recordings;
}

TEST(DropoutScanner, CleanRecordingsHaveNone)
{
    if (material().empty()) GTEST_SKIP() << "no recordings installed";
    for (const Recording& r : material())
        EXPECT_TRUE(scan(interleave(r), r.rate, 65536).empty()) << r.name;
}

TEST(DropoutScanner, FindsEveryInsertedDropoutExactly)
{
    if (material().empty()) GTEST_SKIP() << "no recordings installed";
    std::mt19937 generator(19);
    for (const Recording& r : material()) {
        auto frames = interleave(r);
        const std::int64_t total = static_cast<std::int64_t>(frames.size() / 2);
        const int shortest = criteria(r.rate).minRun, longest = r.rate / 4, guard = r.rate / 100;
        std::vector<Dropout> inserted;
        std::int64_t cursor = guard * 4;
        for (int kind = 0; kind < 6; ++kind) {
            const int length = kind == 0 ? shortest : kind == 1 ? longest : shortest + generator() % (longest / 2);
            const int channel = kind == 2 ? 1 : kind == 3 ? 0 : Dropout::allChannels;
            const double value = kind == 4 ? 0.123456 : 0.0;
            // The next place with sound well above the floor on both sides.
            for (; cursor + length + 2 * guard < total; cursor += guard)
                if (rms(frames, cursor - guard, guard) > 0.01 && rms(frames, cursor + length, guard) > 0.01) break;
            if (cursor + length + 2 * guard >= total) break;
            for (std::int64_t f = cursor; f < cursor + length; ++f)
                for (int c = 0; c < 2; ++c)
                    if (channel == Dropout::allChannels || channel == c) frames[2 * f + c] = value;
            inserted.push_back({channel, cursor, cursor + length - 1});
            cursor += length + 3 * guard;
        }
        ASSERT_GE(inserted.size(), 4u) << r.name;
        for (std::int64_t block : {65536, 1000, 7}) {
            const auto found = scan(frames, r.rate, block);
            ASSERT_EQ(found.size(), inserted.size()) << r.name << ", blocks of " << block;
            for (std::size_t i = 0; i < found.size(); ++i) {
                EXPECT_EQ(found[i].first, inserted[i].first) << r.name << " #" << i;
                EXPECT_EQ(found[i].last, inserted[i].last) << r.name << " #" << i;
                EXPECT_EQ(found[i].channel, inserted[i].channel) << r.name << " #" << i;
            }
        }
    }
}

// Two dropouts with one sample of sound between them: that sample is the first one's
// right side, so both are found.
TEST(DropoutScanner, DropoutsOneSampleApartAreBothFound)
{
    const int rate = 44100;
    std::vector<double> frames(2 * rate);
    for (std::size_t f = 0; f < frames.size() / 2; ++f)
        frames[2 * f] = frames[2 * f + 1] = 0.3 * std::sin(0.05 * static_cast<double>(f));
    for (int f = 10000; f <= 10400; ++f)
        if (f != 10200) frames[2 * f] = frames[2 * f + 1] = 0.0;
    frames[2 * 10200] = frames[2 * 10200 + 1] = 0.12;
    const auto found = scan(frames, rate, 65536);
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].first, 10000);
    EXPECT_EQ(found[0].last, 10199);
    EXPECT_EQ(found[1].first, 10201);
    EXPECT_EQ(found[1].last, 10400);
}

// A stretch that holds several values in turn (a buzz of held half cycles, 25 frames
// each) is one dropout with the stretch's bounds; a square wave longer than the longest
// dropout is sound, even though each of its half cycles alone looks like one.
TEST(DropoutScanner, TouchingHeldRunsAreOneDropoutAndALastingSquareWaveIsNone)
{
    const int rate = 44100;
    std::vector<double> tone(2 * 2 * rate);
    for (std::size_t f = 0; f < tone.size() / 2; ++f)
        tone[2 * f] = tone[2 * f + 1] = 0.5 * std::sin(0.05 * static_cast<double>(f));
    const auto withSquare = [&](int first, int count) {
        auto frames = tone;
        for (int i = 0; i < count; ++i) frames[2 * (first + i)] = frames[2 * (first + i) + 1] = i % 50 < 25 ? 0.3 : -0.3;
        return frames;
    };
    for (std::int64_t block : {65536, 7}) {
        const auto found = scan(withSquare(rate, 2000), rate, block);
        ASSERT_EQ(found.size(), 1u) << "blocks of " << block;
        EXPECT_EQ(found[0].first, rate);
        EXPECT_EQ(found[0].last, rate + 1999);
        EXPECT_EQ(found[0].channel, Dropout::allChannels);
        EXPECT_TRUE(scan(withSquare(rate / 2, rate / 2), rate, block).empty()) << "blocks of " << block;
    }
}

// 8-bit samples (raw integers, step 1): a slow tone dwells on one value for a few
// milliseconds at each crest and trough, and leaves it for the next step, while a
// cut-out to zero starts with a jump.
TEST(DropoutScanner, CoarseStepsHoldingASlowToneAreNotDropouts)
{
    const int rate = 44100;
    DropoutCriteria coarse = criteria(rate);
    coarse.floor = 1e-3 * 128;
    coarse.clipLevel = 0.99 * 128;
    coarse.step = 1.0;
    std::vector<double> frames(2 * 6 * rate);
    for (std::size_t f = 0; f < frames.size() / 2; ++f) {
        const double decay = 1.0 - static_cast<double>(f) / (frames.size() / 2);
        frames[2 * f] = frames[2 * f + 1] = std::round(100.0 * decay * std::sin(2 * std::numbers::pi * 40.0 * f / rate));
    }
    const auto scanCoarse = [&](const std::vector<double>& input) {
        DropoutScanner scanner(2, coarse);
        scanner.push(input.data(), static_cast<std::int64_t>(input.size() / 2));
        return scanner.finish();
    };
    EXPECT_TRUE(scanCoarse(frames).empty());
    for (int f = 44100 + 100; f < 44100 + 541; ++f) frames[2 * f] = frames[2 * f + 1] = 0.0;
    const auto found = scanCoarse(frames);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].first, 44200);
    EXPECT_EQ(found[0].last, 44640);
}

// A synthetic tone: 1 s, a pause of 300 ms, a fade to zero with 100 ms of zeros, and
// zeros at both ends.
TEST(DropoutScanner, SilenceFadesAndEndsAreNotDropouts)
{
    const int rate = 44100;
    std::vector<double> frames;
    auto tone = [&](int count, double from, double to) {
        for (int i = 0; i < count; ++i) {
            const double v = (from + (to - from) * i / count) * std::sin(0.05 * (frames.size() / 2));
            frames.push_back(v);
            frames.push_back(v);
        }
    };
    auto zeros = [&](int count) { frames.insert(frames.end(), 2 * count, 0.0); };
    zeros(rate / 20);             // the start
    tone(rate, 0.5, 0.5);
    zeros(rate * 3 / 10);         // silence between passages: too long
    tone(rate, 0.5, 0.0);         // a fade to zero...
    zeros(rate / 10);             // ...then silence: quiet on the left
    tone(rate, 0.5, 0.5);
    zeros(rate / 20);             // the end
    EXPECT_TRUE(scan(frames, rate, 4096).empty());
}

// Within 10 ms of the stream's start or end a dropout is judged by the sound there is
// on that side, at least the 2 ms next to it; with less it is not reported.
TEST(DropoutScanner, DropoutsNearTheEndsAreFoundWithTheSoundThereIs)
{
    const int rate = 44100;
    const auto scanWithDropouts = [&](std::vector<std::pair<int, int>> spans) {
        std::vector<double> frames(2 * rate);
        for (std::size_t f = 0; f < frames.size() / 2; ++f)
            frames[2 * f] = frames[2 * f + 1] = 0.3 * std::sin(0.05 * static_cast<double>(f));
        for (const auto& [first, last] : spans)
            for (int f = first; f <= last; ++f) frames[2 * f] = frames[2 * f + 1] = 0.0;
        return scan(frames, rate, 1000);
    };
    const int near = rate / 500;  // 2 ms
    const auto found = scanWithDropouts({{near + 10, near + 400}, {rate - near - 410, rate - near - 11}});
    ASSERT_EQ(found.size(), 2u);
    EXPECT_EQ(found[0].first, near + 10);
    EXPECT_EQ(found[1].last, rate - near - 11);
    EXPECT_TRUE(scanWithDropouts({{near - 10, 400}, {rate - 400, rate - near + 9}}).empty());
}

// Clipped below full scale, a recording holds its clip level for runs as long as a
// dropout's: those are clipping, while a sample held at another level is a dropout.
TEST(DropoutScanner, RunsHeldAtTheClipLevelAreClipping)
{
    const int rate = 44100;
    std::vector<double> frames;
    for (int t = 0; t < 2 * rate; ++t) {
        const double v = std::clamp(0.8 * std::sin(0.01 * t) + 0.1 * std::sin(0.37 * t), -0.5, 0.4);
        frames.push_back(v);
        frames.push_back(-v);
    }
    const int first = rate + 1234, count = rate / 200;
    std::fill(frames.begin() + 2 * first, frames.begin() + 2 * (first + count), 0.1);
    const auto found = scan(frames, rate, 4096);
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].channel, Dropout::allChannels);
    EXPECT_EQ(found[0].first, first);
    EXPECT_EQ(found[0].last, first + count - 1);
}

}  // namespace
