// Matrix routines on bare row tables: a T** table of `rows` pointers, each row
// `cols` elements long, with the dimensions held by the caller.
//
// allocDoubleMatrix and its kin allocate the table and then each row; the contents
// are not initialised. Their first argument is the caller's current pointer: it is
// neither read nor released, so a live matrix passed there stays allocated and must
// be freed by the caller first. A failed allocation throws std::bad_alloc and
// releases whatever the call had made. freeMatrix releases each row, nulling its
// slot as it goes, then the table; the table itself must not be null. releaseRows
// (BufferRoutines.h) frees the same tables. Storage comes from the array forms of the
// global allocation functions. Nothing here is thread-aware.
#pragma once

namespace standardLib {

double** allocDoubleMatrix(double** previous, int rows, int cols);
float** allocFloatMatrix(float** previous, int rows, int cols);
int** allocIntMatrix(int** previous, int rows, int cols);

void freeMatrix(void* matrix, int rows);

// Zero `cols` elements of each row; nothing when rows is below 1.
void clearDoubleMatrix(double** matrix, int rows, int cols);
void clearFloatMatrix(float** matrix, int rows, int cols);
void clearIntMatrix(int** matrix, int rows, int cols);

}  // namespace standardLib
