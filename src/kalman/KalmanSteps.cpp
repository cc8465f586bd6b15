#include "kalman/KalmanSteps.h"

#include "kalman/MatrixToolkit.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace kalman {
namespace {

// out[j] += a * in[j]; each out[j] keeps its own ascending order of terms, so the
// loop may run in vector lanes without changing a rounding.
void accumulateRow(float* __restrict out, const float* __restrict in, float a, int n) {
    for (int j = 0; j < n; ++j) out[j] += a * in[j];
}

// out[j] = in1[j] * tap1 + in0[j] * tap0: the two-tap noise recursion on two rows.
void twoTapRow(float* __restrict out, const float* in1, const float* in0, float tap1,
               float tap0, int n) {
    for (int j = 0; j < n; ++j) out[j] = in1[j] * tap1 + in0[j] * tap0;
}

void copyRow(const float* in, float* out, int n) { std::copy(in, in + n, out); }

// Rows of F * cov: the signal row is a weighted sum of rows, the rest are shifts.
void transitionRows(const float* const* cov, const float* signalCoeffs,
                    const float* noiseCoeffs, int p, int m, int n, float** scratch) {
    std::fill(scratch[0], scratch[0] + n, 0.0f);
    for (int i = 0; i < p; ++i) accumulateRow(scratch[0], cov[i], signalCoeffs[i], n);
    for (int r = 1; r < m; ++r) copyRow(cov[r - 1], scratch[r], n);
    twoTapRow(scratch[m], cov[m + 1], cov[m], noiseCoeffs[1], noiseCoeffs[0], n);
    copyRow(cov[m], scratch[m + 1], n);
}

// Column 0 of (F * cov) * F': one dot product per row. Rows go in groups of eight
// with a sum each, so the additions overlap; every sum keeps its ascending order.
void signalColumn(const float* const* scratch, const float* signalCoeffs, int p, int n,
                  float** predictedCov) {
    constexpr int group = 8;
    int r = 0;
    for (; r + group <= n; r += group) {
        float sums[group] = {};
        for (int i = 0; i < p; ++i)
            for (int b = 0; b < group; ++b) sums[b] += scratch[r + b][i] * signalCoeffs[i];
        for (int b = 0; b < group; ++b) predictedCov[r + b][0] = sums[b];
    }
    for (; r < n; ++r) predictedCov[r][0] = vecDot(scratch[r], signalCoeffs, p);
}

// Columns of (F * cov) * F': the signal column, then the shifts and the noise taps of
// each row, written after it.
void transitionColumns(const float* const* scratch, const float* signalCoeffs,
                       const float* noiseCoeffs, int p, int m, int n, float** predictedCov) {
    signalColumn(scratch, signalCoeffs, p, n, predictedCov);
    for (int r = 0; r < n; ++r) {
        const float* in = scratch[r];
        float* out = predictedCov[r];
        for (int c = 1; c < m; ++c) out[c] = in[c - 1];
        out[m] = in[m + 1] * noiseCoeffs[1] + in[m] * noiseCoeffs[0];
        out[m + 1] = in[m];
    }
}

// True when no element is an infinity or a NaN (exponent bits all set); tested on
// the bit patterns so that the scan runs in vector lanes.
bool allFinite(const float* const* matrix, int n) {
    constexpr std::uint32_t exponent = 0x7f800000u;
    std::uint32_t nonFinite = 0;
    for (int r = 0; r < n; ++r)
        for (int j = 0; j < n; ++j) {
            std::uint32_t bits;
            std::memcpy(&bits, &matrix[r][j], sizeof bits);
            nonFinite |= (bits & exponent) == exponent;
        }
    return nonFinite == 0;
}

// Columns 0, m and r of correction row r, ascending, without repeats, below n: the
// only columns that buildCorrection leaves non-zero.
int nonZeroColumns(int r, int m, int n, int* columns) {
    int candidates[3] = {0, m, r};
    std::sort(candidates, candidates + 3);
    int count = 0;
    for (int column : candidates)
        if (column < n && (count == 0 || columns[count - 1] != column)) columns[count++] = column;
    return count;
}

// out[j] = ((0 + a0 * in0[j]) + a1 * in1[j]) + a2 * in2[j] in one pass; the leading
// 0 keeps the sum's start, which turns a product of -0 into +0.
void threeTermRow(float* __restrict out, const float* in0, float a0, const float* in1,
                  float a1, const float* in2, float a2, int n) {
    for (int j = 0; j < n; ++j) {
        float sum = 0.0f;
        sum += a0 * in0[j];
        sum += a1 * in1[j];
        sum += a2 * in2[j];
        out[j] = sum;
    }
}

// The dense sum for element [r][j] runs 0.0f + sum over k of correction[r][k] *
// predictedCov[k][j]. With predictedCov finite, every term from a zero of the
// correction is a zero, and adding a zero to a running sum that starts at +0 changes
// no bit (the sum is never -0). Summing the non-zero terms alone, in the same
// ascending order, therefore gives the dense result exactly.
void updateCovarianceSparse(const float* const* correction, const float* const* predictedCov,
                            int m, int n, float** cov) {
    for (int r = 0; r < n; ++r) {
        int columns[3];
        const int count = nonZeroColumns(r, m, n, columns);
        const float* a = correction[r];
        if (count == 3) {
            threeTermRow(cov[r], predictedCov[columns[0]], a[columns[0]], predictedCov[columns[1]],
                         a[columns[1]], predictedCov[columns[2]], a[columns[2]], n);
            continue;
        }
        std::fill(cov[r], cov[r] + n, 0.0f);
        for (int t = 0; t < count; ++t)
            accumulateRow(cov[r], predictedCov[columns[t]], a[columns[t]], n);
    }
}

}  // namespace

