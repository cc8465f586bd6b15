#include "signal/BufferRoutines.h"
#include "signal/MatrixRoutines.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace standardLib;

template <typename T>
class BufferRoutinesTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<double, float, int, standardLib::__int64>;
TYPED_TEST_SUITE(BufferRoutinesTest, ElementTypes);

TYPED_TEST(BufferRoutinesTest, CopyElementsCopiesAndReturnsDestination)
{
    const std::vector<TypeParam> source = {1, 2, 3, 4, 5};
    std::vector<TypeParam> destination(6, TypeParam(9));
    EXPECT_EQ(copyElements(source.data(), destination.data(), 4), destination.data());
    EXPECT_EQ(destination, (std::vector<TypeParam>{1, 2, 3, 4, 9, 9}));
}

TYPED_TEST(BufferRoutinesTest, CopyElementsWithZeroCountCopiesNothing)
{
    const std::vector<TypeParam> source = {1, 2};
    std::vector<TypeParam> destination(2, TypeParam(9));
    EXPECT_EQ(copyElements(source.data(), destination.data(), 0), destination.data());
    EXPECT_EQ(destination, (std::vector<TypeParam>{9, 9}));
}

TYPED_TEST(BufferRoutinesTest, CopyRowsUsesBothOffsets)
{
    std::vector<TypeParam> a = {1, 2, 3, 4}, b = {5, 6, 7, 8};
    std::vector<TypeParam> c(5, TypeParam(0)), d(5, TypeParam(0));
    TypeParam* source[] = {a.data(), b.data()};
    TypeParam* destination[] = {c.data(), d.data()};
    copyRows(2, source, 1, destination, 2, 3);
    EXPECT_EQ(c, (std::vector<TypeParam>{0, 0, 2, 3, 4}));
    EXPECT_EQ(d, (std::vector<TypeParam>{0, 0, 6, 7, 8}));
}

TYPED_TEST(BufferRoutinesTest, CopyRowsWithNoRowsOrNoCountTouchesNothing)
{
    // No rows: the tables are not even read.
    copyRows<TypeParam>(0, nullptr, 0, nullptr, 0, 5);
    copyRows<TypeParam>(-2, nullptr, 0, nullptr, 0, 5);

    std::vector<TypeParam> a = {1, 2}, c = {9, 9};
    TypeParam* source[] = {a.data()};
    TypeParam* destination[] = {c.data()};
    copyRows(1, source, 0, destination, 0, 0);
    EXPECT_EQ(c, (std::vector<TypeParam>{9, 9}));
}

TYPED_TEST(BufferRoutinesTest, ReleaseRowsIsNullSafe)
{
    releaseRows<TypeParam>(nullptr, 3);
}

TEST(BufferRoutines, ReleaseRowsFreesAMatrixTable)
{
    // The leak check of the sanitizer build sees anything left behind.
    releaseRows(allocDoubleMatrix(nullptr, 3, 10), 3);
    releaseRows(allocFloatMatrix(nullptr, 2, 4), 2);
    releaseRows(allocIntMatrix(nullptr, 0, 4), 0);
}

}  // namespace
