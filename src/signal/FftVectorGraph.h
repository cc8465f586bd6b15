// Internal: the vector passes of the transform kernels, written once for every x86
// path and compiled once per instruction set. Each vector holds several complex
// points interleaved as in memory; one vector operation applies the scalar path's
// operation to independent butterflies of the same pass, so every output keeps the
// scalar chain bit for bit:
//   t = (a - wr b) + wis swap(b)   with wr = (wr, wr), wis = (wi, -wi) per point,
// which is (a.re - wr b.re) + wi b.im and (a.im - wr b.im) - wi b.re exactly, since
// x + (-y) z equals x - y z in IEEE arithmetic; a + a equals 2a exactly. No fused
// multiply-add is ever formed (contraction is off project-wide).
//
// The including file defines FFT_VECTOR_TARGET (the target attribute of its
// instruction set), FFT_VECTOR_NAMESPACE (keeps each compilation's code apart) and
// FFT_VECTOR_KERNELS (its kernel-set accessor of FftVectorPasses.h), and declares in standardLib::fft::FFT_VECTOR_NAMESPACE the traits Vec<float> and
// Vec<double> of its vector width:
//   V, points                  vector type, complex points per vector (>= 2)
//   load, store                unaligned, points complex points
//   swapParts, reversePoints   (re, im) -> (im, re) per point; points in reverse order
//   flipReal, flipImaginary, flipAll   exact sign flips
//   duplicated(p)              (p[i], p[i]) per point i; duplicatedReversed backward
//   duplicatedRun(U, b, s)     (U[b + i s], U[b + i s]) per point i, s of either sign,
//                              reading nothing outside the entries' span
//   transpose<B>(rows)         (points > 2 only) B vectors as a B x B matrix of
//                              blocks of points / B points, transposed; B = 2, and
//                              4 for 8 points, for radix-8 passes with D < points
// It then includes this file once, which defines Passes (the interface of
// FftGraph.h) and the accessor.
// No allocation, no state.
#if !defined(FFT_VECTOR_TARGET) || !defined(FFT_VECTOR_NAMESPACE) || !defined(FFT_VECTOR_KERNELS)
#error "define FFT_VECTOR_TARGET, FFT_VECTOR_NAMESPACE and FFT_VECTOR_KERNELS before including FftVectorGraph.h"
#endif

#include "signal/FftGraph.h"
#include "signal/FftScalarPasses.h"

#include <immintrin.h>

#include <cstddef>

#define FFT_VECTOR_INLINE __attribute__((target(FFT_VECTOR_TARGET), always_inline)) inline
#define FFT_VECTOR __attribute__((target(FFT_VECTOR_TARGET)))

