#include "ar/SplitRadixFft.h"

#include <cstdlib>
#include <utility>
#include <vector>

#include "ar/StageTwiddles.h"

// The split-radix tree of size n: a block of size m holds a half block (even samples)
// followed by two quarter blocks (samples 4t + 1 and 4t + 3). After bit reversal every
// block is contiguous, and the blocks of one size sit on an L-shaped index pattern.
namespace {

constexpr float sqrtHalf = 0.70710677f;
constexpr float sqrtTwo = 2.0f * sqrtHalf;

void requireTransformSize(int n)
{
    if (!isTransformSize(n)) std::exit(1);
}

// Calls visit(first index) for every block of `size` in the split-radix tree of n.
template <class Visit>
void forEachBlock(int n, int size, Visit visit)
{
    for (long long first = 0, stride = 2LL * size; first < n;
         first = 2 * stride - size, stride *= 4) {
        for (long long i = first; i < n; i += stride) visit(static_cast<int>(i));
    }
}

void bitReverse(float* data, int n)
{
    for (int i = 0, j = 0; i < n - 1; ++i) {
        if (i < j) std::swap(data[i], data[j]);
        int bit = n / 2;
        while (j & bit) {
            j ^= bit;
            bit /= 2;
        }
        j |= bit;
    }
}

// Length-2 leaves: sum and difference, the same in both directions.
void pairButterflies(float* data, int n)
{
    forEachBlock(n, 2, [data](int i) {
        const float first = data[i];
        data[i] = first + data[i + 1];
        data[i + 1] = first - data[i + 1];
    });
}

// ---- Real forward stage: half block U (packed, size 2q) and quarter blocks Z, Z'
// (packed, size q each) become the packed spectrum X of size 4q:
//   X[k] = U[k] + W^k Z[k] + W^3k Z'[k],  W = e^{-2πi/4q}.

// Bins 0, q, 2q (Z and Z' at bin 0 are real) and, for q >= 2, bins q/2 and 3q/2,
// whose twiddles are the eighth-turn points.
void forwardRealEdges(float* x, int q)
{
    const float sum = x[3 * q] + x[2 * q];
    x[3 * q] = x[3 * q] - x[2 * q];
    x[2 * q] = x[0] - sum;
    x[0] = x[0] + sum;
    if (q == 1) return;

    float* y = x + q / 2;
    const float zSum = (y[2 * q] + y[3 * q]) * sqrtHalf;
    const float zDiff = (y[2 * q] - y[3 * q]) * sqrtHalf;
    y[3 * q] = y[q] - zSum;
    y[2 * q] = -y[q] - zSum;
    y[q] = y[0] - zDiff;
    y[0] = y[0] + zDiff;
}

// Bins j, q - j, q + j and 2q - j for 0 < j < q/2: eight entries in, eight out.
void forwardRealButterfly(float* x, int q, int j, const StageTwiddles& w)
{
    const int i1 = j, i2 = j + q, i3 = j + 2 * q, i4 = j + 3 * q;
    const int i5 = q - j, i6 = 2 * q - j, i7 = 3 * q - j, i8 = 4 * q - j;
    // W^j Z[j] and W^3j Z'[j]
    const float zRe = x[i3] * w.cos1 + x[i7] * w.sin1;
    const float zIm = x[i7] * w.cos1 - x[i3] * w.sin1;
    const float zzRe = x[i4] * w.cos3 + x[i8] * w.sin3;
    const float zzIm = x[i8] * w.cos3 - x[i4] * w.sin3;
    const float sumRe = zRe + zzRe, sumIm = zIm + zzIm;
    const float diffRe = zRe - zzRe, diffIm = zIm - zzIm;
    const float u1 = x[i1], u2 = x[i2], u5 = x[i5], u6 = x[i6];
    x[i1] = u1 + sumRe;
    x[i6] = u1 - sumRe;
    x[i8] = u6 + sumIm;
    x[i3] = sumIm - u6;
    x[i2] = u5 + diffIm;
    x[i5] = u5 - diffIm;
    x[i7] = -u2 - diffRe;
    x[i4] = u2 - diffRe;
}

void forwardRealStage(float* data, int n, int size, const StageTwiddles& step)
{
    const int q = size / 4;
    forEachBlock(n, size, [=](int i) { forwardRealEdges(data + i, q); });
    for (int j = 1; j < q / 2; ++j) {
        const StageTwiddles w = step.multiple(j);
        forEachBlock(n, size, [=](int i) { forwardRealButterfly(data + i, q, j, w); });
    }
}

// ---- Real inverse stage: undoes forwardRealStage, leaving 2 U, 4 Z and 4 Z' so that
// the smaller inverse transforms below restore n times the signal.

void inverseRealEdges(float* x, int q)
{
    x[q] = 2.0f * x[q];
    x[3 * q] = 2.0f * x[3 * q];
    const float zSum = x[0] - x[2 * q];
    x[0] = x[0] + x[2 * q];
    x[2 * q] = zSum - x[3 * q];
    x[3 * q] = zSum + x[3 * q];
    if (q == 1) return;

    float* y = x + q / 2;
    const float zDiff = y[0] - y[q];
    const float zSumNeg = y[2 * q] + y[3 * q];
    y[0] = y[0] + y[q];
    y[q] = y[3 * q] - y[2 * q];
    y[2 * q] = (zDiff - zSumNeg) * sqrtTwo;
    y[3 * q] = (-zSumNeg - zDiff) * sqrtTwo;
}

void inverseRealButterfly(float* x, int q, int j, const StageTwiddles& w)
{
    const int i1 = j, i2 = j + q, i3 = j + 2 * q, i4 = j + 3 * q;
    const int i5 = q - j, i6 = 2 * q - j, i7 = 3 * q - j, i8 = 4 * q - j;
    const float sumRe = x[i1] - x[i6];
    const float sumIm = x[i8] + x[i3];
    const float diffIm = x[i2] - x[i5];
    const float diffReNeg = x[i7] + x[i4];
    x[i1] = x[i1] + x[i6];
    x[i6] = x[i8] - x[i3];
    x[i5] = x[i2] + x[i5];
    x[i2] = x[i4] - x[i7];
    // 4 W^j Z[j] and 4 W^3j Z'[j], turned back by the conjugate twiddles.
    const float zRe = sumRe - diffReNeg, zIm = sumIm + diffIm;
    const float zzRe = sumRe + diffReNeg, zzIm = sumIm - diffIm;
    x[i3] = w.cos1 * zRe - w.sin1 * zIm;
    x[i7] = w.cos1 * zIm + w.sin1 * zRe;
    x[i4] = w.cos3 * zzRe - w.sin3 * zzIm;
    x[i8] = w.cos3 * zzIm + w.sin3 * zzRe;
}

void inverseRealStage(float* data, int n, int size, const StageTwiddles& step)
{
    const int q = size / 4;
    forEachBlock(n, size, [=](int i) { inverseRealEdges(data + i, q); });
    for (int j = 1; j < q / 2; ++j) {
        const StageTwiddles w = step.multiple(j);
        forEachBlock(n, size, [=](int i) { inverseRealButterfly(data + i, q, j, w); });
    }
}

// ---- Complex stage, decimation in frequency: the half block gets x[t] + x[t + 2q],
// the quarter blocks (x[t] - x[t + 2q] -/+ i (x[t + q] - x[t + 3q])) W^t and W^3t.
void complexButterfly(float* re, float* im, int q, int j, const StageTwiddles& w)
{
    const int a = j, b = j + q, c = j + 2 * q, d = j + 3 * q;
    const float r1Re = re[a] - re[c], r1Im = im[a] - im[c];
    const float r2Re = re[b] - re[d], r2Im = im[b] - im[d];
    re[a] = re[a] + re[c];
    im[a] = im[a] + im[c];
    re[b] = re[b] + re[d];
    im[b] = im[b] + im[d];
    const float s1Re = r1Re + r2Im, s1Im = r1Im - r2Re;
    const float s2Re = r1Re - r2Im, s2Im = r1Im + r2Re;
    re[c] = s1Re * w.cos1 + s1Im * w.sin1;
    im[c] = s1Im * w.cos1 - s1Re * w.sin1;
    re[d] = s2Re * w.cos3 + s2Im * w.sin3;
    im[d] = s2Im * w.cos3 - s2Re * w.sin3;
}

void complexStage(float* re, float* im, int n, int size, const StageTwiddles& step)
{
    const int q = size / 4;
    for (int j = 0; j < q; ++j) {
        const StageTwiddles w = step.multiple(j);
        forEachBlock(n, size, [=](int i) { complexButterfly(re + i, im + i, q, j, w); });
    }
}

}  // namespace

