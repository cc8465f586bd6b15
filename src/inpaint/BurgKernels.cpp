#include "inpaint/BurgKernels.h"

#include "signal/VectorLanes.h"

namespace inpaint_kernels {

using namespace kernel_paths;
namespace {

// The order's first sample, t = m; returns b(m) as it was, which t = m + 1 reads.
inline double firstSample(double* f, double* b, int m, double k)
{
    const double ft = f[m], bt = b[m - 1], carry = b[m];
    f[m] = ft + k * bt;
    b[m] = bt + k * ft;
    return carry;
}

// t from `from`, lanes from 0, carry = b(from - 1) as it was: the plain loop, and every
// path's last few samples.
inline void plainSums(double* f, double* b, int from, int end, double k, double carry, double* cross,
                      double* energy)
{
    for (int t = from, lane = 0; t < end; ++t, lane = (lane + 1) % 8) {
        const double ft = f[t], bt = carry;
        carry = b[t];
        f[t] = ft + k * bt;
        b[t] = bt + k * ft;
        const double p = b[t - 1];
        cross[lane] += f[t] * p;
        energy[lane] += f[t] * f[t] + p * p;
    }
}

void plainStretch(double* f, double* b, int m, int end, double k, double* cross, double* energy)
{
    if (m >= end) return;
    const double carry = firstSample(f, b, m, k);
    plainSums(f, b, m + 1, end, k, carry, cross, energy);
}

// Eight samples a step as two quads. The backward errors a step reads are loaded
// before the step before writes over the first of them; the next order's b(t - 1) of
// each lane comes from the quad before by a shift of one, not from memory just written.
[[gnu::always_inline]] inline void quadStretch(double* f, double* b, int m, int end, double k, double* cross,
                                               double* energy)
{
    if (m >= end) return;
    int t = m + 1;
    Quad b0 = {}, b1 = {};
    if (t + 8 <= end) {
        load(b0, b + t - 1);
        load(b1, b + t + 3);
    }
    double carry = firstSample(f, b, m, k);
    const Quad kk = {k, k, k, k};
    Quad previous = {0.0, 0.0, 0.0, b[m]};
    Quad c0, c1, e0, e1;
    load(c0, cross);
    load(c1, cross + 4);
    load(e0, energy);
    load(e1, energy + 4);
    // The last lane of the quad before followed by the first three of this one.
    const QuadIndex shiftedByOne = {3, 4, 5, 6};
    for (; t + 8 <= end; t += 8) {
        Quad f0, f1, nextB0 = b0, nextB1 = b1;
        load(f0, f + t);
        load(f1, f + t + 4);
        if (t + 16 <= end) {
            load(nextB0, b + t + 7);
            load(nextB1, b + t + 11);
        }
        carry = b[t + 7];
        const Quad g0 = f0 + kk * b0, g1 = f1 + kk * b1;
        const Quad n0 = b0 + kk * f0, n1 = b1 + kk * f1;
        store(f + t, g0);
        store(f + t + 4, g1);
        store(b + t, n0);
        store(b + t + 4, n1);
        const Quad p0 = __builtin_shuffle(previous, n0, shiftedByOne), p1 = __builtin_shuffle(n0, n1, shiftedByOne);
        previous = n1;
        b0 = nextB0;
        b1 = nextB1;
        c0 = c0 + g0 * p0;
        c1 = c1 + g1 * p1;
        e0 = e0 + (g0 * g0 + p0 * p0);
        e1 = e1 + (g1 * g1 + p1 * p1);
    }
    store(cross, c0);
    store(cross + 4, c1);
    store(energy, e0);
    store(energy + 4, e1);
    plainSums(f, b, t, end, k, carry, cross, energy);
}

void vectorStretch(double* f, double* b, int m, int end, double k, double* cross, double* energy)
{
    quadStretch(f, b, m, end, k, cross, energy);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void avx2Stretch(double* f, double* b, int m, int end, double k, double* cross,
                                                 double* energy)
{
    quadStretch(f, b, m, end, k, cross, energy);
}

// Eight samples a step as one oct, lane for lane the two quads above.
__attribute__((target("avx512f"))) void avx512Stretch(double* f, double* b, int m, int end, double k,
                                                     double* cross, double* energy)
{
    if (m >= end) return;
    int t = m + 1;
    Oct b0 = {};
    if (t + 8 <= end) load(b0, b + t - 1);
    double carry = firstSample(f, b, m, k);
    const Oct kk = {k, k, k, k, k, k, k, k};
    Oct previous = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, b[m]};
    Oct c, e;
    load(c, cross);
    load(e, energy);
    // The last lane of the oct before followed by the first seven of this one.
    const OctIndex shiftedByOne = {7, 8, 9, 10, 11, 12, 13, 14};
    for (; t + 8 <= end; t += 8) {
        Oct f0, nextB = b0;
        load(f0, f + t);
        if (t + 16 <= end) load(nextB, b + t + 7);
        carry = b[t + 7];
        const Oct g = f0 + kk * b0, n = b0 + kk * f0;
        store(f + t, g);
        store(b + t, n);
        const Oct p = __builtin_shuffle(previous, n, shiftedByOne);
        previous = n;
        b0 = nextB;
        c = c + g * p;
        e = e + (g * g + p * p);
    }
    store(cross, c);
    store(energy, e);
    plainSums(f, b, t, end, k, carry, cross, energy);
}
#endif

}  // namespace

void updateStretch(Path path, double* f, double* b, int m, int end, double k, double* cross, double* energy)
{
#if defined(__x86_64__)
    if (path == Path::avx512) return avx512Stretch(f, b, m, end, k, cross, energy);
    if (path == Path::avx2) return avx2Stretch(f, b, m, end, k, cross, energy);
#endif
    if (path == Path::vector) return vectorStretch(f, b, m, end, k, cross, energy);
    plainStretch(f, b, m, end, k, cross, energy);
}

}  // namespace inpaint_kernels
