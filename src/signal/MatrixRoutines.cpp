#include "signal/MatrixRoutines.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <new>

namespace standardLib {
namespace {

// Raw storage from the array allocation function; the rows and the table are
// implicit-lifetime arrays, so freeMatrix can release them without their type.
template <typename T>
T** allocMatrix(int rows, int cols)
{
    const std::size_t rowCount = rows < 1 ? 0 : static_cast<std::size_t>(rows);
    if (rowCount > 0 && cols < 0)
        throw std::bad_array_new_length();
    const std::size_t rowBytes = static_cast<std::size_t>(cols < 0 ? 0 : cols) * sizeof(T);

    T** table = static_cast<T**>(::operator new[](rowCount * sizeof(T*)));
    std::size_t made = 0;
    try {
        for (; made < rowCount; ++made)
            table[made] = static_cast<T*>(::operator new[](rowBytes));
    } catch (...) {
        while (made > 0)
            ::operator delete[](table[--made]);
        ::operator delete[](table);
        throw;
    }
    return table;
}

template <typename T>
void clearMatrix(T** matrix, int rows, int cols)
{
    if (rows < 1)
        return;
    for (int row = 0; row < rows; ++row)
        std::fill_n(matrix[row], cols, T(0));
}

// A row slot read and written as an untyped pointer; every data pointer has the
// same representation, and the byte copy keeps the access free of type punning.
void* loadSlot(const unsigned char* slot)
{
    void* pointer;
    std::memcpy(&pointer, slot, sizeof pointer);
    return pointer;
}

void storeNullSlot(unsigned char* slot)
{
    void* const none = nullptr;
    std::memcpy(slot, &none, sizeof none);
}

}  // namespace

double** allocDoubleMatrix(double** /*previous*/, int rows, int cols)
{
    return allocMatrix<double>(rows, cols);
}

float** allocFloatMatrix(float** /*previous*/, int rows, int cols)
{
    return allocMatrix<float>(rows, cols);
}

int** allocIntMatrix(int** /*previous*/, int rows, int cols)
{
    return allocMatrix<int>(rows, cols);
}

void freeMatrix(void* matrix, int rows)
{
    auto* slots = static_cast<unsigned char*>(matrix);
    for (int row = 0; row < rows; ++row) {
        unsigned char* slot = slots + static_cast<std::size_t>(row) * sizeof(void*);
        ::operator delete[](loadSlot(slot));
        storeNullSlot(slot);
    }
    ::operator delete[](matrix);
}

void clearDoubleMatrix(double** matrix, int rows, int cols)
{
    clearMatrix(matrix, rows, cols);
}

void clearFloatMatrix(float** matrix, int rows, int cols)
{
    clearMatrix(matrix, rows, cols);
}

void clearIntMatrix(int** matrix, int rows, int cols)
{
    clearMatrix(matrix, rows, cols);
}

}  // namespace standardLib