namespace standardLib::fft::FFT_VECTOR_NAMESPACE {

// A twiddle per point: real parts duplicated, imaginary parts as (im, -im).
template <typename T>
struct VectorTwiddle {
    typename Vec<T>::V re;
    typename Vec<T>::V im;
};

// t = a - w b, the difference chain of every point at once.
template <typename T>
FFT_VECTOR_INLINE typename Vec<T>::V differenceChain(typename Vec<T>::V a, VectorTwiddle<T> w,
                                                    typename Vec<T>::V b) {
    return (a - w.re * b) + w.im * Vec<T>::swapParts(b);
}

template <typename T>
FFT_VECTOR_INLINE void butterfly(typename Vec<T>::V& a, typename Vec<T>::V& b, VectorTwiddle<T> w) {
    const typename Vec<T>::V t = differenceChain<T>(a, w, b);
    a = (a + a) - t;
    b = t;
}

template <typename T>
struct VectorRadix8Twiddles {
    VectorTwiddle<T> w1, w2, w3, w4, w2q, w3q, w4q;
};

// One scalar twiddle per point, packed.
template <typename T>
FFT_VECTOR_INLINE VectorTwiddle<T> packTwiddle(const Complex<T>* w) {
    constexpr int lanes = Vec<T>::points;
    alignas(64) T re[2 * lanes];
    alignas(64) T im[2 * lanes];
    for (int lane = 0; lane < lanes; ++lane) {
        re[2 * lane] = w[lane].re;
        re[2 * lane + 1] = w[lane].re;
        im[2 * lane] = w[lane].im;
        im[2 * lane + 1] = -w[lane].im;
    }
    return {Vec<T>::load(re), Vec<T>::load(im)};
}

// The scalar path's twiddles of the given d per lane, packed into vectors (used
// where lanes may straddle the turn of w1 or repeat a d).
template <typename T, bool Inverse>
FFT_VECTOR_INLINE VectorRadix8Twiddles<T> laneTwiddles(const T* U, const Radix8Walk& walk, const int* d) {
    constexpr int lanes = Vec<T>::points;
    Complex<T> w[7][lanes];
    for (int lane = 0; lane < lanes; ++lane) {
        const Radix8Twiddles<T> s = radix8Twiddles<T, Inverse>(U, walk, d[lane]);
        w[0][lane] = s.w1;
        w[1][lane] = s.w2;
        w[2][lane] = s.w3;
        w[3][lane] = s.w4;
        w[4][lane] = s.w2q;
        w[5][lane] = s.w3q;
        w[6][lane] = s.w4q;
    }
    return {packTwiddle<T>(w[0]), packTwiddle<T>(w[1]), packTwiddle<T>(w[2]), packTwiddle<T>(w[3]),
            packTwiddle<T>(w[4]), packTwiddle<T>(w[5]), packTwiddle<T>(w[6])};
}

// W from duplicated cosines c and sines s, and its quarter turn, as the scalar
// Direction forms them: forward (c, -s) and (-s, -c), inverse (c, s) and (-s, c).
template <typename T, bool Inverse>
FFT_VECTOR_INLINE VectorTwiddle<T> vectorTwiddle(typename Vec<T>::V c, typename Vec<T>::V s) {
    if constexpr (Inverse)
        return {c, Vec<T>::flipImaginary(s)};
    else
        return {c, Vec<T>::flipReal(s)};
}

template <typename T, bool Inverse>
FFT_VECTOR_INLINE VectorTwiddle<T> vectorQuarterTurn(typename Vec<T>::V c, typename Vec<T>::V s) {
    if constexpr (Inverse)
        return {Vec<T>::flipAll(s), Vec<T>::flipImaginary(c)};
    else
        return {Vec<T>::flipAll(s), Vec<T>::flipReal(c)};
}

// The twiddles of lanes d0 .. d0 + lanes - 1 read straight from the table as runs
// of equally spaced entries. All lanes must lie in one half of the w1 walk.
template <typename T, bool Inverse>
FFT_VECTOR_INLINE VectorRadix8Twiddles<T> tableTwiddles(const T* U, const Radix8Walk& walk, int d0) {
    using A = Vec<T>;
    const int q = walk.quarter;
    const int j1 = d0 * walk.step1;
    const int j2 = d0 * walk.step2;
    const int j3 = d0 * walk.step3;
    const int j4 = j3 + walk.eighth;
    typename A::V c1;
    typename A::V s1;
    if (d0 < walk.half) {
        c1 = A::duplicatedRun(U, j1, walk.step1);
        s1 = A::duplicatedRun(U, q - j1, -walk.step1);
    } else {
        c1 = A::flipAll(A::duplicatedRun(U, 2 * q - j1, -walk.step1));
        s1 = A::duplicatedRun(U, j1 - q, walk.step1);
    }
    const typename A::V c2 = A::duplicatedRun(U, j2, walk.step2);
    const typename A::V s2 = A::duplicatedRun(U, q - j2, -walk.step2);
    const typename A::V c3 = A::duplicatedRun(U, j3, walk.step3);
    const typename A::V s3 = A::duplicatedRun(U, q - j3, -walk.step3);
    const typename A::V c4 = A::duplicatedRun(U, j4, walk.step3);
    const typename A::V s4 = A::duplicatedRun(U, q - j4, -walk.step3);
    return {vectorTwiddle<T, Inverse>(c1, s1),      vectorTwiddle<T, Inverse>(c2, s2),
            vectorTwiddle<T, Inverse>(c3, s3),      vectorTwiddle<T, Inverse>(c4, s4),
            vectorQuarterTurn<T, Inverse>(c2, s2), vectorQuarterTurn<T, Inverse>(c3, s3),
            vectorQuarterTurn<T, Inverse>(c4, s4)};
}

template <typename T>
FFT_VECTOR_INLINE void radix8Butterflies(typename Vec<T>::V* f, const VectorRadix8Twiddles<T>& w) {
    butterfly<T>(f[0], f[1], w.w1);
    butterfly<T>(f[2], f[3], w.w1);
    butterfly<T>(f[4], f[5], w.w1);
    butterfly<T>(f[6], f[7], w.w1);
    butterfly<T>(f[0], f[2], w.w2);
    butterfly<T>(f[4], f[6], w.w2);
    butterfly<T>(f[1], f[3], w.w2q);
    butterfly<T>(f[5], f[7], w.w2q);
    butterfly<T>(f[0], f[4], w.w3);
    butterfly<T>(f[1], f[5], w.w4);
    butterfly<T>(f[2], f[6], w.w3q);
    butterfly<T>(f[3], f[7], w.w4q);
}

// Lanes are consecutive d (distance >= lanes): one vector load per point k.
template <typename T, bool Inverse>
FFT_VECTOR void radix8Consecutive(T* data, int points, int distance, const T* U, int tableSize) {
    constexpr int lanes = Vec<T>::points;
    const Radix8Walk walk(tableSize, distance);
    const int span = 8 * distance;
    // When D / 2 is a multiple of the lane count no group straddles the turn of w1.
    const bool runs = distance >= 2 * lanes;
    for (int d0 = 0; d0 < distance; d0 += lanes) {
        int d[lanes];
        for (int lane = 0; lane < lanes; ++lane)
            d[lane] = d0 + lane;
        const VectorRadix8Twiddles<T> w =
            runs ? tableTwiddles<T, Inverse>(U, walk, d0) : laneTwiddles<T, Inverse>(U, walk, d);
        for (int base = d0; base < points; base += span) {
            typename Vec<T>::V f[8];
            for (int k = 0; k < 8; ++k)
                f[k] = Vec<T>::load(data + 2 * (base + k * distance));
            radix8Butterflies<T>(f, w);
            for (int k = 0; k < 8; ++k)
                Vec<T>::store(data + 2 * (base + k * distance), f[k]);
        }
    }
}

// Eight consecutive vectors of B groups of 8 blocks (a block is D points, B D
// points a vector): vector g R + h holds blocks h B .. h B + B - 1 of group g, with
// R = 8 / B. The transposes of B x B blocks move block k of every group into
// vector k (groupsToBlocks) and back (blocksToGroups).
template <typename T, int B>
FFT_VECTOR_INLINE void groupsToBlocks(typename Vec<T>::V (&f)[8]) {
    constexpr int R = 8 / B;
    typename Vec<T>::V out[8];
    for (int h = 0; h < R; ++h) {
        typename Vec<T>::V rows[B];
        for (int g = 0; g < B; ++g)
            rows[g] = f[g * R + h];
        Vec<T>::template transpose<B>(rows);
        for (int i = 0; i < B; ++i)
            out[h * B + i] = rows[i];
    }
    for (int j = 0; j < 8; ++j)
        f[j] = out[j];
}

template <typename T, int B>
FFT_VECTOR_INLINE void blocksToGroups(typename Vec<T>::V (&f)[8]) {
    constexpr int R = 8 / B;
    typename Vec<T>::V out[8];
    for (int h = 0; h < R; ++h) {
        typename Vec<T>::V rows[B];
        for (int i = 0; i < B; ++i)
            rows[i] = f[h * B + i];
        Vec<T>::template transpose<B>(rows);
        for (int g = 0; g < B; ++g)
            out[g * R + h] = rows[g];
    }
    for (int j = 0; j < 8; ++j)
        f[j] = out[j];
}

// Distance below the lane count: each vector holds d = 0 .. D - 1 of B = lanes / D
// neighbouring groups (8 D points apart), so the twiddles are the same for the
// whole pass. Vectors are loaded and stored whole and rearranged in registers.
// The transform must hold at least 8 vectors of points.
template <typename T, bool Inverse, int B>
FFT_VECTOR void radix8Grouped(T* data, int points, int distance, const T* U, int tableSize) {
    constexpr int lanes = Vec<T>::points;
    const Radix8Walk walk(tableSize, distance);
    int d[lanes];
    for (int lane = 0; lane < lanes; ++lane)
        d[lane] = lane % distance;
    const VectorRadix8Twiddles<T> w = laneTwiddles<T, Inverse>(U, walk, d);
    for (T* block = data; block < data + 2 * points; block += 2 * 8 * lanes) {
        typename Vec<T>::V f[8];
        for (int j = 0; j < 8; ++j)
            f[j] = Vec<T>::load(block + 2 * lanes * j);
        groupsToBlocks<T, B>(f);
        radix8Butterflies<T>(f, w);
        blocksToGroups<T, B>(f);
        for (int j = 0; j < 8; ++j)
            Vec<T>::store(block + 2 * lanes * j, f[j]);
    }
}

// Two neighbouring points in one vector (4 floats or 4 doubles), for the passes
// whose butterflies pair neighbours: the bit reversal with level 1 and the leading
// pass.
template <typename T>
struct PointPair;

template <>
struct PointPair<float> {
    using V = __m128;
    FFT_VECTOR_INLINE static V load(const float* p) { return _mm_loadu_ps(p); }
    FFT_VECTOR_INLINE static void store(float* p, V v) { _mm_storeu_ps(p, v); }
    FFT_VECTOR_INLINE static V broadcast(float v) { return _mm_set1_ps(v); }
    FFT_VECTOR_INLINE static V setr(float a, float b, float c, float d) { return _mm_setr_ps(a, b, c, d); }
    // (first point of a, first of b) and (second of a, second of b).
    FFT_VECTOR_INLINE static V firsts(V a, V b) { return _mm_movelh_ps(a, b); }
    FFT_VECTOR_INLINE static V seconds(V a, V b) { return _mm_movehl_ps(b, a); }
    FFT_VECTOR_INLINE static V swapParts(V v) { return _mm_shuffle_ps(v, v, 0xB1); }
    // The parts of one point swapped: (im0, re0, re1, im1) or (re0, im0, im1, re1).
    FFT_VECTOR_INLINE static V swapFirst(V v) { return _mm_shuffle_ps(v, v, _MM_SHUFFLE(3, 2, 0, 1)); }
    FFT_VECTOR_INLINE static V swapSecond(V v) { return _mm_shuffle_ps(v, v, _MM_SHUFFLE(2, 3, 1, 0)); }
    FFT_VECTOR_INLINE static V signs(bool s0, bool s1, bool s2, bool s3) {
        return _mm_setr_ps(s0 ? -0.0f : 0.0f, s1 ? -0.0f : 0.0f, s2 ? -0.0f : 0.0f, s3 ? -0.0f : 0.0f);
    }
    FFT_VECTOR_INLINE static V flip(V v, V signMask) { return _mm_xor_ps(v, signMask); }
    // First point from a, second from b.
    FFT_VECTOR_INLINE static V blendSecond(V a, V b) { return _mm_blend_ps(a, b, 0xC); }
};

template <>
struct PointPair<double> {
    using V = __m256d;
    FFT_VECTOR_INLINE static V load(const double* p) { return _mm256_loadu_pd(p); }
    FFT_VECTOR_INLINE static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
    FFT_VECTOR_INLINE static V broadcast(double v) { return _mm256_set1_pd(v); }
    FFT_VECTOR_INLINE static V setr(double a, double b, double c, double d) { return _mm256_setr_pd(a, b, c, d); }
    FFT_VECTOR_INLINE static V firsts(V a, V b) { return _mm256_permute2f128_pd(a, b, 0x20); }
    FFT_VECTOR_INLINE static V seconds(V a, V b) { return _mm256_permute2f128_pd(a, b, 0x31); }
    FFT_VECTOR_INLINE static V swapParts(V v) { return _mm256_permute_pd(v, 0x5); }
    FFT_VECTOR_INLINE static V swapFirst(V v) { return _mm256_permute_pd(v, 0x9); }
    FFT_VECTOR_INLINE static V swapSecond(V v) { return _mm256_permute_pd(v, 0x6); }
    FFT_VECTOR_INLINE static V signs(bool s0, bool s1, bool s2, bool s3) {
        return _mm256_setr_pd(s0 ? -0.0 : 0.0, s1 ? -0.0 : 0.0, s2 ? -0.0 : 0.0, s3 ? -0.0 : 0.0);
    }
    FFT_VECTOR_INLINE static V flip(V v, V signMask) { return _mm256_xor_pd(v, signMask); }
    FFT_VECTOR_INLINE static V blendSecond(V a, V b) { return _mm256_blend_pd(a, b, 0xC); }
};

// One block of pass 1 as loaded: (A0, A1) at p and (A2, A3) at p + N/2.
template <typename T>
struct LevelOneBlock {
    typename PointPair<T>::V low;
    typename PointPair<T>::V high;
};

template <typename T>
FFT_VECTOR_INLINE LevelOneBlock<T> loadBlock(const T* data, int p, int half) {
    return {PointPair<T>::load(data + 2 * p), PointPair<T>::load(data + 2 * (p + half))};
}

// Sums (B0, B2) and differences (B1, B3), scaled after, stored as (B0, B1) at p and
// (B2, B3) at p + N/2.
template <typename T, bool Scaled>
FFT_VECTOR_INLINE void storeLevelOne(T* data, int p, int half, LevelOneBlock<T> x,
                                     typename PointPair<T>::V scale) {
    using P = PointPair<T>;
    typename P::V sum = x.low + x.high;
    typename P::V difference = x.low - x.high;
    if constexpr (Scaled) {
        sum = sum * scale;
        difference = difference * scale;
    }
    P::store(data + 2 * p, P::firsts(sum, difference));
    P::store(data + 2 * (p + half), P::seconds(sum, difference));
}

// The blocks P(x, y) and P(y, x) swap places with their level-1 butterflies, as in
// the scalar path; the offsets 2 rev(y) come from a small table and the partner
// offset steps down by 2^c, so the loop is loads, stores and arithmetic.
template <typename T, bool Scaled>
FFT_VECTOR void bitReverseVector(T* data, int m, T scale) {
    const ReversalGeometry g(m);
    const typename PointPair<T>::V scales = PointPair<T>::broadcast(scale);
    int twoRev[256];  // count <= 2^8
    for (int v = 0; v < g.count; ++v)
        twoRev[v] = 2 * g.rev(v);
    const int rowStep = powerOfTwo[g.c];
    for (int mid = 0; mid < g.middles; ++mid) {
        const int a = g.middle(mid);
        for (int x = g.count - 1; x >= 0; --x) {
            const int rowX = g.block(a, x, 0);
            int py = g.block(a, g.count - 1, twoRev[x] / 2);
            for (int y = g.count - 1; y > x; --y, py -= rowStep) {
                const int px = rowX + twoRev[y];
                const LevelOneBlock<T> first = loadBlock(data, px, g.half);
                const LevelOneBlock<T> second = loadBlock(data, py, g.half);
                storeLevelOne<T, Scaled>(data, py, g.half, first, scales);
                storeLevelOne<T, Scaled>(data, px, g.half, second, scales);
            }
            const int own = rowX + twoRev[x];
            storeLevelOne<T, Scaled>(data, own, g.half, loadBlock(data, own, g.half), scales);
        }
    }
}

// The leading pass on point pairs: the quarter turn of one point is the scalar
// path's exact swap and sign change, and where the two points of a pair take
// different twiddles both results are formed and the right one kept per point.
template <typename T, bool Inverse>
struct LeadingPairs {
    using P = PointPair<T>;
    using V = typename P::V;

