#include "signal/CDelay.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace {

using standardLib::CDelay;
using Channels = std::vector<std::vector<float>>;

template <typename T>
std::vector<std::vector<T>> randomChannels(int channels, int length, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int> value(-30000, 30000);
    std::vector<std::vector<T>> signal(channels, std::vector<T>(length));
    for (auto& channel : signal)
        for (auto& sample : channel)
            sample = static_cast<T>(value(generator));
    return signal;
}

// Block lengths drawn from 1..maxBlock until `length` is covered.
std::vector<int> randomSplit(int length, int maxBlock, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int> block(1, maxBlock);
    std::vector<int> blocks;
    for (int done = 0; done < length;) {
        const int count = std::min(block(generator), length - done);
        blocks.push_back(count);
        done += count;
    }
    return blocks;
}

// Streams `input` through the delay in the given blocks, in place or into
// separate arrays, and returns the output.
template <typename T>
std::vector<std::vector<T>> stream(CDelay<T>& line, const std::vector<std::vector<T>>& input,
                                   const std::vector<int>& blocks, bool inPlace)
{
    const int channels = static_cast<int>(input.size());
    std::vector<std::vector<T>> work = input;
    std::vector<std::vector<T>> output(channels, std::vector<T>(input[0].size(), T(99)));
    std::vector<T*> in(channels), out(channels);
    int position = 0;
    for (int count : blocks) {
        for (int c = 0; c < channels; ++c) {
            in[c] = work[c].data() + position;
            out[c] = (inPlace ? work[c].data() : output[c].data()) + position;
        }
        line.processSamples(in.data(), out.data(), count);
        position += count;
    }
    return inPlace ? work : output;
}

template <typename T>
std::vector<std::vector<T>> delayed(const std::vector<std::vector<T>>& input, int delay)
{
    auto expected = input;
    for (size_t c = 0; c < input.size(); ++c)
        for (size_t n = 0; n < input[c].size(); ++n)
            expected[c][n] = n < size_t(delay) ? T(0) : input[c][n - delay];
    return expected;
}

template <typename T>
class CDelayTest : public ::testing::Test {};
using SampleTypes = ::testing::Types<double, float, int, standardLib::__int64>;
TYPED_TEST_SUITE(CDelayTest, SampleTypes);

TYPED_TEST(CDelayTest, ConstructionSetsRingAndPositions)
{
    CDelay<TypeParam> line(2, 100);
    EXPECT_EQ(line.ringLength(), 200);
    EXPECT_EQ(line.readPosition(), 0);
    EXPECT_EQ(line.writePosition(), 100);
    EXPECT_EQ(line.getLatency(), 100);
    EXPECT_EQ(line.blockSize(), 100);
    EXPECT_EQ(line.floatSetting(), -1.0f);
    EXPECT_EQ(line.inputChannels(), 2);
    EXPECT_EQ(line.outputChannels(), 2);
}

TYPED_TEST(CDelayTest, BlocksOf64GiveHundredZerosThenTheInput)
{
    const unsigned seed = 11;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    const auto input = randomChannels<TypeParam>(2, 64 * 20, seed);
    CDelay<TypeParam> line(2, 100);
    const auto output = stream(line, input, std::vector<int>(20, 64), false);
    EXPECT_EQ(output, delayed(input, 100));
}

TYPED_TEST(CDelayTest, AnyMixOfBlockLengthsGivesTheSameStream)
{
    for (unsigned seed : {1u, 2u, 3u}) {
        SCOPED_TRACE(::testing::Message() << "seed " << seed);
        const auto input = randomChannels<TypeParam>(2, 3000, seed);
        const auto expected = delayed(input, 100);
        for (int maxBlock : {1, 7, 100, 101, 250, 3000}) {
            SCOPED_TRACE(::testing::Message() << "max block " << maxBlock);
            const auto blocks = randomSplit(3000, maxBlock, seed * 31 + maxBlock);
            CDelay<TypeParam> separate(2, 100), inPlace(2, 100);
            EXPECT_EQ(stream(separate, input, blocks, false), expected);
            EXPECT_EQ(stream(inPlace, input, blocks, true), expected);
            EXPECT_EQ(separate.writePosition(), inPlace.writePosition());
            EXPECT_EQ(separate.readPosition(), inPlace.readPosition());
        }
    }
}

