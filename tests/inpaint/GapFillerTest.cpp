// The gap filler on synthetic material: exactness where the model is exact, no
// allocation per gap, the same bits for one gap filled twice.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

#include "inpaint/GapFiller.h"
#include "support/AllocationCounter.h"

namespace {

constexpr int rate = 44100;

// Two sines in each channel with a little noise: an AR model restores them closely.
std::vector<std::vector<float>> tones(int count, unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise(0.0, 1e-4);
    const double pi = 3.14159265358979323846;
    std::vector<std::vector<float>> channels(2, std::vector<float>(count));
    for (int n = 0; n < count; ++n) {
        const double v = 0.5 * std::sin(2 * pi * 440.0 * n / rate) + 0.25 * std::sin(2 * pi * 1234.5 * n / rate + 1.0);
        channels[0][n] = static_cast<float>(v + noise(generator));
        channels[1][n] = static_cast<float>(0.7 * v + noise(generator));
    }
    return channels;
}

double snrDb(const std::vector<float>& original, const std::vector<float>& filled, int start, int length)
{
    double signal = 0.0, error = 0.0;
    for (int i = start; i < start + length; ++i) {
        signal += double(original[i]) * original[i];
        error += (double(filled[i]) - original[i]) * (double(filled[i]) - original[i]);
    }
    return 10.0 * std::log10(signal / error);
}

// A filler for gaps up to `longest` and tones with room for its context on both sides.
struct TonesAroundAGap {
    TonesAroundAGap(int longest, unsigned seed)
        : filler(rate, longest, 2), context(filler.contextLength(longest)), original(tones(2 * context + longest, seed))
    {
    }
    GapFiller filler;
    int context;
    std::vector<std::vector<float>> original;
};

TEST(GapFiller, RestoresTonesAcrossAFiftyMillisecondGap)
{
    const int gap = rate / 20;
    TonesAroundAGap setup(gap, 1);
    auto& [filler, context, original] = setup;
    auto channels = original;
    for (auto& c : channels) std::fill_n(c.begin() + context, gap, 0.0f);
    float* pointers[2] = {channels[0].data(), channels[1].data()};
    filler.fill(pointers, 2, context, gap);
    for (int c = 0; c < 2; ++c) EXPECT_GT(snrDb(original[c], channels[c], context, gap), 40.0) << "channel " << c;
}

TEST(GapFiller, AllocatesNothingPerGapAndRepeatsItsBits)
{
    const int longest = rate / 10;
    TonesAroundAGap setup(longest, 2);
    auto& [filler, context, original] = setup;
    for (int gap : {rate / 200, rate / 20, longest}) {
        auto first = original, second = original;
        float* a[2] = {first[0].data(), first[1].data()};
        float* b[2] = {second[0].data(), second[1].data()};
        const std::size_t allocations = testsupport::allocationsDuring([&] { filler.fill(a, 2, context, gap); });
        EXPECT_EQ(allocations, 0u) << gap << " samples";
        filler.fill(b, 2, context, gap);
        EXPECT_EQ(first, second) << gap << " samples";
        for (int c = 0; c < 2; ++c) {  // nothing outside the gap changes
            EXPECT_TRUE(std::equal(first[c].begin(), first[c].begin() + context, original[c].begin()));
            EXPECT_TRUE(std::equal(first[c].begin() + context + gap, first[c].end(), original[c].begin() + context + gap));
        }
    }
}

TEST(GapFiller, FillsOneChannelAloneAsWellAsInAGroup)
{
    const int gap = rate / 100;
    TonesAroundAGap setup(gap, 3);
    auto& [filler, context, original] = setup;
    auto channels = original;
    float* only[1] = {channels[1].data()};
    filler.fill(only, 1, context, gap);
    EXPECT_EQ(channels[0], original[0]);
    EXPECT_GT(snrDb(original[1], channels[1], context, gap), 40.0);
}

TEST(GapFiller, SilenceStaysSilent)
{
    for (int gap : {rate / 200, rate / 50}) {  // weighted by relative errors, and by least squares
        GapFiller filler(rate, gap, 1);
        std::vector<float> zeros(2 * filler.contextLength(gap) + gap, 0.0f);
        float* pointers[1] = {zeros.data()};
        filler.fill(pointers, 1, filler.contextLength(gap), gap);
        for (float v : zeros) ASSERT_EQ(v, 0.0f) << gap << " samples";
    }
}

}  // namespace

namespace {

// Tones cut `tail` samples after a 20 ms gap, as at a recording's end (or before it,
// at its start): the filled gap's SNR, told where the recording ends or not, and past
// the end either silence or loud noise.
struct NearAnEnd {
    static constexpr int gap = rate / 50;
    explicit NearAnEnd(int tail, bool atStart) : tail(tail), atStart(atStart)
    {
        const int context = filler.contextLength(gap);
        original = tones(2 * context + gap, 7);
        start = context;
    }
    // The gap's samples of every channel after filling.
    std::vector<float> filledGap(bool toldWhereItEnds, float pastTheEnd)
    {
        std::vector<std::vector<float>> channels;
        fill(toldWhereItEnds, pastTheEnd, &channels);
        std::vector<float> samples;
        for (const auto& c : channels) samples.insert(samples.end(), c.begin() + start, c.begin() + start + gap);
        return samples;
    }
    double fill(bool toldWhereItEnds, float pastTheEnd, std::vector<std::vector<float>>* result = nullptr)
    {
        auto channels = original;
        std::vector<float*> pointers;
        for (auto& c : channels) {
            std::fill_n(c.begin() + start, gap, 0.0f);
            if (atStart) std::fill(c.begin(), c.begin() + start - tail, pastTheEnd);
            else std::fill(c.begin() + start + gap + tail, c.end(), pastTheEnd);
            pointers.push_back(c.data());
        }
        const int reach = filler.contextLength(gap);
        allocations = testsupport::allocationsDuring([&] {
            if (toldWhereItEnds)
                filler.fill(pointers.data(), 2, start, gap, atStart ? tail : reach, atStart ? reach : tail);
            else
                filler.fill(pointers.data(), 2, start, gap);
        });
        if (result) *result = channels;
        return snrDb(original[0], channels[0], start, gap);
    }
    GapFiller filler{rate, gap, 2};
    int tail;
    bool atStart;
    int start = 0;
    std::size_t allocations = 0;  // of the last fill
    std::vector<std::vector<float>> original;
};

}  // namespace

