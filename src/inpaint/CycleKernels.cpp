#include "inpaint/CycleKernels.h"

#include "signal/VectorLanes.h"

namespace inpaint_kernels {

using namespace kernel_paths;
namespace {

void plainLagCorrelations(const double* const* x, int channelCount, int first, int window, int lag, int direction,
                          double* cross, double* far)
{
    for (int i = 0; i < lagLanes; ++i) {
        double product = 0.0, energy = 0.0;
        for (int c = 0; c < channelCount; ++c) {
            const double* a = x[c] + first;
            const double* b = a + direction * (lag + i);
            for (int j = 0; j < window; ++j) {
                product += a[j] * b[j];
                energy += b[j] * b[j];
            }
        }
        cross[i] = product;
        far[i] = energy;
    }
}

void plainCorrelations(const double* const* before, const double* const* after, int channelCount, int period,
                       int firstShift, int count, double* out)
{
    for (int i = 0; i < count; ++i) {
        const int shift = firstShift + i;
        double score = 0.0;
        for (int c = 0; c < channelCount; ++c)
            for (int j = 0; j < period; ++j) score += before[c][j] * after[c][j - shift + period];
        out[i] = score;
    }
}

#if defined(__x86_64__)
// Lane i reads a[j + direction (lag + i)]: eight neighbours, in reverse for direction -1.
__attribute__((target("avx512f"))) void avx512LagCorrelations(const double* const* x, int channelCount, int first,
                                                              int window, int lag, int direction, double* cross,
                                                              double* far)
{
    Oct product = {}, energy = {};
    for (int c = 0; c < channelCount; ++c) {
        const double* a = x[c] + first;
        const double* b = direction > 0 ? a + lag : a - lag - (lagLanes - 1);
        for (int j = 0; j < window; ++j) {
            Oct aj, bj;
            broadcast(aj, a[j]);
            if (direction > 0) load(bj, b + j);
            else loadReversed(bj, b + j);
            product = product + aj * bj;
            energy = energy + bj * bj;
        }
    }
    store(cross, product);
    store(far, energy);
}

// Lane i reads after[j - (firstShift + i) + period]: eight neighbours, in reverse.
__attribute__((target("avx512f"))) void avx512Correlations(const double* const* before, const double* const* after,
                                                           int channelCount, int period, int firstShift, double* out)
{
    Oct score = {};
    for (int c = 0; c < channelCount; ++c) {
        const double* a = after[c] + period - firstShift - (cycleShiftLanes - 1);
        for (int j = 0; j < period; ++j) {
            Oct b, y;
            broadcast(b, before[c][j]);
            loadReversed(y, a + j);
            score = score + b * y;
        }
    }
    store(out, score);
}
#endif

}  // namespace

void lagCorrelations(Path path, const double* const* x, int channelCount, int first, int window, int lag,
                     int direction, double* cross, double* far)
{
#if defined(__x86_64__)
    if (path == Path::avx512) return avx512LagCorrelations(x, channelCount, first, window, lag, direction, cross, far);
#endif
    plainLagCorrelations(x, channelCount, first, window, lag, direction, cross, far);
}

void circularCorrelations(Path path, const double* const* before, const double* const* after, int channelCount,
                          int period, int firstShift, int count, double* out)
{
#if defined(__x86_64__)
    if (path == Path::avx512 && count == cycleShiftLanes)
        return avx512Correlations(before, after, channelCount, period, firstShift, out);
#endif
    plainCorrelations(before, after, channelCount, period, firstShift, count, out);
}

}  // namespace inpaint_kernels
