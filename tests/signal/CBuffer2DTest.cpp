#include "signal/CBuffer2D.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <new>
#include <set>

namespace {

using standardLib::CBuffer2D;

template <typename T>
class CBuffer2DTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<double, float, int, standardLib::__int64>;
TYPED_TEST_SUITE(CBuffer2DTest, ElementTypes);

template <typename T>
void expectAllEqual(const CBuffer2D<T>& buffer, T value)
{
    for (int row = 0; row < buffer.rowCount(); ++row)
        for (int column = 0; column < buffer.columnCount(); ++column)
            ASSERT_EQ(buffer[row][column], value) << "row " << row << " column " << column;
}

TYPED_TEST(CBuffer2DTest, NewBufferIsZero)
{
    CBuffer2D<TypeParam> buffer(3, 17);
    EXPECT_EQ(buffer.rowCount(), 3);
    EXPECT_EQ(buffer.columnCount(), 17);
    expectAllEqual(buffer, TypeParam(0));
}

TYPED_TEST(CBuffer2DTest, RowsAreSeparateAllocations)
{
    // One table and one block per row.
    testsupport::AllocationScope scope;
    CBuffer2D<TypeParam> buffer(4, 8);
    std::set<TypeParam*> distinct(buffer.rows(), buffer.rows() + 4);
    EXPECT_EQ(distinct.size(), 4u);
    EXPECT_GE(scope.count(), 5);
}

TYPED_TEST(CBuffer2DTest, GetRowInRange)
{
    CBuffer2D<TypeParam> buffer(3, 2);
    for (int row = 0; row < 3; ++row) {
        TypeParam* samples = nullptr;
        EXPECT_TRUE(buffer.getRow(row, &samples));
        EXPECT_EQ(samples, buffer.rows()[row]);
    }
    unsigned int rows = 0;
    EXPECT_TRUE(buffer.getRowCount(&rows));
    EXPECT_EQ(rows, 3u);
}

TYPED_TEST(CBuffer2DTest, GetRowOutsideRangeStoresNull)
{
    CBuffer2D<TypeParam> buffer(3, 2);
    TypeParam sentinel{};
    for (int row : {-1, 3}) {
        TypeParam* samples = &sentinel;
        EXPECT_FALSE(buffer.getRow(row, &samples)) << "row " << row;
        EXPECT_EQ(samples, nullptr) << "row " << row;
        void* untyped = &sentinel;
        EXPECT_FALSE(static_cast<standardLib::IBuffer&>(buffer).getRow(row, &untyped));
        EXPECT_EQ(untyped, nullptr);
    }
}

TYPED_TEST(CBuffer2DTest, ResizeDiscardsOldRowsAndZeroesNewOnes)
{
    CBuffer2D<TypeParam> buffer(2, 5);
    buffer.fill(TypeParam(7));
    buffer.resize(3, 11);
    EXPECT_EQ(buffer.rowCount(), 3);
    EXPECT_EQ(buffer.columnCount(), 11);
    unsigned int rows = 0;
    buffer.getRowCount(&rows);
    EXPECT_EQ(rows, 3u);
    expectAllEqual(buffer, TypeParam(0));
}

TYPED_TEST(CBuffer2DTest, FillStoresEverywhere)
{
    CBuffer2D<TypeParam> buffer(2, 9);
    buffer.fill(TypeParam(-3));
    expectAllEqual(buffer, TypeParam(-3));
}

TYPED_TEST(CBuffer2DTest, FillWithNoRowsLeavesBufferUntouched)
{
    CBuffer2D<TypeParam> buffer(0, 5);
    TypeParam** table = buffer.rows();
    buffer.fill(TypeParam(1));
    EXPECT_EQ(buffer.rows(), table);
    EXPECT_EQ(buffer.rowCount(), 0);
    EXPECT_EQ(buffer.columnCount(), 5);
    unsigned int rows = 9;
    buffer.getRowCount(&rows);
    EXPECT_EQ(rows, 0u);
}

TYPED_TEST(CBuffer2DTest, NegativeDimensionFailsAsExhaustion)
{
    EXPECT_THROW(CBuffer2D<TypeParam>(-1, 4), std::bad_alloc);
    EXPECT_THROW(CBuffer2D<TypeParam>(2, -4), std::bad_alloc);

    // A failed resize leaves the buffer without rows.
    CBuffer2D<TypeParam> buffer(2, 4);
    EXPECT_THROW(buffer.resize(2, -1), std::bad_alloc);
    EXPECT_EQ(buffer.rows(), nullptr);
    TypeParam* samples = nullptr;
    EXPECT_FALSE(buffer.getRow(0, &samples));
    buffer.fill(TypeParam(1));  // no rows: nothing to do
}

}  // namespace
