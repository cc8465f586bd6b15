#include "signal/CBuffer.h"

namespace standardLib {

template <typename T>
CBuffer<T*>::CBuffer(int size) : size_(size)
{
    resize(size);
}

template <typename T>
CBuffer<T*>::~CBuffer() = default;

template <typename T>
void CBuffer<T*>::resize(int size)
{
    data_.reset();
    size_ = size;
    // A negative size throws std::bad_array_new_length, a std::bad_alloc.
    data_.reset(new T*[size]);
    fill(nullptr);
}

template <typename T>
void CBuffer<T*>::fill(T* value)
{
    if (!data_ || size_ < 1)
        return;
    for (int i = 0; i < size_; ++i)
        data_[i] = value;
}

template <typename T>
bool CBuffer<T*>::getRow(int row, T*** result)
{
    const bool present = row == 0;
    *result = present ? data_.get() : nullptr;
    return present;
}

template <typename T>
bool CBuffer<T*>::getRow(int row, void** result)
{
    T** table = nullptr;
    const bool present = getRow(row, &table);
    *result = table;
    return present;
}

template <typename T>
bool CBuffer<T*>::getRowCount(unsigned int* result)
{
    *result = 1;
    return true;
}

template class CBuffer<double*>;
template class CBuffer<float*>;
template class CBuffer<int*>;
template class CBuffer<__int64*>;

}  // namespace standardLib
