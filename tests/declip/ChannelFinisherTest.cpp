#include "declip/ChannelFinisher.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

constexpr float level = 0.5f;
const ClipLevels levels = ClipLevels::symmetric(level);
constexpr float none = std::numeric_limits<float>::quiet_NaN();

// A channel of `length` samples, every `period`-th one clipped and restored to 0.8 in
// long frames and 0.6 in short ones, the others at 0.3 (well under the level, so the
// tail tells nothing: no calibration).
ChannelFinisher finisherOf(int length, int period)
{
    ChannelFinisher finisher(levels);
    for (int n = 0; n < length; ++n) {
        const bool clipped = n % period == 0;
        finisher.add(clipped ? level : 0.3f, clipped ? 0.8f : 0.3f, clipped ? 0.6f : 0.3f);
    }
    finisher.finish(ArDeclipper(ArDeclipper::Settings::forSampleRate(44100)),
                    SocialDeclipper(SocialDeclipper::Settings::forSampleRate(8000)));
    return finisher;
}

TEST(ChannelFinisher, LeavesUnclippedSamplesBitForBit)
{
    const ChannelFinisher finisher = finisherOf(1000, 50);
    for (float sample : {0.3f, -0.49999997f, 0.0f, -0.0f}) {
        const float out = finisher.finished(sample, 0.1f, 0.2f);
        EXPECT_EQ(std::signbit(out), std::signbit(sample));
        EXPECT_EQ(out, sample);
    }
}

TEST(ChannelFinisher, MixesTheRestorationsAndTheFillIntoLightlyClippedChannelsOnly)
{
    const ChannelFinisher light = finisherOf(1000, 50);  // 2% clipped
    const float weight = light.fillWeight();
    ASSERT_GT(weight, 0.0f);
    const float mix = 0.8f - 0.2f / 3.0f;  // two thirds of the long frames' restoration
    EXPECT_FLOAT_EQ(light.finished(0.8f, 0.6f, 0.55f), (1.0f - weight) * mix + weight * 0.55f);
    EXPECT_FLOAT_EQ(light.finished(-0.8f, -0.6f, none), -mix);  // no fill there

    const ChannelFinisher heavy = finisherOf(1000, 2);  // half clipped
    EXPECT_EQ(heavy.fillWeight(), 0.0f);
    EXPECT_FLOAT_EQ(heavy.finished(0.8f, 0.6f, 0.55f), mix);
}

TEST(ChannelFinisher, BlendsTheSocialRestorationByItsShareOutsideHeavilyClippedChannels)
{
    const ChannelFinisher light = finisherOf(1000, 50);  // 2% clipped
    ASSERT_EQ(light.socialFactor(), 1.0f);
    const float blend = light.finished(0.8f, 0.6f, 0.55f);
    EXPECT_FLOAT_EQ(light.finished(0.8f, 0.6f, 0.55f, 0.7f, 0.3f), blend + 0.3f * (0.7f - blend));
    EXPECT_EQ(light.finished(0.8f, 0.6f, 0.55f, none, 0.3f), blend);
    EXPECT_EQ(light.finished(0.3f, 0.6f, 0.55f, 0.7f, 0.3f), 0.3f);  // not clipped

    const ChannelFinisher heavy = finisherOf(1000, 2);  // half clipped
    EXPECT_EQ(heavy.socialFactor(), 0.0f);
    EXPECT_EQ(heavy.finished(0.8f, 0.6f, 0.55f, 0.7f, 0.3f), heavy.finished(0.8f, 0.6f, 0.55f));

    const SocialDeclipper social(SocialDeclipper::Settings::forSampleRate(8000));
    EXPECT_EQ(social.channelFactor(0.1), 1.0f);
    EXPECT_FLOAT_EQ(social.channelFactor(0.45), 0.5f);
    EXPECT_EQ(social.channelFactor(0.6), 0.0f);
}

}  // namespace
