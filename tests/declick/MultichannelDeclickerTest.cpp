#include "declick/MultichannelDeclicker.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <thread>
#include <vector>

#include "ar/ClassicRand.h"
#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/CrackleTestSignals.h"
#include "support/AllocationCounter.h"

namespace {

using cracklefixture::Channels;

constexpr int block = 512;
constexpr int chunk = 8 * block;
constexpr int chunks = 6;

DeclickSettings onePass(int blockSize, DeclickPass pass)
{
    DeclickSettings settings;
    settings.block = blockSize;
    settings.passes[0] = pass;
    return settings;
}

const DeclickSettings settings = onePass(block, {5.0f, {true, 1e-2}});

// Music-like channels with a click every 2000 samples, shifted per channel.
Channels clickedChannels(int channels)
{
    Channels audio = cracklefixture::musicLike(channels, chunk * chunks, 11);
    for (int c = 0; c < channels; ++c)
        for (int at = 3000 + 300 * c; at < chunk * chunks; at += 2000) audio[c][at] += (at % 3 == 0 ? 0.5f : -0.5f);
    return audio;
}

std::vector<double> meanSquares(const Channels& audio)
{
    std::vector<double> result;
    for (const auto& channel : audio) {
        double sum = 0.0;
        for (float v : channel) sum += double(v) * v;
        result.push_back(sum / channel.size());
    }
    return result;
}

struct Declicked {
    Channels output;
    std::vector<RepairedSpan> spans;
};

Declicked runChunks(MultichannelDeclicker& declicker, Channels audio)
{
    Declicked run;
    std::vector<float*> rows(audio.size());
    for (int k = 0; k < chunks; ++k) {
        for (std::size_t c = 0; c < audio.size(); ++c) rows[c] = audio[c].data() + k * chunk;
        declicker.process(rows.data(), chunk);
        declicker.forEachLastSpan([&](const RepairedSpan& span) { run.spans.push_back(span); });
    }
    run.output = std::move(audio);
    return run;
}

Declicked declick(const Channels& audio, bool shared, int jobs, const DeclickSettings& chosen = settings,
                  DeclickListen listen = DeclickListen::repaired)
{
    MultichannelDeclicker declicker(chosen, meanSquares(audio), shared, listen, chunk, jobs);
    return runChunks(declicker, audio);
}

DeclickSettings twoPasses()
{
    DeclickSettings chain = settings;
    chain.passes = {DeclickPass{8.0f, {true, 1e-6}}, DeclickPass{16.0f, {true, 1e-3}}};
    chain.passCount = 2;
    return chain;
}

bool sameSpans(const std::vector<RepairedSpan>& a, const std::vector<RepairedSpan>& b)
{
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](const auto& x, const auto& y) {
               return x.channel == y.channel && x.first == y.first && x.last == y.last;
           });
}

}  // namespace

TEST(MultichannelDeclicker, OutputAndSpansDoNotDependOnTheNumberOfThreads)
{
    const Channels audio = clickedChannels(4);
    const Declicked one = declick(audio, false, 1);
    ASSERT_FALSE(one.spans.empty());
    for (int jobs : {2, 3, 4}) {
        SCOPED_TRACE(jobs);
        const Declicked many = declick(audio, false, jobs);
        EXPECT_EQ(many.output, one.output);
        EXPECT_TRUE(sameSpans(many.spans, one.spans));
    }
}

TEST(MultichannelDeclicker, AChannelComesOutAsItWouldAloneWhateverRanBeforeOnTheThread)
{
    const Channels audio = clickedChannels(3);
    const Declicked all = declick(audio, false, 1);
    ferrotip::rand();  // this thread's sequence moves on: no channel may notice
    const Declicked alone = declick(Channels{audio[2]}, false, 1);
    EXPECT_EQ(alone.output[0], all.output[2]);
}

TEST(MultichannelDeclicker, ASharedEngineGivesTheBitsOfTheEngineOnAFreshThread)
{
    const Channels audio = clickedChannels(2);
    const DeclickSettings absolute = onePass(1024, {3.0f, {false, 1e-7}});
    ferrotip::rand();
    const Declicked shared = declick(audio, true, 2, absolute);
    Channels direct = audio;
    std::thread([&] {
        AdvancedFftDeCrackler engine(2, 1024);
        engine.setSensitivity(3.0f);
        engine.setSpectralFloor(1e-7f);
        for (int at = 0; at + 1024 <= chunk * chunks; at += 1024) {
            float* rows[] = {direct[0].data() + at, direct[1].data() + at};
            engine.process(rows, 1024);
        }
    }).join();
    EXPECT_EQ(shared.output, direct);
}

