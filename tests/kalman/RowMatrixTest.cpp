#include "kalman/RowMatrix.h"

#include <gtest/gtest.h>

#include <utility>

using kalman::RowMatrix;

TEST(RowMatrix, DefaultIsEmptyAndNotAllocated) {
    RowMatrix m;
    EXPECT_EQ(m.rowCount(), 0);
    EXPECT_EQ(m.colCount(), 0);
    EXPECT_FALSE(m.isAllocated());
}

TEST(RowMatrix, ZeroSizedMatrixCountsAsAllocated) {
    RowMatrix m(0, 0);
    EXPECT_TRUE(m.isAllocated());
}

TEST(RowMatrix, StartsZeroedWithRowsInOrder) {
    RowMatrix m(3, 4);
    for (int r = 0; r < 3; ++r)
        for (int c = 0; c < 4; ++c) EXPECT_EQ(m[r][c], 0.0f);
    EXPECT_EQ(m.rows()[1], m[1]);
    EXPECT_EQ(m[2] - m[1], 4);
}

TEST(RowMatrix, MoveKeepsRowPointersAndEmptiesTheSource) {
    RowMatrix m(2, 2);
    m[1][1] = 5.0f;
    float* row = m[1];
    RowMatrix moved(std::move(m));
    EXPECT_EQ(moved[1], row);
    EXPECT_EQ(moved[1][1], 5.0f);
    EXPECT_FALSE(m.isAllocated());  // NOLINT(bugprone-use-after-move): RowMatrix defines its moved-from state
    RowMatrix assigned;
    assigned = std::move(moved);
    EXPECT_EQ(assigned[1], row);
    EXPECT_EQ(assigned.rowCount(), 2);
    EXPECT_EQ(moved.rowCount(), 0);  // NOLINT(bugprone-use-after-move)
}
