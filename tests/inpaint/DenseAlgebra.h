// Small dense helpers for checking the fast least-squares fills against direct solves.
#pragma once

#include <cmath>
#include <utility>
#include <vector>

namespace inpaint_test {

// A stable prediction error filter (a[0] = 1) from reflection coefficients, by the
// step-up recursion.
inline std::vector<double> stableModel(const std::vector<double>& reflections)
{
    const int order = static_cast<int>(reflections.size());
    std::vector<double> a(order + 1, 0.0);
    a[0] = 1.0;
    for (int m = 1; m <= order; ++m) {
        const std::vector<double> previous = a;
        for (int i = 1; i < m; ++i) a[i] = previous[i] + reflections[m - 1] * previous[m - i];
        a[m] = reflections[m - 1];
    }
    return a;
}

// Solves the dense system m x = b (Gaussian elimination, partial pivoting).
inline std::vector<double> solveDense(std::vector<std::vector<double>> m, std::vector<double> b)
{
    const int n = static_cast<int>(b.size());
    for (int col = 0; col < n; ++col) {
        int pivot = col;
        for (int row = col + 1; row < n; ++row)
            if (std::fabs(m[row][col]) > std::fabs(m[pivot][col])) pivot = row;
        std::swap(m[col], m[pivot]);
        std::swap(b[col], b[pivot]);
        for (int row = col + 1; row < n; ++row) {
            const double f = m[row][col] / m[col][col];
            for (int j = col; j < n; ++j) m[row][j] -= f * m[col][j];
            b[row] -= f * b[col];
        }
    }
    std::vector<double> x(n);
    for (int i = n - 1; i >= 0; --i) {
        double sum = b[i];
        for (int j = i + 1; j < n; ++j) sum -= m[i][j] * x[j];
        x[i] = sum / m[i][i];
    }
    return x;
}

// The model's own autocorrelation c[k] = sum_m a[m] a[m + k], the Toeplitz column of
// its normal equations.
inline std::vector<double> modelAutocorrelation(const std::vector<double>& a)
{
    const int order = static_cast<int>(a.size()) - 1;
    std::vector<double> column(order + 1, 0.0);
    for (int k = 0; k <= order; ++k)
        for (int m = 0; m + k <= order; ++m) column[k] += a[m] * a[m + k];
    return column;
}

}  // namespace inpaint_test
