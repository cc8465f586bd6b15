// Methods 3 to 6 through the exported process().
#include <ferrotip/ferrotip.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "waveform/KorrInterp.h"
#include "waveform/TestSignals.h"

namespace {

using waveform_test::audioLikeSignal;
using waveform_test::periodicIntegerSignal;

struct Fades {
    int left = 7;
    int right = 7;
};

// process() on channels laid out as a host does it: each array holds the method's
// whole context with the region `contextBefore` samples in.
int runProcess(std::vector<std::vector<float>>& data, int sampleRate, int start, int length,
               int method, Fades& fades)
{
    std::vector<float*> channels;
    for (auto& channel : data) channels.push_back(channel.data());
    return process(nullptr, channels.data(), static_cast<int>(channels.size()), sampleRate, start,
                   length, method, &fades.left, &fades.right);
}

TEST(WaveformDispatch, CrossfadeIsAQuarterOfTheLengthHeldBetween80And500)
{
    const std::pair<int, int> expected[] = {{1, 80},     {100, 80},   {323, 80},   {324, 81},
                                            {1000, 250}, {1999, 499}, {2000, 500}, {11000, 500}};
    for (const int method : {3, 4, 5, 6}) {
        for (const auto& [length, crossfade] : expected) {
            Fades fades;
            // No channels: the run touches nothing, the fades are reported all the same.
            EXPECT_EQ(process(nullptr, nullptr, 0, 44100, 176000, length, method, &fades.left,
                              &fades.right),
                      0);
            EXPECT_EQ(fades.left, crossfade) << "method " << method << ", length " << length;
            EXPECT_EQ(fades.right, crossfade) << "method " << method << ", length " << length;
        }
    }
}

// length 1 gives the lower limit 80 on a real repair.
TEST(WaveformDispatch, OneSampleRegionGetsTheLowerLimit)
{
    const int rate = 4000, context = 4000 * 4;  // method 3: 4000 ms each side
    std::vector<std::vector<float>> data = {audioLikeSignal(2 * context + 1, 401)};
    Fades fades;
    EXPECT_EQ(runProcess(data, rate, context, 1, 3, fades), 0);
    EXPECT_EQ(fades.left, 80);
    EXPECT_EQ(fades.right, 80);
}

// 11000 samples at 44100 Hz is exactly maxGapSamples for every waveform method: it
// is accepted and gets the upper limit 500. One sample more is refused.
TEST(WaveformDispatch, RegionOfExactlyMaxGapSamplesIsAccepted)
{
    const int rate = 44100, length = 11000, context = 500 * 44;  // method 4
    const std::vector<float> input = audioLikeSignal(2 * context + length, 402);
    std::vector<std::vector<float>> data = {input};
    Fades fades;
    EXPECT_EQ(runProcess(data, rate, context, length, 4, fades), 0);
    EXPECT_EQ(fades.left, 500);
    EXPECT_EQ(fades.right, 500);
    EXPECT_NE(data[0], input);

    data = {input};
    EXPECT_EQ(runProcess(data, rate, context, length + 1, 4, fades), -1);
    EXPECT_EQ(data[0], input);
}

TEST(WaveformDispatch, TooLongRegionIsRefusedWithMinusOneOrPlusOne)
{
    const int rate = 4000, maxGap = 250 * 4;
    const std::vector<float> input = audioLikeSignal(60000, 403);
    for (const int method : {3, 4, 5, 6}) {
        std::vector<std::vector<float>> data = {input, input};
        Fades fades;
        EXPECT_EQ(runProcess(data, rate, 24000, maxGap + 1, method, fades), method == 6 ? 1 : -1)
            << "method " << method;
        EXPECT_EQ(fades.left, 0);
        EXPECT_EQ(fades.right, 0);
        EXPECT_EQ(data[0], input);
        EXPECT_EQ(data[1], input);
    }
}

// Below 1000 Hz there are no samples per millisecond, so maxGapSamples is 0.
TEST(WaveformDispatch, RateBelow1000RefusesEveryRegion)
{
    const std::vector<float> input = audioLikeSignal(5000, 404);
    for (const int rate : {999, 500, 1}) {
        for (const int method : {3, 4, 5, 6}) {
            std::vector<std::vector<float>> data = {input};
            Fades fades;
            EXPECT_EQ(runProcess(data, rate, 2000, 1, method, fades), method == 6 ? 1 : -1);
            EXPECT_EQ(fades.left, 0);
            EXPECT_EQ(fades.right, 0);
            EXPECT_EQ(data[0], input);
        }
    }
}

// Each method runs one KorrInterp over all channels, with its search side and the
// crossfade as both fade lengths.
TEST(WaveformDispatch, MethodsRunKorrInterpWithTheirSearchSide)
{
    const int rate = 4000, length = 700, crossfade = 175;
    const struct {
        int method, contextMs, searchSide;
    } rows[] = {{3, 4000, 0}, {4, 500, 0}, {5, 6000, 1}, {6, 6000, 2}};
    for (const auto& row : rows) {
        SCOPED_TRACE("method " + std::to_string(row.method));
        const int context = row.contextMs * 4, dataLen = 2 * context + length;
        std::vector<std::vector<float>> data = {audioLikeSignal(dataLen, 405),
                                                audioLikeSignal(dataLen, 406)};
        auto expected = data;
        Fades fades;
        EXPECT_EQ(runProcess(data, rate, context, length, row.method, fades), 0);
        EXPECT_EQ(fades.left, crossfade);
        EXPECT_EQ(fades.right, crossfade);

        KorrInterp interp(2, rate, dataLen);
        float* channels[2] = {expected[0].data(), expected[1].data()};
        interp.interpolate(channels, 2, rate, context, length, crossfade, crossfade,
                           row.searchSide);
        EXPECT_EQ(data, expected);
    }
}

// A periodic signal with a gap of whole periods comes back exactly from the left
// (method 5): the match is in phase with the gap. Only the right crossfade, whose
// source runs one sample ahead, leaves a trace.
TEST(WaveformDispatch, LeftMethodRestoresAPeriodicGap)
{
    const int rate = 4000, context = 6000 * 4, length = 400, crossfade = 100;
    const std::vector<float> clean = periodicIntegerSignal(2 * context + length, 100, 407);
    std::vector<std::vector<float>> data = {clean};
    std::fill(data[0].begin() + context, data[0].begin() + context + length, 9.0f);
    Fades fades;
    ASSERT_EQ(runProcess(data, rate, context, length, 5, fades), 0);
    for (int n = 0; n < context + length; ++n) ASSERT_EQ(data[0][n], clean[n]) << n;
    for (int j = 1; j < crossfade; ++j) {
        const int d = context + length + j - 1;
        ASSERT_EQ(data[0][d], (static_cast<float>(crossfade - j) * clean[d + 1] +
                               static_cast<float>(j) * clean[d]) /
                                  static_cast<float>(crossfade));
    }
}

}  // namespace
