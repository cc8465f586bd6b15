#include "signal/CProcessSamplesBasis.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using standardLib::CProcessSamplesBasis;

// Replaces the funnel alone and records what reached it.
template <typename T>
class RecordingBlock : public CProcessSamplesBasis<T> {
public:
    template <typename... Args>
    explicit RecordingBlock(Args... args) : CProcessSamplesBasis<T>(args...)
    {
        lastIn.reserve(8);  // recording must not count as the block's allocation
        lastOut.reserve(8);
    }

    int processSamples(T** in, T** out, int count) override
    {
        ++calls;
        lastCount = count;
        lastIn.assign(in, in + this->inputChannels());
        lastOut.assign(out, out + this->outputChannels());
        return 1000 + count;
    }

    int calls = 0;
    int lastCount = -99;
    std::vector<T*> lastIn, lastOut;
};

template <typename T>
class CProcessSamplesBasisTest : public ::testing::Test {};
using SampleTypes = ::testing::Types<double, float, int, standardLib::__int64>;
TYPED_TEST_SUITE(CProcessSamplesBasisTest, SampleTypes);

TYPED_TEST(CProcessSamplesBasisTest, ConstructorsSetDefaultsAndBothArgumentOrders)
{
    CProcessSamplesBasis<TypeParam> plain(2, 3);
    EXPECT_EQ(plain.inputChannels(), 2);
    EXPECT_EQ(plain.outputChannels(), 3);
    EXPECT_EQ(plain.floatSetting(), -1.0f);
    EXPECT_EQ(plain.blockSize(), -1);

    CProcessSamplesBasis<TypeParam> floatFirst(1, 1, 0.25f, 64);
    EXPECT_EQ(floatFirst.floatSetting(), 0.25f);
    EXPECT_EQ(floatFirst.blockSize(), 64);

    CProcessSamplesBasis<TypeParam> blockFirst(1, 1, 128, 0.5f);
    EXPECT_EQ(blockFirst.floatSetting(), 0.5f);
    EXPECT_EQ(blockFirst.blockSize(), 128);
}

TYPED_TEST(CProcessSamplesBasisTest, BaseOperationsDoNothing)
{
    CProcessSamplesBasis<TypeParam> block(1, 1);
    TypeParam sample = 3;
    TypeParam* channel[] = {&sample};
    EXPECT_EQ(block.processSamples(channel, channel, 1), 0);
    EXPECT_EQ(block.processBlockInPlace(channel), 0);
    EXPECT_EQ(block.getLatency(), 0);
    EXPECT_EQ(block.reset(), 0);
    EXPECT_EQ(sample, TypeParam(3));
}

TYPED_TEST(CProcessSamplesBasisTest, FrameFormsPointAtConsecutiveElements)
{
    RecordingBlock<TypeParam> block(2, 3);
    TypeParam in[2], out[3];
    testsupport::AllocationScope scope;
    EXPECT_EQ(block.processFrame(in, out), 1001);
    EXPECT_EQ(scope.count(), 0);
    EXPECT_EQ(block.lastCount, 1);
    EXPECT_EQ(block.lastIn, (std::vector<TypeParam*>{in, in + 1}));
    EXPECT_EQ(block.lastOut, (std::vector<TypeParam*>{out, out + 1, out + 2}));

    EXPECT_EQ(block.processFrameInPlace(in), 1001);
    EXPECT_EQ(block.lastIn, (std::vector<TypeParam*>{in, in + 1}));
    EXPECT_EQ(block.lastOut, (std::vector<TypeParam*>{in, in + 1, in + 2}));
}

TYPED_TEST(CProcessSamplesBasisTest, BlockFormsUseTheDefaultLength)
{
    RecordingBlock<TypeParam> block(1, 1, 64, -1.0f);
    TypeParam a[1], b[1];
    TypeParam* in[] = {a};
    TypeParam* out[] = {b};
    EXPECT_EQ(block.processBlock(in, out), 1064);
    EXPECT_EQ(block.lastIn[0], a);
    EXPECT_EQ(block.lastOut[0], b);
    EXPECT_EQ(block.processBlockInPlace(in), 1064);
    EXPECT_EQ(block.lastOut[0], a);
    EXPECT_EQ(block.calls, 2);
}

TYPED_TEST(CProcessSamplesBasisTest, InPlaceAndOffsetFormsForwardTheirArguments)
{
    RecordingBlock<TypeParam> block(2, 2);
    std::vector<TypeParam> a(20), b(20), c(20), d(20);
    TypeParam* in[] = {a.data(), b.data()};
    TypeParam* out[] = {c.data(), d.data()};

    EXPECT_EQ(block.processSamplesInPlace(in, 7), 1007);
    EXPECT_EQ(block.lastOut, (std::vector<TypeParam*>{a.data(), b.data()}));

    testsupport::AllocationScope scope;
    EXPECT_EQ(block.processSamplesAt(in, 3, out, 5, 9), 1009);
    EXPECT_EQ(scope.count(), 0);
    EXPECT_EQ(block.lastIn, (std::vector<TypeParam*>{a.data() + 3, b.data() + 3}));
    EXPECT_EQ(block.lastOut, (std::vector<TypeParam*>{c.data() + 5, d.data() + 5}));
    // The caller's tables are left as they were.
    EXPECT_EQ(in[0], a.data());
    EXPECT_EQ(out[1], d.data());
}

}  // namespace
