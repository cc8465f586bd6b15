// Abstract face of the owned buffers: every buffer is a set of rows.
//
// getRow hands back the address of one row through an untyped slot; each derived
// buffer adds a typed overload with its own row type. getRowCount reports the number
// of rows. Neither allocates nor throws. A buffer belongs to one thread at a time.
#pragma once

namespace standardLib {

class IBuffer {
public:
    virtual ~IBuffer() = default;

    // Stores the address of row `row` in *result and returns true, or stores null
    // and returns false when there is no such row.
    virtual bool getRow(int row, void** result) = 0;

    // Stores the number of rows in *result and returns true.
    virtual bool getRowCount(unsigned int* result) = 0;

protected:
    IBuffer() = default;
    IBuffer(const IBuffer&) = delete;
    IBuffer& operator=(const IBuffer&) = delete;
};

}  // namespace standardLib
