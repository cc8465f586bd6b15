// Small matrix toolkit of the Kalman filter, on 32-bit floats. A matrix is a table of
// row pointers (RowMatrix::rows()); a vector operand of matMul is held in row 0.
//
// Every sum starts from 0.0f and runs over its index in ascending order, so results
// are reproducible bit for bit. None of the arithmetic operations allocates; the reset
// operations replace their argument's storage. matMul's C must not share storage with
// A or B; the element-wise operations may work in place. No state, any thread.
#pragma once

#include "kalman/RowMatrix.h"

#include <vector>

namespace kalman {

// General product into C; transA and transB take an operand transposed when 1. A flag
// other than 0 or 1, rowsB of 0, colsB of 0 with transB 1, or any negative count
// leaves C untouched.
// Shapes with a single row or column are the vector cases, read and written in row 0:
//
//   transA transB  condition              result
//   0      0       rowsB 1                C[i][j] = A[0][i] * B[0][j]        i<rowsA, j<colsB
//   0      0       colsB 1                C[0][i] = sum_k A[i][k] * B[0][k]  k<rowsB, i<rowsA
//   0      0       otherwise              C[i][j] = sum_k A[i][k] * B[k][j]  k<rowsB
//   1      0       colsA 1                C[0][j] = sum_k B[k][j] * A[0][k]  k<rowsB, j<colsB
//   1      0       colsB 1                C[0][i] = sum_k A[k][i] * B[0][k]  k<rowsB, i<colsA
//   1      0       otherwise              C[i][j] = sum_k A[k][i] * B[k][j]  k<rowsB
//   1      1       colsA 1                C[0][j] = sum_k A[0][k] * B[j][k]  k<colsB, j<rowsB
//   1      1       colsB 1                C[0][i] = sum_k A[k][i] * B[0][k]  k<colsB, i<colsA
//   1      1       otherwise              C[i][j] = sum_k A[k][i] * B[j][k]  k<colsB
//   0      1       colsB 1                C[i][j] = A[0][i] * B[j][0]        i<rowsA, j<rowsB
//   0      1       otherwise              C[i][j] = sum_k A[i][k] * B[j][k]  k<colsB
//
// Rows are tested in this order, so the earlier condition wins.
void matMul(const float* const* a, const float* const* b, float** c, int rowsA, int colsA,
            int rowsB, int colsB, int transA, int transB);

float vecDot(const float* a, const float* b, int n);

// B[i][j] += A[i][j].
void matAdd(const float* const* a, float** b, int rows, int cols);

// B[i][j] = B[i][j] - A[i][j].
void matSub(const float* const* a, float** b, int rows, int cols);

// out[i] = s * a[i].
void vecScale(const float* a, float* out, float s, int n);

// out[i] = a[i] + b[i].
void vecAdd(const float* a, const float* b, float* out, int n);

// M becomes the n by n identity.
void matIdentity(float** m, int n);

// M[i][j] = a[i] * b[j] for i, j below n.
void vecOuter(const float* a, const float* b, float** m, int n);

// Releases the old contents of `vector` and makes it n zeros.
void resetVector(std::vector<float>& vector, int n);

// Releases the old matrix and makes it a zeroed rows by cols matrix. The matrix owns
// its row count, so the release always covers exactly the rows it has.
void resetMatrix(RowMatrix& matrix, int rows, int cols);

// Releases the rows, then the row table; the matrix is left empty.
void matFree(RowMatrix& matrix);

}  // namespace kalman
