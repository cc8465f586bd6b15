#include "kalman/MatrixToolkit.h"

#include <algorithm>

namespace kalman {
namespace {

// out[j] += a * in[j]. The rows never overlap (C is distinct from A and B), and each
// out[j] still receives its terms in ascending k, so the loop may run across j in
// vector lanes without changing a single rounding.
void accumulateRow(float* __restrict out, const float* __restrict in, float a, int n) {
    for (int j = 0; j < n; ++j) out[j] += a * in[j];
}

void clearRow(float* row, int n) { std::fill(row, row + n, 0.0f); }

// C[i][j] = sum_k A[i][k] * B[k][j], k below rowsB; looped i, k, j.
void productPlain(const float* const* a, const float* const* b, float** c, int rowsA,
                  int rowsB, int colsB) {
    for (int i = 0; i < rowsA; ++i) {
        clearRow(c[i], colsB);
        for (int k = 0; k < rowsB; ++k) accumulateRow(c[i], b[k], a[i][k], colsB);
    }
}

// C[i][j] = sum_k A[k][i] * B[k][j], k below rowsB; looped i, k, j.
void productTransposedA(const float* const* a, const float* const* b, float** c, int colsA,
                        int rowsB, int colsB) {
    for (int i = 0; i < colsA; ++i) {
        clearRow(c[i], colsB);
        for (int k = 0; k < rowsB; ++k) accumulateRow(c[i], b[k], a[k][i], colsB);
    }
}

// C[i][j] = sum_k A[k][i] * B[j][k], k below colsB.
void productTransposedBoth(const float* const* a, const float* const* b, float** c,
                           int colsA, int rowsB, int colsB) {
    for (int i = 0; i < colsA; ++i)
        for (int j = 0; j < rowsB; ++j) {
            c[i][j] = 0.0f;
            for (int k = 0; k < colsB; ++k) c[i][j] += a[k][i] * b[j][k];
        }
}

// C[i][j] = sum_k A[i][k] * B[j][k], k below colsB.
void productTransposedB(const float* const* a, const float* const* b, float** c, int rowsA,
                        int rowsB, int colsB) {
    for (int i = 0; i < rowsA; ++i)
        for (int j = 0; j < rowsB; ++j) c[i][j] = vecDot(a[i], b[j], colsB);
}

void mulNormal(const float* const* a, const float* const* b, float** c, int rowsA, int rowsB,
               int colsB) {
    if (rowsB == 1) {
        for (int i = 0; i < rowsA; ++i)
            for (int j = 0; j < colsB; ++j) c[i][j] = a[0][i] * b[0][j];
    } else if (colsB == 1) {
        for (int i = 0; i < rowsA; ++i) c[0][i] = vecDot(a[i], b[0], rowsB);
    } else {
        productPlain(a, b, c, rowsA, rowsB, colsB);
    }
}

void mulTransposedA(const float* const* a, const float* const* b, float** c, int colsA,
                    int rowsB, int colsB) {
    if (colsA == 1) {
        for (int j = 0; j < colsB; ++j) {
            c[0][j] = 0.0f;
            for (int k = 0; k < rowsB; ++k) c[0][j] += b[k][j] * a[0][k];
        }
    } else if (colsB == 1) {
        for (int i = 0; i < colsA; ++i) {
            c[0][i] = 0.0f;
            for (int k = 0; k < rowsB; ++k) c[0][i] += a[k][i] * b[0][k];
        }
    } else {
        productTransposedA(a, b, c, colsA, rowsB, colsB);
    }
}

void mulTransposedBoth(const float* const* a, const float* const* b, float** c, int colsA,
                       int rowsB, int colsB) {
    if (colsA == 1) {
        for (int j = 0; j < rowsB; ++j) c[0][j] = vecDot(a[0], b[j], colsB);
    } else if (colsB == 1) {
        for (int i = 0; i < colsA; ++i) {
            c[0][i] = 0.0f;
            for (int k = 0; k < colsB; ++k) c[0][i] += a[k][i] * b[0][k];
        }
    } else {
        productTransposedBoth(a, b, c, colsA, rowsB, colsB);
    }
}

void mulTransposedB(const float* const* a, const float* const* b, float** c, int rowsA,
                    int rowsB, int colsB) {
    if (colsB == 1) {
        for (int i = 0; i < rowsA; ++i)
            for (int j = 0; j < rowsB; ++j) c[i][j] = a[0][i] * b[j][0];
    } else {
        productTransposedB(a, b, c, rowsA, rowsB, colsB);
    }
}

bool isFlag(int flag) { return flag == 0 || flag == 1; }

}  // namespace

void matMul(const float* const* a, const float* const* b, float** c, int rowsA, int colsA,
            int rowsB, int colsB, int transA, int transB) {
    if (!isFlag(transA) || !isFlag(transB) || rowsB == 0 || (colsB == 0 && transB == 1))
        return;
    if (rowsA < 0 || colsA < 0 || rowsB < 0 || colsB < 0) return;
    if (transA == 0 && transB == 0)
        mulNormal(a, b, c, rowsA, rowsB, colsB);
    else if (transA == 1 && transB == 0)
        mulTransposedA(a, b, c, colsA, rowsB, colsB);
    else if (transA == 1)
        mulTransposedBoth(a, b, c, colsA, rowsB, colsB);
    else
        mulTransposedB(a, b, c, rowsA, rowsB, colsB);
}

float vecDot(const float* a, const float* b, int n) {
    float sum = 0.0f;
    for (int i = 0; i < n; ++i) sum += a[i] * b[i];
    return sum;
}

void matAdd(const float* const* a, float** b, int rows, int cols) {
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) b[i][j] += a[i][j];
}

void matSub(const float* const* a, float** b, int rows, int cols) {
    for (int i = 0; i < rows; ++i)
        for (int j = 0; j < cols; ++j) b[i][j] = b[i][j] - a[i][j];
}

void vecScale(const float* a, float* out, float s, int n) {
    for (int i = 0; i < n; ++i) out[i] = s * a[i];
}

void vecAdd(const float* a, const float* b, float* out, int n) {
    for (int i = 0; i < n; ++i) out[i] = a[i] + b[i];
}

void matIdentity(float** m, int n) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) m[i][j] = i == j ? 1.0f : 0.0f;
}

void vecOuter(const float* a, const float* b, float** m, int n) {
    for (int i = 0; i < n; ++i)
        for (int j = 0; j < n; ++j) m[i][j] = a[i] * b[j];
}

void resetVector(std::vector<float>& vector, int n) {
    vector = std::vector<float>(static_cast<std::size_t>(n), 0.0f);
}

void resetMatrix(RowMatrix& matrix, int rows, int cols) { matrix = RowMatrix(rows, cols); }

void matFree(RowMatrix& matrix) { matrix = RowMatrix(); }

}  // namespace kalman
