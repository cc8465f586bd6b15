// Free routines on element arrays and on bare row tables (arrays of row pointers),
// for double, float, int and __int64.
//
// copyElements and copyRows are block copies: source and destination ranges must
// not overlap. They never allocate. releaseRows frees a bare table made by
// allocDoubleMatrix and its kin (MatrixRoutines.h): each row, then the table.
#pragma once

#include "signal/SampleTypes.h"

namespace standardLib {

// Copies `count` elements; returns destination.
template <typename T>
T* copyElements(const T* source, T* destination, int count);

// For each of rowCount rows, copies `count` elements from source[row] + sourceOffset
// to destination[row] + destinationOffset.
template <typename T>
void copyRows(int rowCount, T** source, int sourceOffset, T** destination,
              int destinationOffset, int count);

// Frees each of rowCount rows, then the table; a null table is ignored.
template <typename T>
void releaseRows(T** rows, int rowCount);

#define FERROTIP_DECLARE_BUFFER_ROUTINES(T)                                        \
    extern template T* copyElements<T>(const T*, T*, int);                         \
    extern template void copyRows<T>(int, T**, int, T**, int, int);                \
    extern template void releaseRows<T>(T**, int);
FERROTIP_DECLARE_BUFFER_ROUTINES(double)
FERROTIP_DECLARE_BUFFER_ROUTINES(float)
FERROTIP_DECLARE_BUFFER_ROUTINES(int)
FERROTIP_DECLARE_BUFFER_ROUTINES(__int64)
#undef FERROTIP_DECLARE_BUFFER_ROUTINES

}  // namespace standardLib