void predictState(const float* state, const float* signalCoeffs, const float* noiseCoeffs,
                  int p, int q, int m, float* predictedState) {
    predictedState[0] = vecDot(signalCoeffs, state, p);
    for (int r = 1; r < m; ++r) predictedState[r] = state[r - 1];
    predictedState[m] = vecDot(state + m, noiseCoeffs, q);
    predictedState[m + 1] = state[m];
}

void predictCovariance(const float* const* cov, const float* signalCoeffs,
                       const float* noiseCoeffs, int p, int m, int n, float** scratch,
                       float** predictedCov) {
    transitionRows(cov, signalCoeffs, noiseCoeffs, p, m, n, scratch);
    transitionColumns(scratch, signalCoeffs, noiseCoeffs, p, m, n, predictedCov);
}

void computeGain(const float* const* predictedCov, int m, int n, float* gain) {
    for (int r = 0; r < n; ++r) gain[r] = predictedCov[r][m] + predictedCov[r][0];
    const float innovationVariance = gain[m] + gain[0];
    for (int r = 0; r < n; ++r) gain[r] = gain[r] / innovationVariance;
}

void updateState(float y, const float* predictedState, const float* gain, int m, int n,
                 float* correction, float* state) {
    const float innovation = y - (predictedState[m] + predictedState[0]);
    for (int r = 0; r < n; ++r) correction[r] = innovation * gain[r];
    for (int r = 0; r < n; ++r) state[r] = predictedState[r] + correction[r];
}

void buildCorrection(const float* gain, int m, int n, float** correction) {
    for (int r = 0; r < n; ++r) {
        float* row = correction[r];
        std::fill(row, row + n, 0.0f);
        row[0] = -gain[r];
        row[m] = -gain[r];
        row[r] += 1.0f;
    }
}

void updateCovariance(const float* const* correction, const float* const* predictedCov,
                      int m, int n, float** cov) {
    // Below two rows matMul takes its vector cases, which this shortcut doesn't mirror.
    if (n >= 2 && allFinite(predictedCov, n))
        updateCovarianceSparse(correction, predictedCov, m, n, cov);
    else
        updateCovarianceDense(correction, predictedCov, n, cov);
}

void updateCovarianceDense(const float* const* correction, const float* const* predictedCov,
                           int n, float** cov) {
    matMul(correction, predictedCov, cov, n, n, n, n, 0, 0);
}

}  // namespace kalman
