// CBuffer<T*>: an owned one-dimensional table of channel pointers (the pointed-to
// samples are not owned). Instantiated for double*, float*, int* and __int64*.
//
// After construction and after resize every element is null. The constructor and
// resize allocate (and throw std::bad_alloc on exhaustion or a negative size);
// fill, getRow and getRowCount never allocate. As an IBuffer it is one row, the
// table itself. One thread at a time.
#pragma once

#include "signal/IBuffer.h"
#include "signal/SampleTypes.h"

#include <memory>

namespace standardLib {

template <typename T>
class CBuffer;

template <typename T>
class CBuffer<T*> : public IBuffer {
public:
    explicit CBuffer(int size);
    ~CBuffer() override;

    // Discards the old table and allocates `size` null elements.
    void resize(int size);

    // Stores `value` in every element; nothing when the table is absent or empty.
    void fill(T* value);

    // Row 0 is the table; every other row is absent.
    bool getRow(int row, void** result) override;
    bool getRow(int row, T*** result);

    // Always one row, whatever the size.
    bool getRowCount(unsigned int* result) override;

    T** data() noexcept { return data_.get(); }
    T* const* data() const noexcept { return data_.get(); }
    int size() const noexcept { return size_; }
    T*& operator[](int index) noexcept { return data_[index]; }

private:
    std::unique_ptr<T*[]> data_;
    int size_;
};

extern template class CBuffer<double*>;
extern template class CBuffer<float*>;
extern template class CBuffer<int*>;
extern template class CBuffer<__int64*>;

}  // namespace standardLib