    // -i v (forward) or +i v (inverse) of the first or the second point.
    FFT_VECTOR_INLINE static V turnFirst(V v) {
        return P::flip(P::swapFirst(v), Inverse ? P::signs(true, false, false, false)
                                                : P::signs(false, true, false, false));
    }
    FFT_VECTOR_INLINE static V turnSecond(V v) {
        return P::flip(P::swapSecond(v), Inverse ? P::signs(false, false, true, false)
                                                 : P::signs(false, false, false, true));
    }
    FFT_VECTOR_INLINE static V chain(V a, Complex<T> w, V b) {
        return (a - P::broadcast(w.re) * b) + P::setr(w.im, -w.im, w.im, -w.im) * P::swapParts(b);
    }
    FFT_VECTOR_INLINE static void settle(V& a, V& b, V t) {
        a = (a + a) - t;
        b = t;
    }
    // Points 0..3 as (a, b): (0, 2) with 1 and (1, 3) with the quarter turn.
    FFT_VECTOR_INLINE static void quad(V& a, V& b) { settle(a, b, a - turnSecond(b)); }
    // Points 0..7 as (a0, b0, a1, b1), after both quads: (0, 4) with 1, (1, 5)
    // with W(pi/4), (2, 6) with the quarter turn, (3, 7) with W(3 pi/4).
    FFT_VECTOR_INLINE static void secondLevel(V& a0, V& b0, V& a1, V& b1) {
        using D = Diagonals<T, Inverse>;
        settle(a0, a1, P::blendSecond(a0 - a1, chain(a0, D::eighth(), a1)));
        settle(b0, b1, P::blendSecond(b0 - turnFirst(b1), chain(b0, D::threeEighths(), b1)));
    }
};

template <typename T, bool Inverse>
FFT_VECTOR int leadingVector(T* data, int points, int levelsAfterFirst) {
    using L = LeadingPairs<T, Inverse>;
    using P = PointPair<T>;
    const int leftover = levelsAfterFirst % 3;
    if (leftover == 0)
        return 2;
    if (leftover == 1) {
        for (T* p = data; p < data + 2 * points; p += 8) {
            typename P::V a = P::load(p);
            typename P::V b = P::load(p + 4);
            L::quad(a, b);
            P::store(p, a);
            P::store(p + 4, b);
        }
        return 4;
    }
    for (T* p = data; p < data + 2 * points; p += 16) {
        typename P::V a0 = P::load(p);
        typename P::V b0 = P::load(p + 4);
        typename P::V a1 = P::load(p + 8);
        typename P::V b1 = P::load(p + 12);
        L::quad(a0, b0);
        L::quad(a1, b1);
        L::secondLevel(a0, b0, a1, b1);
        P::store(p, a0);
        P::store(p + 4, b0);
        P::store(p + 8, a1);
        P::store(p + 12, b1);
    }
    return 8;
}

// One bin pair per lane of the real unpacking (or packing): xk holds the bins of
// the k role, xm their mirrors m' = N/2 - k, point by point; c and s are the
// duplicated cosine and sine of w. The results replace xk and xm. Per point the
// operations are those of unpackPair and packPair.
template <typename T, bool Packing>
FFT_VECTOR_INLINE void realPairVector(typename Vec<T>::V& xk, typename Vec<T>::V& xm, typename Vec<T>::V c,
                                      typename Vec<T>::V s) {
    using A = Vec<T>;
    const typename A::V conjugate = A::flipImaginary(xm);
    const typename A::V even = xk + conjugate;  // E or P
    const typename A::V odd = xk - conjugate;   // O or R
    if constexpr (Packing) {
        // i w = (-s, c): point k = P + (i w) R, point m' = conj(P - (i w) R).
        const typename A::V wr = A::flipAll(s);
        xk = (even + wr * odd) + A::flipReal(c) * A::swapParts(odd);
        xm = A::flipImaginary((even - wr * odd) + A::flipImaginary(c) * A::swapParts(odd));
    } else {
        // i w = (s, c): bin k = t = E - (i w) O, bin m' = conj(2E - t).
        const typename A::V t = (even - s * odd) + A::flipImaginary(c) * A::swapParts(odd);
        xk = t;
        xm = A::flipImaginary((even + even) - t);
    }
}

// The four-bin steps k = 1 .. N/8 - 1, lanes at a time, as far as whole groups go;
// returns the first k left for the scalar steps.
template <typename T, bool Packing>
FFT_VECTOR int realQuadsVector(T* data, int n, const T* U) {
    using A = Vec<T>;
    constexpr int lanes = A::points;
    const int points = n / 2;
    const int quarter = n / 4;
    int k = 1;
    for (; k + lanes <= n / 8; k += lanes) {
        const typename A::V c = A::duplicated(U + k);                                // U[k + l]
        const typename A::V s = A::duplicatedReversed(U + quarter - k - lanes + 1);  // U[Q - k - l]
        // Bins k + l with mirrors N/2 - k - l, and w = U[k] -+ i U[Q - k].
        T* const low = data + 2 * k;
        T* const high = data + 2 * (points - k - lanes + 1);
        typename A::V xk = A::load(low);
        typename A::V xm = A::reversePoints(A::load(high));
        realPairVector<T, Packing>(xk, xm, c, s);
        A::store(low, xk);
        A::store(high, A::reversePoints(xm));
        // Bins Q - k - l with mirrors Q + k + l, and the cosine and sine swapped.
        T* const below = data + 2 * (quarter - k - lanes + 1);
        T* const above = data + 2 * (quarter + k);
        typename A::V yk = A::reversePoints(A::load(below));
        typename A::V ym = A::load(above);
        realPairVector<T, Packing>(yk, ym, s, c);
        A::store(below, A::reversePoints(yk));
        A::store(above, ym);
    }
    return k;
}

// This instruction set's passes, behind the interface every path offers.
struct Passes {
    template <typename T, bool Scaled>
    FFT_VECTOR static void bitReverse(T* data, int m, T scale) {
        bitReverseVector<T, Scaled>(data, m, scale);
    }
    template <typename T, bool Inverse>
    FFT_VECTOR static int leading(T* data, int points, int levelsAfterFirst) {
        return leadingVector<T, Inverse>(data, points, levelsAfterFirst);
    }
    template <typename T, bool Inverse>
    FFT_VECTOR static void radix8(T* data, int points, int distance, const T* U, int tableSize) {
        constexpr int lanes = Vec<T>::points;
        if (distance >= lanes) {
            radix8Consecutive<T, Inverse>(data, points, distance, U, tableSize);
            return;
        }
        if constexpr (lanes > 2) {
            if (points >= 8 * lanes) {
                if (lanes == 8 && distance == 2)
                    radix8Grouped<T, Inverse, lanes / 2>(data, points, distance, U, tableSize);
                else
                    radix8Grouped<T, Inverse, 2>(data, points, distance, U, tableSize);
                return;
            }
        }
        radix8Pass<T, Inverse>(data, points, distance, U, tableSize);
    }
    template <typename T>
    FFT_VECTOR static void unpack(T* data, int n, const T* U) {
        unpackEnds(data, n);
        realEighths<T, false>(data, n, U);
        realQuads<T, false>(data, n, U, realQuadsVector<T, false>(data, n, U));
    }
    template <typename T>
    FFT_VECTOR static void pack(T* data, int n, const T* U) {
        packEnds(data, n);
        realEighths<T, true>(data, n, U);
        realQuads<T, true>(data, n, U, realQuadsVector<T, true>(data, n, U));
    }
};

}  // namespace standardLib::fft::FFT_VECTOR_NAMESPACE

namespace standardLib::fft {

template <typename T>
const KernelSet<T>& FFT_VECTOR_KERNELS() {
    return PathKernels<FFT_VECTOR_NAMESPACE::Passes, T>::set;
}

template const KernelSet<float>& FFT_VECTOR_KERNELS<float>();
template const KernelSet<double>& FFT_VECTOR_KERNELS<double>();

}  // namespace standardLib::fft

#undef FFT_VECTOR_INLINE
#undef FFT_VECTOR