TEST(GapFiller, NearARecordingsEndReadsOnlyTheRecording)
{
    for (bool atStart : {false, true}) {
        NearAnEnd setup(100, atStart);
        EXPECT_EQ(setup.filledGap(true, 0.0f), setup.filledGap(true, 1e6f)) << (atStart ? "at the start" : "at the end");
        EXPECT_EQ(setup.allocations, 0u);
    }
}

TEST(GapFiller, NearARecordingsEndContinuesItInsteadOfFadingToSilence)
{
    for (bool atStart : {false, true})
        for (int tail : {0, 100, 1000}) {
            NearAnEnd setup(tail, atStart);
            const double told = setup.fill(true, 0.0f), silence = setup.fill(false, 0.0f);
            std::printf("%s, %d samples: %.1f dB, %.1f dB taking silence past it\n", atStart ? "start" : "end", tail,
                        told, silence);
            EXPECT_GT(told, silence + 3.0) << tail << (atStart ? " at the start" : " at the end");
        }
}

TEST(GapFiller, AFewSamplesOfContextStillGiveAFiniteFill)
{
    NearAnEnd setup(0, false);
    auto channels = setup.original;
    std::vector<float*> pointers;
    for (auto& c : channels) pointers.push_back(c.data());
    for (int known : {0, 1, 5, 40, 2000}) {
        setup.filler.fill(pointers.data(), 2, setup.start, setup.gap, known, known / 2);
        for (const auto& c : channels)
            for (float v : c) ASSERT_TRUE(std::isfinite(v)) << known;
    }
}

TEST(GapFiller, LongGapsNearAnEndStillReadOnlyTheRecording)
{
    const int gap = rate / 10;
    GapFiller filler(rate, gap, 1);
    const int context = filler.contextLength(gap);
    const auto original = tones(2 * context + gap, 9)[0];
    std::vector<float> results[2];
    for (float pastTheEnd : {0.0f, 1e6f}) {
        auto samples = original;
        std::fill(samples.begin() + context + gap + 300, samples.end(), pastTheEnd);
        float* pointers[1] = {samples.data()};
        filler.fill(pointers, 1, context, gap, context, 300);
        results[pastTheEnd > 0.0f].assign(samples.begin() + context, samples.begin() + context + gap);
    }
    EXPECT_EQ(results[0], results[1]);
}

namespace {

// White noise with a burst of a voiced sound (a 150 Hz pulse train through a few
// resonances) from `burst` samples before the gap to as many after it.
std::vector<std::vector<float>> voicedBurst(int count, int gapStart, int gapLength, int burst, unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise(0.0, 0.05);
    const double pi = 3.14159265358979323846;
    std::vector<std::vector<float>> channels(2, std::vector<float>(count));
    for (int n = 0; n < count; ++n) {
        double v = noise(generator);
        if (n >= gapStart - burst && n < gapStart + gapLength + burst) {
            const double t = double(n) / rate;
            for (int h = 1; h <= 12; ++h) v += 0.3 / h * std::sin(2 * pi * 150.0 * h * t + 0.3 * h);
        }
        channels[0][n] = static_cast<float>(v);
        channels[1][n] = static_cast<float>(0.8 * v);
    }
    return channels;
}

}  // namespace

// A voiced sound only 25 ms on either side of a gap of 50-60 ms, in noise: stretches an
// order away lie mostly in the noise, which the models fitted on them restore best, and
// give the voice's fills no weight; the audio next to the gap tells them apart.
TEST(GapFiller, AShortVoicedBurstIsJudgedOnTheAudioBesideTheGap)
{
    for (const int ms : {50, 60}) {
        const int gap = rate * ms / 1000;
        InpaintSettings farStretches;
        farStretches.nextToGapMaxGapMs = 0.0;
        GapFiller filler(rate, gap, 2), judgedFarAway(rate, gap, 2, farStretches);
        const int context = filler.contextLength(gap);
        const auto original = voicedBurst(2 * context + gap, context, gap, rate / 40, 3);
        auto snrOf = [&](GapFiller& f) {
            auto channels = original;
            for (auto& channel : channels) std::fill_n(channel.begin() + context, gap, 0.0f);
            float* pointers[2] = {channels[0].data(), channels[1].data()};
            f.fill(pointers, 2, context, gap);
            return snrDb(original[0], channels[0], context, gap);
        };
        EXPECT_GT(snrOf(filler), 6.0) << ms << " ms";
        EXPECT_LT(snrOf(judgedFarAway), 3.0) << ms << " ms";
    }
}