TYPED_TEST(CDelayTest, BlockEqualToDelayGoesWhollyThroughTheRing)
{
    CDelay<TypeParam> line(1, 10);
    std::vector<TypeParam> block(10), out(10, TypeParam(5));
    for (int i = 0; i < 10; ++i)
        block[i] = TypeParam(i + 1);
    TypeParam* in[] = {block.data()};
    TypeParam* outs[] = {out.data()};
    line.processSamples(in, outs, 10);
    // All ten samples entered the ring (k = 0): both positions moved by the delay,
    // and the run ended exactly at the ring's end, so writePosition wrapped to 0.
    EXPECT_EQ(line.writePosition(), 0);
    EXPECT_EQ(line.readPosition(), 10);
    EXPECT_EQ(out, std::vector<TypeParam>(10, TypeParam(0)));
    line.readSamples(outs, 0, 10);
    EXPECT_EQ(out, block);
}

TYPED_TEST(CDelayTest, ZeroCountTouchesNothing)
{
    CDelay<TypeParam> line(1, 10);
    std::vector<TypeParam> block(10, TypeParam(4));
    TypeParam* io[] = {block.data()};
    line.processSamples(io, io, 3);
    const int read = line.readPosition(), write = line.writePosition();
    line.processSamples(io, io, 0);
    EXPECT_EQ(line.readPosition(), read);
    EXPECT_EQ(line.writePosition(), write);
    // The ring still holds the three samples 10 behind.
    std::vector<TypeParam> zeros(20, TypeParam(0));
    TypeParam* z[] = {zeros.data()};
    line.processSamples(z, z, 10);
    EXPECT_EQ(zeros[7], TypeParam(4));
    EXPECT_EQ(zeros[6], TypeParam(0));
}

TYPED_TEST(CDelayTest, RunReachingTheRingEndSplitsAndWraps)
{
    CDelay<TypeParam> line(2, 10);  // ring of 20, write at 10
    const auto input = randomChannels<TypeParam>(2, 15, 5);
    std::vector<TypeParam*> in = {const_cast<TypeParam*>(input[0].data()),
                                  const_cast<TypeParam*>(input[1].data())};
    line.writeSamples(in.data(), 0, 15);  // runs of 10 and 5
    EXPECT_EQ(line.writePosition(), 5);
    // Reading from 10 also splits: 10 up to the end, then 5 from the start.
    std::vector<std::vector<TypeParam>> read(2, std::vector<TypeParam>(25));
    std::vector<TypeParam*> out = {read[0].data(), read[1].data()};
    line.readSamples(out.data(), 0, 10);  // zeros first: positions 0..9
    line.readSamples(out.data(), 10, 15);
    EXPECT_EQ(line.readPosition(), 5);
    for (int c = 0; c < 2; ++c)
        for (int i = 0; i < 15; ++i)
            EXPECT_EQ(read[c][10 + i], input[c][i]) << "channel " << c << " sample " << i;
    line.writeSamples(in.data(), 0, 15);  // from 5: a single run ending exactly at 20
    EXPECT_EQ(line.writePosition(), 0);
}

TYPED_TEST(CDelayTest, SetDelayZeroPassesSamplesDirectly)
{
    CDelay<TypeParam> line(1, 10);
    line.setDelay(0);
    EXPECT_EQ(line.readPosition(), line.writePosition());
    EXPECT_EQ(line.getLatency(), 0);

    const auto input = randomChannels<TypeParam>(1, 40, 8);
    std::vector<TypeParam> out(40);
    TypeParam* in[] = {const_cast<TypeParam*>(input[0].data())};
    TypeParam* outs[] = {out.data()};
    line.processSamples(in, outs, 40);
    EXPECT_EQ(out, input[0]);
    // Nothing went through the ring: the positions did not move.
    EXPECT_EQ(line.writePosition(), 10);
    EXPECT_EQ(line.readPosition(), 10);

    // processFrame passes each sample through the ring, store before load.
    TypeParam frameIn[] = {TypeParam(42)}, frameOut[] = {TypeParam(0)};
    line.processFrame(frameIn, frameOut);
    EXPECT_EQ(frameOut[0], TypeParam(42));
    EXPECT_EQ(line.writePosition(), 11);
    EXPECT_EQ(line.readPosition(), 11);
}

