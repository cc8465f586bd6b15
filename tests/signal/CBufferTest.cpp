#include "signal/CBuffer.h"

#include <gtest/gtest.h>

#include <new>

namespace {

using standardLib::CBuffer;

template <typename T>
class CBufferTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<double, float, int, standardLib::__int64>;
TYPED_TEST_SUITE(CBufferTest, ElementTypes);

TYPED_TEST(CBufferTest, NewBufferHoldsNullPointers)
{
    CBuffer<TypeParam*> buffer(5);
    ASSERT_EQ(buffer.size(), 5);
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(buffer[i], nullptr);
}

TYPED_TEST(CBufferTest, RowCountIsOneWhateverTheSize)
{
    for (int size : {0, 1, 7}) {
        CBuffer<TypeParam*> buffer(size);
        unsigned int rows = 99;
        EXPECT_TRUE(buffer.getRowCount(&rows));
        EXPECT_EQ(rows, 1u) << "size " << size;
    }
}

TYPED_TEST(CBufferTest, OnlyRowZeroExistsEvenWhenSizeExceedsOne)
{
    CBuffer<TypeParam*> buffer(4);
    TypeParam** row = nullptr;
    EXPECT_TRUE(buffer.getRow(0, &row));
    EXPECT_EQ(row, buffer.data());

    TypeParam sentinel{};
    TypeParam* sentinelRow[1] = {&sentinel};
    row = sentinelRow;
    EXPECT_FALSE(buffer.getRow(1, &row));
    EXPECT_EQ(row, nullptr);
    row = sentinelRow;
    EXPECT_FALSE(buffer.getRow(-1, &row));
    EXPECT_EQ(row, nullptr);
}

TYPED_TEST(CBufferTest, InterfaceReturnsTheSameRow)
{
    CBuffer<TypeParam*> buffer(3);
    standardLib::IBuffer& base = buffer;
    void* row = nullptr;
    EXPECT_TRUE(base.getRow(0, &row));
    EXPECT_EQ(row, static_cast<void*>(buffer.data()));
    EXPECT_FALSE(base.getRow(1, &row));
    EXPECT_EQ(row, nullptr);
    unsigned int rows = 0;
    EXPECT_TRUE(base.getRowCount(&rows));
    EXPECT_EQ(rows, 1u);
}

TYPED_TEST(CBufferTest, FillStoresTheValueEverywhere)
{
    TypeParam sample{};
    CBuffer<TypeParam*> buffer(6);
    buffer.fill(&sample);
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(buffer[i], &sample);
}

TYPED_TEST(CBufferTest, FillOnEmptyBufferDoesNothing)
{
    TypeParam sample{};
    CBuffer<TypeParam*> buffer(0);
    buffer.fill(&sample);
    EXPECT_EQ(buffer.size(), 0);
}

TYPED_TEST(CBufferTest, ResizeDiscardsContentsAndNullsTheNewTable)
{
    TypeParam sample{};
    CBuffer<TypeParam*> buffer(2);
    buffer.fill(&sample);
    buffer.resize(9);
    ASSERT_EQ(buffer.size(), 9);
    for (int i = 0; i < 9; ++i)
        EXPECT_EQ(buffer[i], nullptr);
}

TYPED_TEST(CBufferTest, NegativeSizeFailsAsExhaustion)
{
    EXPECT_THROW(CBuffer<TypeParam*>(-1), std::bad_alloc);
}

}  // namespace
