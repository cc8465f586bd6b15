#include "ar/AutocorrelationPaths.h"

#include <algorithm>

#include "ar/ArRecursions.h"
#include "signal/VectorLanes.h"

namespace {

using kernel_paths::load;
using kernel_paths::Quad;

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

#if defined(__x86_64__)
__attribute__((target("avx2"))) void avx2Lags(const double* samples, int count, double* lags, int maxLag)
{
    quadLags(samples, count, lags, maxLag);
}
#endif

}  // namespace

// The quads lowered to SSE2 pairs pass through memory and run slower than the plain
// loops, which the compiler pairs itself: the vector path takes the plain one.
void autocorrelate(kernel_paths::Path path, const double* samples, int count, double* lags, int maxLag)
{
#if defined(__x86_64__)
    if (kernel_paths::takesAvx2(path)) return avx2Lags(samples, count, lags, maxLag);
#endif
    autocorrelate(samples, count, lags, maxLag);
}
