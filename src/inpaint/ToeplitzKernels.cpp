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

// x[j] += scale * y[k - 1 - j] for from <= j < to.
void plainAddReversed(double* x, const double* y, int from, int to, int k, double scale)
{
    for (int j = from; j < to; ++j) x[j] += scale * y[k - 1 - j];
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

// Pairs of vectors of y from both ends while they do not overlap: y[low + i] and
// y[high - i] update the solutions at high - i and low + i, and then each other; the
// middle ones one at a time, the solutions first.
template <typename Vector>
[[gnu::always_inline]] inline void lanesLevinsonStep(double* y, int k, bool updateY, double yScale,
                                                     double* const* x, const double* scale, int count)
{
    constexpr int lanes = lanesOf<Vector>;
    Vector s;
    broadcast(s, yScale);
    int low = 0, high = k - 1;
    for (; low + lanes - 1 < high - (lanes - 1); low += lanes, high -= lanes) {
        Vector a, b;
        load(a, y + low);
        loadReversed(b, y + high - (lanes - 1));
        for (int r = 0; r < count; ++r) {
            Vector m, lowX, highX;
            broadcast(m, scale[r]);
            load(lowX, x[r] + low);
            loadReversed(highX, x[r] + high - (lanes - 1));
            lowX = lowX + m * b;
            highX = highX + m * a;
            store(x[r] + low, lowX);
            reverse(highX);
            store(x[r] + high - (lanes - 1), highX);
        }
        if (!updateY) continue;
        const Vector newLow = a + s * b;
        Vector newHigh = b + s * a;
        store(y + low, newLow);
        reverse(newHigh);
        store(y + high - (lanes - 1), newHigh);
    }
    for (int r = 0; r < count; ++r) plainAddReversed(x[r], y, low, high + 1, k, scale[r]);
    if (updateY) ::addReversedInPlace(y + low, high - low + 1, yScale);
}

double plainBandedDot(const double* r, const double* v, int k, int terms)
{
    double partial[8] = {};
    plainTerms(r, v, k, 1, terms, partial);
    return joined(partial);
}

double vectorBandedDot(const double* r, const double* v, int k, int terms) { return quadBandedDot(r, v, k, terms); }
void vectorLevinsonStep(double* y, int k, bool updateY, double yScale, double* const* x, const double* scale,
                        int count)
{
    lanesLevinsonStep<Quad>(y, k, updateY, yScale, x, scale, count);
}

#if defined(__x86_64__)
#define FERROTIP_INPAINT_X86 1
__attribute__((target("avx2"))) double avx2BandedDot(const double* r, const double* v, int k, int terms)
{
    return quadBandedDot(r, v, k, terms);
}
__attribute__((target("avx2"))) void avx2LevinsonStep(double* y, int k, bool updateY, double yScale,
                                                      double* const* x, const double* scale, int count)
{
    lanesLevinsonStep<Quad>(y, k, updateY, yScale, x, scale, count);
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

__attribute__((target("avx512f"))) void avx512LevinsonStep(double* y, int k, bool updateY, double yScale,
                                                           double* const* x, const double* scale, int count)
{
    lanesLevinsonStep<Oct>(y, k, updateY, yScale, x, scale, count);
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

void levinsonStep(Path path, double* y, int k, bool updateY, double yScale, double* const* x, const double* scale,
                  int count)
{
#ifdef FERROTIP_INPAINT_X86
    if (path == Path::avx512) return avx512LevinsonStep(y, k, updateY, yScale, x, scale, count);
    if (path == Path::avx2) return avx2LevinsonStep(y, k, updateY, yScale, x, scale, count);
#endif
    if (path == Path::vector) return vectorLevinsonStep(y, k, updateY, yScale, x, scale, count);
    for (int r = 0; r < count; ++r) plainAddReversed(x[r], y, 0, k, k, scale[r]);
    if (updateY) ::addReversedInPlace(y, k, yScale);
}

}  // namespace inpaint_kernels
