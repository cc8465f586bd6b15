#include "signal/CBuffer2D.h"

namespace standardLib {

template <typename T>
CBuffer2D<T>::CBuffer2D(int rowCount, int columnCount)
    : rowCount_(rowCount), columnCount_(columnCount)
{
    resize(rowCount, columnCount);
}

template <typename T>
CBuffer2D<T>::~CBuffer2D() = default;

template <typename T>
void CBuffer2D<T>::release() noexcept
{
    table_.reset();
    storage_.clear();
}

template <typename T>
void CBuffer2D<T>::resize(int rowCount, int columnCount)
{
    release();
    rowCount_ = rowCount;
    columnCount_ = columnCount;

    // The table first, every entry null; a negative count throws
    // std::bad_array_new_length before anything else is touched.
    std::unique_ptr<T*[]> table(new T*[rowCount]());
    std::vector<std::unique_ptr<T[]>> storage;
    storage.reserve(static_cast<std::size_t>(rowCount));
    for (int row = 0; row < rowCount; ++row) {
        storage.emplace_back(new T[columnCount]());  // value-initialised: zero
        table[row] = storage.back().get();
    }
    // Only a complete set of rows is kept; a throw above releases what was made.
    table_ = std::move(table);
    storage_ = std::move(storage);
}

template <typename T>
void CBuffer2D<T>::fill(T value)
{
    if (!table_ || rowCount_ < 1)
        return;
    for (int row = 0; row < rowCount_; ++row)
        for (int column = 0; column < columnCount_; ++column)
            table_[row][column] = value;
}

template <typename T>
bool CBuffer2D<T>::getRow(int row, T** result)
{
    const bool present = table_ && row >= 0 && row < rowCount_;
    *result = present ? table_[row] : nullptr;
    return present;
}

template <typename T>
bool CBuffer2D<T>::getRow(int row, void** result)
{
    T* samples = nullptr;
    const bool present = getRow(row, &samples);
    *result = samples;
    return present;
}

template <typename T>
bool CBuffer2D<T>::getRowCount(unsigned int* result)
{
    *result = static_cast<unsigned int>(rowCount_);
    return true;
}

template class CBuffer2D<double>;
template class CBuffer2D<float>;
template class CBuffer2D<int>;
template class CBuffer2D<__int64>;

}  // namespace standardLib
