#include "declick/ImpulseKernels.h"

#include <algorithm>
#include <array>

#include "ar/ArRecursions.h"
#include "signal/QuadLanes.h"

namespace impulse_kernels {
namespace {

using kernel_paths::load;
using kernel_paths::Quad;
using kernel_paths::store;

// Lags [from, maxLag] one at a time.
inline void plainLags(const double* samples, int count, double* lags, int from, int maxLag)
{
    for (int k = from; k <= maxLag; ++k) {
        double sum = 0.0;
        for (int i = 0; i < count - k; ++i) sum += samples[i] * samples[i + k];
        lags[k] = sum;
    }
}

// lagCount lags from k, in 4 * Quads lanes: the terms every lane has are summed in
// the quads, each lane's last few after it in the same order. Lanes past lagCount
// are summed and dropped. Needs count - k >= 4 * Quads - 1.
template <int Quads>
[[gnu::always_inline]] inline void lagGroup(const double* samples, int count, int k, double* lags, int lagCount)
{
    const int shared = count - k - (4 * Quads - 1);
    Quad sums[Quads] = {};
    for (int i = 0; i < shared; ++i) {
        const Quad x = {samples[i], samples[i], samples[i], samples[i]};
        for (int q = 0; q < Quads; ++q) {
            Quad y;
            load(y, samples + i + k + 4 * q);
            sums[q] += x * y;
        }
    }
    for (int lane = 0; lane < lagCount; ++lane) {
        double sum = sums[lane / 4][lane % 4];
        for (int i = shared; i < count - k - lane; ++i) sum += samples[i] * samples[i + k + lane];
        lags[k + lane] = sum;
    }
}

// Up to 20 lags per pass over the samples: five chains of additions in flight hide
// the latency of each, and an AR model of order 16 needs one pass.
[[gnu::always_inline]] inline void quadLags(const double* samples, int count, double* lags, int maxLag)
{
    constexpr int maxQuads = 5;
    int k = 0;
    while (k <= maxLag) {
        const int lagCount = std::min(maxLag + 1 - k, 4 * maxQuads);
        const int quads = (lagCount + 3) / 4;
        if (count - k < 4 * quads - 1) break;
        switch (quads) {
        case 1: lagGroup<1>(samples, count, k, lags, lagCount); break;
        case 2: lagGroup<2>(samples, count, k, lags, lagCount); break;
        case 3: lagGroup<3>(samples, count, k, lags, lagCount); break;
        case 4: lagGroup<4>(samples, count, k, lags, lagCount); break;
        default: lagGroup<maxQuads>(samples, count, k, lags, lagCount); break;
        }
        k += lagCount;
    }
    plainLags(samples, count, lags, k, maxLag);
}

// Outputs [from, count): eight at a time in an array the compiler keeps in
// registers (SSE2 pairs), the last few one at a time.
void plainErrors(const double* first, const double* model, int order, int direction, double* errors, int from,
                 int count)
{
    constexpr int lanes = 8;
    int i = from;
    for (; i + lanes <= count; i += lanes) {
        std::array<double, lanes> sums{};
        for (int j = 0; j <= order; ++j) {
            const double* shifted = first + i + direction * j;
            for (int lane = 0; lane < lanes; ++lane) sums[lane] += model[j] * shifted[lane];
        }
        std::copy(sums.begin(), sums.end(), errors + i);
    }
    for (; i < count; ++i) {
        double sum = 0.0;
        for (int j = 0; j <= order; ++j) sum += model[j] * first[i + direction * j];
        errors[i] = sum;
    }
}

// Sixteen outputs at a time in four quads, the last few one at a time.
[[gnu::always_inline]] inline void quadErrors(const double* first, const double* model, int order, int direction,
                                              double* errors, int count)
{
    constexpr int quads = 4;
    int i = 0;
    for (; i + 4 * quads <= count; i += 4 * quads) {
        Quad sums[quads] = {};
        for (int j = 0; j <= order; ++j) {
            const Quad coefficient = {model[j], model[j], model[j], model[j]};
            const double* shifted = first + i + direction * j;
            for (int q = 0; q < quads; ++q) {
                Quad y;
                load(y, shifted + 4 * q);
                sums[q] += coefficient * y;
            }
        }
        for (int q = 0; q < quads; ++q) store(errors + i + 4 * q, sums[q]);
    }
    plainErrors(first, model, order, direction, errors, i, count);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void avx2Lags(const double* samples, int count, double* lags, int maxLag)
{
    quadLags(samples, count, lags, maxLag);
}

__attribute__((target("avx2"))) void avx2Errors(const double* first, const double* model, int order, int direction,
                                                double* errors, int count)
{
    quadErrors(first, model, order, direction, errors, count);
}
#endif

}  // namespace

// The quads lowered to SSE2 pairs pass through memory and run slower than the plain
// loops, which the compiler pairs itself: the vector path takes the plain one.
void autocorrelation(Path path, const double* samples, int count, double* lags, int maxLag)
{
#if defined(__x86_64__)
    if (path == Path::avx2) return avx2Lags(samples, count, lags, maxLag);
#endif
    autocorrelate(samples, count, lags, maxLag);
}

void predictionErrors(Path path, const double* first, const double* model, int order, int direction,
                      double* errors, int count)
{
#if defined(__x86_64__)
    if (path == Path::avx2) return avx2Errors(first, model, order, direction, errors, count);
#endif
    plainErrors(first, model, order, direction, errors, 0, count);
}

}  // namespace impulse_kernels
