#include "declip/FrameDeclipper.h"
#include "declip/ClipLevels.h"

#include <gtest/gtest.h>

#include <vector>

#include "declip/HardClipper.h"
#include "declip/DeclipTestSignals.h"

namespace {

struct Frame {
    std::vector<float> clean, samples, lower, upper;
};

Frame clippedFrame(int length, float level, unsigned seed)
{
    Frame frame;
    frame.clean = declipsignals::tonal(length, seed, 3);
    frame.samples = hardclip::clip(frame.clean, level);
    for (float x : frame.samples) {
        frame.lower.push_back(x >= level ? level : (x <= -level ? -ClipLevels::none : x));
        frame.upper.push_back(x <= -level ? -level : (x >= level ? ClipLevels::none : x));
    }
    return frame;
}

TEST(FrameDeclipper, KeepsReliableSamplesAndBounds)
{
    FrameDeclipper declipper(FrameDeclipper::Settings{});
    Frame frame = clippedFrame(2048, 0.5f, 11);
    const auto observed = frame.samples;
    declipper.restore(frame.samples.data(), frame.lower.data(), frame.upper.data());
    for (int n = 0; n < 2048; ++n) {
        EXPECT_GE(frame.samples[n], frame.lower[n]) << n;
        EXPECT_LE(frame.samples[n], frame.upper[n]) << n;
        if (frame.lower[n] == frame.upper[n]) {
            EXPECT_EQ(frame.samples[n], observed[n]) << n;
        }
    }
}

TEST(FrameDeclipper, RestoresASparseFrame)
{
    FrameDeclipper declipper(FrameDeclipper::Settings{});
    Frame frame = clippedFrame(2048, 0.6f, 12);
    const double before = hardclip::sdr(frame.clean.data(), frame.samples.data(), 2048);
    declipper.restore(frame.samples.data(), frame.lower.data(), frame.upper.data());
    const double after = hardclip::sdr(frame.clean.data(), frame.samples.data(), 2048);
    EXPECT_GT(after, before + 10.0) << before << " -> " << after;
}

TEST(FrameDeclipper, GivesTheSameBitsEveryTime)
{
    FrameDeclipper declipper(FrameDeclipper::Settings{});
    Frame first = clippedFrame(2048, 0.4f, 13), second = first;
    declipper.restore(first.samples.data(), first.lower.data(), first.upper.data());
    declipper.restore(second.samples.data(), second.lower.data(), second.upper.data());
    EXPECT_EQ(first.samples, second.samples);
}

}  // namespace

namespace {

TEST(FrameDeclipper, FramesLastAboutASixthOfASecond)
{
    EXPECT_EQ(FrameDeclipper::Settings::forSampleRate(44100).frameLength, 8192);
    EXPECT_EQ(FrameDeclipper::Settings::forSampleRate(48000).frameLength, 8192);
    EXPECT_EQ(FrameDeclipper::Settings::forSampleRate(22050).frameLength, 4096);
    EXPECT_EQ(FrameDeclipper::Settings::forSampleRate(16000).frameLength, 2048);
    EXPECT_EQ(FrameDeclipper::Settings::forSampleRate(8000).frameLength, 1024);
    EXPECT_EQ(FrameDeclipper::Settings::forSampleRate(1000).frameLength, 256);
    EXPECT_EQ(FrameDeclipper::Settings::forSampleRate(384000).frameLength, 8192);
}

// Per rate: the DFT's oversampling (heavily and most heavily clipped frames) and
// the step in k (a shift of 4: about 6%, of 6: about 1.5%).
TEST(FrameDeclipper, OversamplesAndStepsFinerOnlyInShortFrames)
{
    struct Expected {
        int rate, redundancy, heaviestRedundancy, sparsityShift;
    };
    for (const Expected& e : {Expected{44100, 1, 1, 4}, Expected{22050, 1, 1, 6}, Expected{16000, 2, 4, 6},
                              Expected{8000, 2, 4, 6}}) {
        const auto settings = FrameDeclipper::Settings::forSampleRate(e.rate);
        EXPECT_EQ(settings.redundancy, e.redundancy) << e.rate;
        EXPECT_EQ(settings.heaviestRedundancy, e.heaviestRedundancy) << e.rate;
        EXPECT_EQ(settings.sparsityShift, e.sparsityShift) << e.rate;
    }
}

}  // namespace
