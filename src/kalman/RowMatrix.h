// An owned matrix of 32-bit floats reached through a table of row pointers, the shape
// that the Kalman toolkit works on (`float**`, row i at rows()[i]).
//
// Storage: one contiguous block, row-major, zeroed on construction; the row table
// points into it. Construction allocates; element access never does.
// Moves keep the row pointers valid (the block changes owner, not address); copies
// are not offered. isAllocated() tells a matrix that has been made, even with zero
// rows, from a default-constructed one.
// Threads: none; an object belongs to its owner's thread.
#pragma once

#include <vector>

namespace kalman {

class RowMatrix {
public:
    RowMatrix() = default;
    RowMatrix(int rows, int cols);

    RowMatrix(RowMatrix&& other) noexcept;
    RowMatrix& operator=(RowMatrix&& other) noexcept;
    RowMatrix(const RowMatrix&) = delete;
    RowMatrix& operator=(const RowMatrix&) = delete;
    ~RowMatrix() = default;

    float** rows() { return rowTable_.data(); }
    const float* const* rows() const { return rowTable_.data(); }
    float* operator[](int row) { return rowTable_[static_cast<std::size_t>(row)]; }
    const float* operator[](int row) const { return rowTable_[static_cast<std::size_t>(row)]; }

    int rowCount() const { return rowCount_; }
    int colCount() const { return colCount_; }
    bool isAllocated() const { return allocated_; }

private:
    int rowCount_ = 0;
    int colCount_ = 0;
    bool allocated_ = false;
    std::vector<float> elements_;
    std::vector<float*> rowTable_;
};

}  // namespace kalman