TYPED_TEST(CDelayTest, SetDelayMovesReadPositionAndSilencesTheRing)
{
    const unsigned seed = 21;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    CDelay<TypeParam> line(2, 50);
    auto first = randomChannels<TypeParam>(2, 70, seed);
    stream(line, first, {70}, true);
    const int write = line.writePosition();
    line.setDelay(30);
    EXPECT_EQ(line.getLatency(), 30);
    EXPECT_EQ(line.writePosition(), write);
    EXPECT_EQ(line.readPosition(), (write - 30 + 100) % 100);
    const auto input = randomChannels<TypeParam>(2, 500, seed + 1);
    EXPECT_EQ(stream(line, input, randomSplit(500, 60, seed), false), delayed(input, 30));
}

TYPED_TEST(CDelayTest, FrameByFrameMatchesTheBlockPath)
{
    const unsigned seed = 4;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    const auto input = randomChannels<TypeParam>(3, 300, seed);
    CDelay<TypeParam> line(3, 37);
    std::vector<std::vector<TypeParam>> output(3, std::vector<TypeParam>(300));
    for (int n = 0; n < 300; ++n) {
        TypeParam frameIn[3], frameOut[3];
        for (int c = 0; c < 3; ++c)
            frameIn[c] = input[c][n];
        line.processFrame(frameIn, frameOut);
        for (int c = 0; c < 3; ++c)
            output[c][n] = frameOut[c];
    }
    EXPECT_EQ(output, delayed(input, 37));
}

TYPED_TEST(CDelayTest, ForwardingFormsDelayToo)
{
    const auto input = randomChannels<TypeParam>(1, 256, 9);
    CDelay<TypeParam> line(1, 16);
    std::vector<TypeParam> work = input[0];
    TypeParam* io[] = {work.data()};
    line.processBlockInPlace(io);  // blockSize is the delay: 16 samples
    std::vector<TypeParam> out(256);
    TypeParam* outs[] = {out.data()};
    line.processSamplesAt(io, 16, outs, 16, 240);
    std::copy(work.begin(), work.begin() + 16, out.begin());
    EXPECT_EQ(out, delayed(input, 16)[0]);
}

TYPED_TEST(CDelayTest, ResetReturnsDelayZerosAndKeepsPositions)
{
    const unsigned seed = 13;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    CDelay<TypeParam> line(2, 100);
    stream(line, randomChannels<TypeParam>(2, 333, seed), randomSplit(333, 64, seed), true);
    const int read = line.readPosition(), write = line.writePosition();
    line.reset();
    EXPECT_EQ(line.readPosition(), read);
    EXPECT_EQ(line.writePosition(), write);
    const auto input = randomChannels<TypeParam>(2, 640, seed + 1);
    EXPECT_EQ(stream(line, input, std::vector<int>(10, 64), false), delayed(input, 100));
}

TYPED_TEST(CDelayTest, DelayZeroAtConstructionHasAnEmptyRing)
{
    CDelay<TypeParam> line(2, 0);
    EXPECT_EQ(line.ringLength(), 0);
    const auto input = randomChannels<TypeParam>(2, 90, 17);
    EXPECT_EQ(stream(line, input, {1, 30, 59}, false), input);
    EXPECT_EQ(stream(line, input, {90}, true), input);
    EXPECT_EQ(line.readPosition(), 0);
    EXPECT_EQ(line.writePosition(), 0);
    line.reset();
}

TEST(CDelay, ProcessingAllocatesNothing)
{
    CDelay<float> line(2, 100);
    std::vector<float> a(1000, 1.0f), b(1000, 2.0f);
    float* io[] = {a.data(), b.data()};
    float frame[2] = {1.0f, 2.0f};
    testsupport::AllocationScope scope;
    line.processSamples(io, io, 1000);
    line.processSamples(io, io, 37);
    line.processFrame(frame, frame);
    line.processSamplesAt(io, 5, io, 5, 300);
    line.reset();
    line.setDelay(50);
    EXPECT_EQ(scope.count(), 0);
}

}  // namespace