bool isTransformSize(int n)
{
    return n >= 2 && (n & (n - 1)) == 0;
}

// The stages run up from size 4, so each takes its twiddles afresh from the start angle.
void forwardRealFft(float* data, int n)
{
    requireTransformSize(n);
    bitReverse(data, n);
    pairButterflies(data, n);
    for (int size = 4; size <= n; size *= 2)
        forwardRealStage(data, n, size, StageTwiddles::forStage(n, size));
}

// The stages run down from size n: the angle doubles at the start of each.
void inverseRealFft(float* data, int n)
{
    requireTransformSize(n);
    StageTwiddles step = StageTwiddles::start(n);
    for (int size = n; size >= 4; size /= 2) {
        step = step.doubled();
        inverseRealStage(data, n, size, step);
    }
    pairButterflies(data, n);
    bitReverse(data, n);
}

void complexFft(float* re, float* im, int n)
{
    requireTransformSize(n);
    StageTwiddles step = StageTwiddles::start(n);
    for (int size = n; size >= 4; size /= 2) {
        step = step.doubled();
        complexStage(re, im, n, size, step);
    }
    pairButterflies(re, n);
    pairButterflies(im, n);
    bitReverse(re, n);
    bitReverse(im, n);
}

void powerSpectrum(PowerSpectrumBlock& record)
{
    const int n = record.length;
    std::vector<float> scratch(record.block.begin(), record.block.end());
    if (!isTransformSize(n) || n > powerSpectrumCapacity) return;

    forwardRealFft(scratch.data(), n);
    float* power = record.block.data();
    power[0] = scratch[0] * scratch[0];
    power[n / 2] = scratch[n / 2] * scratch[n / 2];
    for (int k = 1; k < n / 2; ++k) {
        const float re = scratch[k];
        const float im = scratch[n - k];
        power[k] = re * re + im * im;
        power[n - k] = power[k];
    }
}
