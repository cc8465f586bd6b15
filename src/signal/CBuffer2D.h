// CBuffer2D<T>: an owned channel-by-sample table, one separately allocated row per
// channel, reached through a table of row pointers. rows() can be handed to any
// routine that takes an array of channel pointers. Instantiated for double, float,
// int and __int64.
//
// After construction and after resize every sample is zero. The constructor and
// resize allocate (std::bad_alloc on exhaustion or a negative dimension, in which
// case the buffer is left without rows); fill, getRow and getRowCount never
// allocate. Rows are not contiguous with one another. One thread at a time.
#pragma once

#include "signal/IBuffer.h"
#include "signal/SampleTypes.h"

#include <memory>
#include <vector>

namespace standardLib {

template <typename T>
class CBuffer2D : public IBuffer {
public:
    CBuffer2D(int rowCount, int columnCount);
    ~CBuffer2D() override;

    // Discards the old rows and allocates zeroed rows of the new dimensions.
    void resize(int rowCount, int columnCount);

    // Stores `value` in every sample; nothing when there are no rows.
    void fill(T value);

    // Rows 0 to rowCount - 1 exist; any other row stores null and fails.
    bool getRow(int row, void** result) override;
    bool getRow(int row, T** result);

    bool getRowCount(unsigned int* result) override;

    // The row table; null when an allocation failed.
    T** rows() noexcept { return table_.get(); }
    T* const* rows() const noexcept { return table_.get(); }
    T* operator[](int row) noexcept { return table_[row]; }
    const T* operator[](int row) const noexcept { return table_[row]; }
    int rowCount() const noexcept { return rowCount_; }
    int columnCount() const noexcept { return columnCount_; }

private:
    void release() noexcept;

    std::unique_ptr<T*[]> table_;
    std::vector<std::unique_ptr<T[]>> storage_;  // owns the rows the table points at
    int rowCount_;
    int columnCount_;
};

extern template class CBuffer2D<double>;
extern template class CBuffer2D<float>;
extern template class CBuffer2D<int>;
extern template class CBuffer2D<__int64>;

}  // namespace standardLib
