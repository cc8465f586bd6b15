#include "inpaint/BurgKernels.h"

#include "signal/VectorLanes.h"

namespace inpaint_kernels {

using namespace kernel_paths;
namespace {

inline void updateOne(double* f, const double* b, double* next, int t, double k)
{
    const double ft = f[t], bt = b[t - 1];
    f[t] = ft + k * bt;
    next[t] = bt + k * ft;
}

// t from `from`, lanes from 0: the plain loop, and every path's last few samples.
inline void plainSums(double* f, const double* b, double* next, int from, int end, double k, double* cross,
                      double* energy)
{
    for (int t = from, lane = 0; t < end; ++t, lane = (lane + 1) % 8) {
        updateOne(f, b, next, t, k);
        const double p = next[t - 1];
        cross[lane] += f[t] * p;
        energy[lane] += f[t] * f[t] + p * p;
    }
}

void plainStretch(double* f, const double* b, double* next, int m, int end, double k, double* cross,
                  double* energy)
{
    if (m >= end) return;
    updateOne(f, b, next, m, k);
    plainSums(f, b, next, m + 1, end, k, cross, energy);
}

// Eight samples a step as two quads; next(t - 1) of each lane comes from the quad
// before by a shift of one, not from memory just written.
[[gnu::always_inline]] inline void quadStretch(double* f, const double* b, double* next, int m, int end, double k,
                                               double* cross, double* energy)
{
    if (m >= end) return;
    updateOne(f, b, next, m, k);
    const Quad kk = {k, k, k, k};
    Quad previous = {0.0, 0.0, 0.0, next[m]};
    Quad c0, c1, e0, e1;
    load(c0, cross);
    load(c1, cross + 4);
    load(e0, energy);
    load(e1, energy + 4);
    // The last lane of the quad before followed by the first three of this one.
    const QuadIndex shiftedByOne = {3, 4, 5, 6};
    int t = m + 1;
    for (; t + 8 <= end; t += 8) {
        Quad f0, f1, b0, b1;
        load(f0, f + t);
        load(f1, f + t + 4);
        load(b0, b + t - 1);
        load(b1, b + t + 3);
        const Quad g0 = f0 + kk * b0, g1 = f1 + kk * b1;
        const Quad n0 = b0 + kk * f0, n1 = b1 + kk * f1;
        store(f + t, g0);
        store(f + t + 4, g1);
        store(next + t, n0);
        store(next + t + 4, n1);
        const Quad p0 = __builtin_shuffle(previous, n0, shiftedByOne), p1 = __builtin_shuffle(n0, n1, shiftedByOne);
        previous = n1;
        c0 = c0 + g0 * p0;
        c1 = c1 + g1 * p1;
        e0 = e0 + (g0 * g0 + p0 * p0);
        e1 = e1 + (g1 * g1 + p1 * p1);
    }
    store(cross, c0);
    store(cross + 4, c1);
    store(energy, e0);
    store(energy + 4, e1);
    plainSums(f, b, next, t, end, k, cross, energy);
}

void vectorStretch(double* f, const double* b, double* next, int m, int end, double k, double* cross,
                   double* energy)
{
    quadStretch(f, b, next, m, end, k, cross, energy);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void avx2Stretch(double* f, const double* b, double* next, int m, int end, double k,
                                                 double* cross, double* energy)
{
    quadStretch(f, b, next, m, end, k, cross, energy);
}

// Eight samples a step as one oct, lane for lane the two quads above.
__attribute__((target("avx512f"))) void avx512Stretch(double* f, const double* b, double* next, int m, int end,
                                                     double k, double* cross, double* energy)
{
    if (m >= end) return;
    updateOne(f, b, next, m, k);
    const Oct kk = {k, k, k, k, k, k, k, k};
    Oct previous = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, next[m]};
    Oct c, e;
    load(c, cross);
    load(e, energy);
    // The last lane of the oct before followed by the first seven of this one.
    const OctIndex shiftedByOne = {7, 8, 9, 10, 11, 12, 13, 14};
    int t = m + 1;
    for (; t + 8 <= end; t += 8) {
        Oct f0, b0;
        load(f0, f + t);
        load(b0, b + t - 1);
        const Oct g = f0 + kk * b0, n = b0 + kk * f0;
        store(f + t, g);
        store(next + t, n);
        const Oct p = __builtin_shuffle(previous, n, shiftedByOne);
        previous = n;
        c = c + g * p;
        e = e + (g * g + p * p);
    }
    store(cross, c);
    store(energy, e);
    plainSums(f, b, next, t, end, k, cross, energy);
}
#endif

}  // namespace

void updateStretch(Path path, double* f, const double* b, double* next, int m, int end, double k, double* cross,
                   double* energy)
{
#if defined(__x86_64__)
    if (path == Path::avx512) return avx512Stretch(f, b, next, m, end, k, cross, energy);
    if (path == Path::avx2) return avx2Stretch(f, b, next, m, end, k, cross, energy);
#endif
    if (path == Path::vector) return vectorStretch(f, b, next, m, end, k, cross, energy);
    plainStretch(f, b, next, m, end, k, cross, energy);
}

}  // namespace inpaint_kernels