TEST(MultichannelDeclicker, ChainedPassesGiveWhatThePassesGiveOneAfterTheOther)
{
    const Channels audio = clickedChannels(2);
    const DeclickSettings chain = twoPasses();
    const Declicked chained = declick(audio, false, 2, chain);
    // Both passes see the mean square of the chain's input.
    const std::vector<double> level = meanSquares(audio);
    Declicked first;
    {
        DeclickSettings one = onePass(block, chain.passes[0]);
        MultichannelDeclicker pass(one, level, false, DeclickListen::repaired, chunk, 1);
        first = runChunks(pass, audio);
    }
    MultichannelDeclicker second(onePass(block, chain.passes[1]), level, false, DeclickListen::repaired, chunk, 1);
    EXPECT_EQ(runChunks(second, first.output).output, chained.output);
    MultichannelDeclicker probe(chain, level, false, DeclickListen::repaired, chunk, 1);
    EXPECT_EQ(probe.latency(), 2 * 1926);
}

TEST(MultichannelDeclicker, DifferenceOfAChainIsItsOutputLessTheDelayedInput)
{
    const Channels audio = clickedChannels(1);
    const DeclickSettings chain = twoPasses();
    const Declicked repaired = declick(audio, false, 1, chain);
    const Declicked difference = declick(audio, false, 1, chain, DeclickListen::difference);
    const int latency = 2 * 1926;
    for (std::size_t t = latency; t < audio[0].size(); ++t)
        ASSERT_EQ(difference.output[0][t], repaired.output[0][t] - audio[0][t - latency]) << t;
}

TEST(MultichannelDeclicker, SpansCoverTheClicksOnTheirOwnChannel)
{
    const Channels audio = clickedChannels(2);
    const Declicked run = declick(audio, false, 1);
    const int latency = 1926;
    int found = 0;
    int clicks = 0;
    for (int c = 0; c < 2; ++c)
        for (int at = 3000 + 300 * c; at + latency < chunk * chunks; at += 2000) {
            ++clicks;
            for (const RepairedSpan& span : run.spans)
                if (span.channel == c && span.first <= at && at <= span.last) {
                    ++found;
                    break;
                }
        }
    EXPECT_EQ(found, clicks);
}

TEST(MultichannelDeclicker, ProcessOnOneThreadAllocatesNothingAndLeavesTheThreadsDitherAlone)
{
    Channels audio = clickedChannels(2);
    MultichannelDeclicker declicker(settings, meanSquares(audio), false, DeclickListen::repaired, chunk, 1);
    std::vector<float*> rows{audio[0].data(), audio[1].data()};
    ferrotip::srand(77);
    const int expected = ferrotip::rand();
    ferrotip::srand(77);
    EXPECT_EQ(testsupport::allocationsDuring([&] { declicker.process(rows.data(), chunk); }), 0u);
    EXPECT_EQ(ferrotip::rand(), expected);
    EXPECT_EQ(declicker.latency(), 1926);
}

TEST(MultichannelDeclicker, ResetGivesTheBitsOfAFreshDeclicker)
{
    const Channels audio = clickedChannels(2);
    const DeclickSettings chain = twoPasses();
    MultichannelDeclicker declicker(chain, meanSquares(audio), false, DeclickListen::difference, chunk, 1);
    const Declicked fresh = runChunks(declicker, audio);
    std::size_t allocations = 0;
    allocations += testsupport::allocationsDuring([&] { declicker.reset(); });
    const Declicked again = runChunks(declicker, audio);
    EXPECT_EQ(again.output, fresh.output);
    EXPECT_TRUE(sameSpans(again.spans, fresh.spans));
    EXPECT_EQ(allocations, 0u);
}

TEST(MultichannelDeclicker, RetuneWritesThePassesAsConstructionDoes)
{
    const Channels audio = clickedChannels(2);
    const std::vector<double> level = meanSquares(audio);
    DeclickSettings chain = twoPasses();
    const Declicked direct = declick(audio, false, 1, chain);
    // Built with other values and the same shape, then retuned before the first block.
    DeclickSettings other = chain;
    other.passes = {DeclickPass{3.0f, {false, 1e-7}}, DeclickPass{4.0f, {true, 1.0}}};
    MultichannelDeclicker declicker(other, std::vector<double>(2, 0.5), false, DeclickListen::repaired, chunk, 1);
    EXPECT_EQ(testsupport::allocationsDuring([&] { declicker.retune(chain, level); }), 0u);
    EXPECT_EQ(runChunks(declicker, audio).output, direct.output);
}

// Beyond the limit the engines' float squares overflow and whole blocks come out
// NaN; a stream cannot refuse what has come, so such samples are held at the limit.
TEST(MultichannelDeclicker, HoldsSamplesBeyondTheLargestMagnitudeAtItAndCountsThem)
{
    Channels audio = clickedChannels(2);
    audio[1][7000] = 1e23f;
    audio[0][9000] = -std::numeric_limits<float>::max();
    MultichannelDeclicker declicker(defaultDeclickPreset().settings, meanSquares(clickedChannels(2)), false,
                                    DeclickListen::repaired, chunk, 1);
    const Declicked run = runChunks(declicker, audio);
    EXPECT_EQ(declicker.clampedSamples(), 2);
    for (const auto& channel : run.output)
        EXPECT_TRUE(std::ranges::all_of(channel, [](float sample) { return std::isfinite(sample); }));
    declicker.reset();
    EXPECT_EQ(declicker.clampedSamples(), 0);
}
