#include "signal/MatrixRoutines.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <type_traits>
#include <vector>

namespace {

using namespace standardLib;

TEST(MatrixRoutines, AllocatesTableAndRowsOfTheGivenDimensions)
{
    testsupport::AllocationScope scope;
    double** matrix = allocDoubleMatrix(nullptr, 4, 33);
    EXPECT_EQ(scope.count(), 5);  // the table, then each row
    std::set<double*> distinct(matrix, matrix + 4);
    EXPECT_EQ(distinct.size(), 4u);
    clearDoubleMatrix(matrix, 4, 33);
    for (int row = 0; row < 4; ++row) {
        matrix[row][32] = row;  // the last element of each row is writable
        EXPECT_EQ(matrix[row][0], 0.0);
    }
    freeMatrix(matrix, 4);
}

TEST(MatrixRoutines, ZeroRowFloatMatrixIsReleasedByFreeMatrix)
{
    testsupport::AllocationScope scope;
    float** matrix = allocFloatMatrix(nullptr, 0, 16);
    ASSERT_NE(matrix, nullptr);
    EXPECT_EQ(scope.count(), 1);  // the empty table alone
    testsupport::watchRelease(matrix, 0);
    freeMatrix(matrix, 0);
    EXPECT_TRUE(testsupport::releaseProbe().released);
}

TEST(MatrixRoutines, NegativeRowCountGivesAnEmptyTable)
{
    testsupport::AllocationScope scope;
    int** matrix = allocIntMatrix(nullptr, -3, 16);
    ASSERT_NE(matrix, nullptr);
    EXPECT_EQ(scope.count(), 1);
    freeMatrix(matrix, 0);
}

TEST(MatrixRoutines, PreviousPointerIsNeitherReadNorReleased)
{
    float** first = allocFloatMatrix(nullptr, 2, 3);
    clearFloatMatrix(first, 2, 3);
    first[1][2] = 5.0f;
    float** second = allocFloatMatrix(first, 2, 3);
    EXPECT_NE(second, first);
    EXPECT_EQ(first[1][2], 5.0f);  // still alive: the caller owns it
    freeMatrix(second, 2);
    freeMatrix(first, 2);
}

TEST(MatrixRoutines, FreeMatrixNullsEverySlotBeforeReleasingTheTable)
{
    constexpr int rows = 5;
    double** matrix = allocDoubleMatrix(nullptr, rows, 8);
    testsupport::watchRelease(matrix, rows);
    freeMatrix(matrix, rows);
    const auto& probe = testsupport::releaseProbe();
    ASSERT_TRUE(probe.released);
    for (int row = 0; row < rows; ++row)
        EXPECT_EQ(probe.seen[row], nullptr) << "slot " << row;
}

// Fills `rows` rows of `width` 32-bit elements with a byte pattern, clears `cols`
// of them, and returns the bytes of each row.
template <typename T, typename Clear>
std::vector<unsigned char> bytesAfterClear(Clear clear, int rows, int cols, int width)
{
    T** matrix = nullptr;
    if constexpr (std::is_same_v<T, int>)
        matrix = allocIntMatrix(nullptr, rows, width);
    else
        matrix = allocFloatMatrix(nullptr, rows, width);
    for (int row = 0; row < rows; ++row)
        std::memset(matrix[row], 0xA5, sizeof(T) * width);
    clear(matrix, rows, cols);
    std::vector<unsigned char> bytes;
    for (int row = 0; row < rows; ++row) {
        const auto* first = reinterpret_cast<const unsigned char*>(matrix[row]);
        bytes.insert(bytes.end(), first, first + sizeof(T) * width);
    }
    freeMatrix(matrix, rows);
    return bytes;
}

TEST(MatrixRoutines, IntAndFloatClearsZeroTheSameBytes)
{
    constexpr int rows = 3, cols = 7, width = 10;
    const auto ints = bytesAfterClear<int>(clearIntMatrix, rows, cols, width);
    const auto floats = bytesAfterClear<float>(clearFloatMatrix, rows, cols, width);
    EXPECT_EQ(ints, floats);
    // Exactly cols * 4 bytes of each row are zero, the rest keep the pattern.
    for (int row = 0; row < rows; ++row)
        for (int byte = 0; byte < width * 4; ++byte)
            EXPECT_EQ(ints[row * width * 4 + byte], byte < cols * 4 ? 0x00 : 0xA5);
}

TEST(MatrixRoutines, ClearWithNoRowsReturnsAtOnce)
{
    clearDoubleMatrix(nullptr, 0, 10);
    clearFloatMatrix(nullptr, -1, 10);
    clearIntMatrix(nullptr, 0, 10);
}

TEST(MatrixRoutines, ClearDoubleZeroesColsElements)
{
    double** matrix = allocDoubleMatrix(nullptr, 2, 4);
    for (int row = 0; row < 2; ++row)
        for (int column = 0; column < 4; ++column)
            matrix[row][column] = 1.5;
    clearDoubleMatrix(matrix, 2, 3);
    for (int row = 0; row < 2; ++row) {
        EXPECT_EQ(matrix[row][2], 0.0);
        EXPECT_EQ(matrix[row][3], 1.5);
    }
    freeMatrix(matrix, 2);
}

}  // namespace
