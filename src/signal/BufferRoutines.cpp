#include "signal/BufferRoutines.h"

#include <cstring>
#include <new>

namespace standardLib {

template <typename T>
T* copyElements(const T* source, T* destination, int count)
{
    if (count > 0)
        std::memcpy(destination, source, static_cast<std::size_t>(count) * sizeof(T));
    return destination;
}

template <typename T>
void copyRows(int rowCount, T** source, int sourceOffset, T** destination,
              int destinationOffset, int count)
{
    for (int row = 0; row < rowCount; ++row)
        copyElements(source[row] + sourceOffset, destination[row] + destinationOffset, count);
}

template <typename T>
void releaseRows(T** rows, int rowCount)
{
    if (rows == nullptr)
        return;
    // Bare tables come from the array allocation function (MatrixRoutines.cpp).
    for (int row = 0; row < rowCount; ++row)
        ::operator delete[](rows[row]);
    ::operator delete[](rows);
}

#define FERROTIP_DEFINE_BUFFER_ROUTINES(T)                                         \
    template T* copyElements<T>(const T*, T*, int);                                \
    template void copyRows<T>(int, T**, int, T**, int, int);                       \
    template void releaseRows<T>(T**, int);
FERROTIP_DEFINE_BUFFER_ROUTINES(double)
FERROTIP_DEFINE_BUFFER_ROUTINES(float)
FERROTIP_DEFINE_BUFFER_ROUTINES(int)
FERROTIP_DEFINE_BUFFER_ROUTINES(__int64)
#undef FERROTIP_DEFINE_BUFFER_ROUTINES

}  // namespace standardLib
