#include "inpaint/ToeplitzKernels.h"

#include "signal/VectorLanes.h"
#include "inpaint/ReversedUpdate.h"

namespace inpaint_kernels {

using namespace kernel_paths;
namespace {

double joined(const double* partial)
{
    return ((partial[0] + partial[1]) + (partial[2] + partial[3])) +
           ((partial[4] + partial[5]) + (partial[6] + partial[7]));
}

// Terms from i, lanes from 0: the plain loop, and every path's last few terms.
void plainTerms(const double* r, const double* v, int k, int i, int terms, double* partial)
{
    for (int lane = 0; i <= terms; ++i, lane = (lane + 1) % 8) partial[lane] += r[i] * v[k - i];
}

// x[j] += scale * y[k - 1 - j] for from <= j < k.
void plainAddReversed(double* x, const double* y, int from, int k, double scale)
{
    for (int j = from; j < k; ++j) x[j] += scale * y[k - 1 - j];
}

[[gnu::always_inline]] inline double quadBandedDot(const double* r, const double* v, int k, int terms)
{
    Quad sum0 = {}, sum1 = {};
    int i = 1;
    for (; i + 7 <= terms; i += 8) {
        Quad r0, r1, v0, v1;
        load(r0, r + i);
        load(r1, r + i + 4);
        loadReversed(v0, v + k - i - 3);
        loadReversed(v1, v + k - i - 7);
        sum0 = sum0 + r0 * v0;
        sum1 = sum1 + r1 * v1;
    }
    double partial[8];
    store(partial, sum0);
    store(partial + 4, sum1);
    plainTerms(r, v, k, i, terms, partial);
    return joined(partial);
}

// One vector of outputs a step, the last few one at a time.
template <typename Vector>
[[gnu::always_inline]] inline void lanesAddReversed(double* x, const double* y, int k, double scale)
{
    constexpr int lanes = lanesOf<Vector>;
    Vector s;
    broadcast(s, scale);
    int j = 0;
    for (; j + lanes <= k; j += lanes) {
        Vector xj, yj;
        load(xj, x + j);
        loadReversed(yj, y + k - lanes - j);
        store(x + j, xj + s * yj);
    }
    plainAddReversed(x, y, j, k, scale);
}

// Pairs of vectors from both ends while they do not overlap, then the middle pairs
// one at a time; every pair is read before it is written, whichever step takes it.
template <typename Vector>
[[gnu::always_inline]] inline void lanesAddReversedInPlace(double* v, int k, double scale)
{
    constexpr int lanes = lanesOf<Vector>;
    Vector s;
    broadcast(s, scale);
    int low = 0, high = k - 1;
    for (; low + lanes - 1 < high - (lanes - 1); low += lanes, high -= lanes) {
        Vector a, b;
        load(a, v + low);
        loadReversed(b, v + high - (lanes - 1));
        const Vector newLow = a + s * b;
        Vector newHigh = b + s * a;
        store(v + low, newLow);
        reverse(newHigh);
        store(v + high - (lanes - 1), newHigh);
    }
    ::addReversedInPlace(v + low, high - low + 1, scale);
}

double plainBandedDot(const double* r, const double* v, int k, int terms)
{
    double partial[8] = {};
    plainTerms(r, v, k, 1, terms, partial);
    return joined(partial);
}

double vectorBandedDot(const double* r, const double* v, int k, int terms) { return quadBandedDot(r, v, k, terms); }
void vectorAddReversed(double* x, const double* y, int k, double scale) { lanesAddReversed<Quad>(x, y, k, scale); }
void vectorAddReversedInPlace(double* v, int k, double scale) { lanesAddReversedInPlace<Quad>(v, k, scale); }

#if defined(__x86_64__)
#define FERROTIP_INPAINT_X86 1
__attribute__((target("avx2"))) double avx2BandedDot(const double* r, const double* v, int k, int terms)
{
    return quadBandedDot(r, v, k, terms);
}
__attribute__((target("avx2"))) void avx2AddReversed(double* x, const double* y, int k, double scale)
{
    lanesAddReversed<Quad>(x, y, k, scale);
}
__attribute__((target("avx2"))) void avx2AddReversedInPlace(double* v, int k, double scale)
{
    lanesAddReversedInPlace<Quad>(v, k, scale);
}

// The eight partial sums in one oct, lane for lane the two quads above.
__attribute__((target("avx512f"))) double avx512BandedDot(const double* r, const double* v, int k, int terms)
{
    Oct sum = {};
    int i = 1;
    for (; i + 7 <= terms; i += 8) {
        Oct r0, v0;
        load(r0, r + i);
        loadReversed(v0, v + k - i - 7);
        sum = sum + r0 * v0;
    }
    double partial[8];
    store(partial, sum);
    plainTerms(r, v, k, i, terms, partial);
    return joined(partial);
}

__attribute__((target("avx512f"))) void avx512AddReversed(double* x, const double* y, int k, double scale)
{
    lanesAddReversed<Oct>(x, y, k, scale);
}
__attribute__((target("avx512f"))) void avx512AddReversedInPlace(double* v, int k, double scale)
{
    lanesAddReversedInPlace<Oct>(v, k, scale);
}
#endif

}  // namespace

double bandedDot(Path path, const double* r, const double* v, int k, int terms)
{
#ifdef FERROTIP_INPAINT_X86
    if (path == Path::avx512) return avx512BandedDot(r, v, k, terms);
    if (path == Path::avx2) return avx2BandedDot(r, v, k, terms);
#endif
    if (path == Path::vector) return vectorBandedDot(r, v, k, terms);
    return plainBandedDot(r, v, k, terms);
}

void addReversed(Path path, double* x, const double* y, int k, double scale)
{
#ifdef FERROTIP_INPAINT_X86
    if (path == Path::avx512) return avx512AddReversed(x, y, k, scale);
    if (path == Path::avx2) return avx2AddReversed(x, y, k, scale);
#endif
    if (path == Path::vector) return vectorAddReversed(x, y, k, scale);
    plainAddReversed(x, y, 0, k, scale);
}

void addReversedInPlace(Path path, double* v, int k, double scale)
{
#ifdef FERROTIP_INPAINT_X86
    if (path == Path::avx512) return avx512AddReversedInPlace(v, k, scale);
    if (path == Path::avx2) return avx2AddReversedInPlace(v, k, scale);
#endif
    if (path == Path::vector) return vectorAddReversedInPlace(v, k, scale);
    ::addReversedInPlace(v, k, scale);
}

}  // namespace inpaint_kernels
