// AVX2 passes of the transform kernels. Each vector holds several complex points
// (4 in float, 2 in double) interleaved as in memory; one vector operation applies
// the scalar path's operation to independent butterflies of the same pass, so every
// output keeps the scalar chain bit for bit:
//   t = (a - wr b) + wis swap(b)   with wr = (wr, wr), wis = (wi, -wi) per point,
// which is (a.re - wr b.re) + wi b.im and (a.im - wr b.im) - wi b.re exactly,
// since x + (-y) z equals x - y z in IEEE arithmetic. a + a equals 2a exactly.
// Only avx2 is enabled here, never fma, and contraction is off project-wide.
#include "signal/FftVectorPasses.h"

#if FERROTIP_FFT_HAS_AVX2

#include "signal/FftScalarPasses.h"

#include <immintrin.h>

#include <type_traits>

#define FFT_AVX2_INLINE __attribute__((target("avx2"), always_inline)) inline
#define FFT_AVX2 __attribute__((target("avx2")))

namespace standardLib::fft {
namespace {

// Vector type and lane moves of one precision.
template <typename T>
struct Avx;

template <>
struct Avx<float> {
    using V = __m256;
    static constexpr int points = 4;
    FFT_AVX2_INLINE static V load(const float* p) { return _mm256_loadu_ps(p); }
    FFT_AVX2_INLINE static void store(float* p, V v) { _mm256_storeu_ps(p, v); }
    FFT_AVX2_INLINE static V swapParts(V v) { return _mm256_permute_ps(v, 0xB1); }
    // Points in reverse order (the parts of each point stay together).
    FFT_AVX2_INLINE static V reversePoints(V v) {
        return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(v), 0x1B));
    }
    // Per point: (re, re) and (im, -im) of the given twiddles.
    FFT_AVX2_INLINE static V realParts(const Complex<float>* w) {
        return _mm256_setr_ps(w[0].re, w[0].re, w[1].re, w[1].re, w[2].re, w[2].re, w[3].re, w[3].re);
    }
    FFT_AVX2_INLINE static V signedImaginaryParts(const Complex<float>* w) {
        return _mm256_setr_ps(w[0].im, -w[0].im, w[1].im, -w[1].im, w[2].im, -w[2].im, w[3].im, -w[3].im);
    }
    // (v[i], v[i]) per point i, from four consecutive values, forward or reversed.
    FFT_AVX2_INLINE static V duplicated(const float* p) {
        return _mm256_permutevar8x32_ps(_mm256_castps128_ps256(_mm_loadu_ps(p)),
                                        _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
    }
    FFT_AVX2_INLINE static V duplicatedReversed(const float* p) {
        return _mm256_permutevar8x32_ps(_mm256_castps128_ps256(_mm_loadu_ps(p)),
                                        _mm256_setr_epi32(3, 3, 2, 2, 1, 1, 0, 0));
    }
    // (U[b], U[b], U[b + s], U[b + s], ..., U[b + 3s], U[b + 3s]) for a step s of
    // either sign; steps of 1 and 2 are contiguous (masked) loads, never reading
    // outside the four entries' span.
    FFT_AVX2_INLINE static V duplicatedRun(const float* U, int b, int s) {
        const __m256i everyOther = _mm256_setr_epi32(-1, 0, -1, 0, -1, 0, -1, 0);
        switch (s) {
        case 1: return duplicated(U + b);
        case -1: return duplicatedReversed(U + b - 3);
        case 2:
            return _mm256_permutevar8x32_ps(_mm256_maskload_ps(U + b, everyOther),
                                            _mm256_setr_epi32(0, 0, 2, 2, 4, 4, 6, 6));
        case -2:
            return _mm256_permutevar8x32_ps(_mm256_maskload_ps(U + b - 6, everyOther),
                                            _mm256_setr_epi32(6, 6, 4, 4, 2, 2, 0, 0));
        default:
            return _mm256_permutevar8x32_ps(
                _mm256_castps128_ps256(_mm_setr_ps(U[b], U[b + s], U[b + 2 * s], U[b + 3 * s])),
                _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
        }
    }
    // Sign flips of the real parts, the imaginary parts, or both.
    FFT_AVX2_INLINE static V flipReal(V v) {
        return _mm256_xor_ps(v, _mm256_setr_ps(-0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f));
    }
    FFT_AVX2_INLINE static V flipImaginary(V v) {
        return _mm256_xor_ps(v, _mm256_setr_ps(0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f));
    }
    FFT_AVX2_INLINE static V flipAll(V v) { return _mm256_xor_ps(v, _mm256_set1_ps(-0.0f)); }
};

template <>
struct Avx<double> {
    using V = __m256d;
    static constexpr int points = 2;
    FFT_AVX2_INLINE static V load(const double* p) { return _mm256_loadu_pd(p); }
    FFT_AVX2_INLINE static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
    FFT_AVX2_INLINE static V swapParts(V v) { return _mm256_permute_pd(v, 0x5); }
    FFT_AVX2_INLINE static V reversePoints(V v) { return _mm256_permute2f128_pd(v, v, 0x01); }
    FFT_AVX2_INLINE static V realParts(const Complex<double>* w) {
        return _mm256_setr_pd(w[0].re, w[0].re, w[1].re, w[1].re);
    }
    FFT_AVX2_INLINE static V signedImaginaryParts(const Complex<double>* w) {
        return _mm256_setr_pd(w[0].im, -w[0].im, w[1].im, -w[1].im);
    }
    FFT_AVX2_INLINE static V duplicated(const double* p) {
        return _mm256_permute4x64_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), 0x50);
    }
    FFT_AVX2_INLINE static V duplicatedReversed(const double* p) {
        return _mm256_permute4x64_pd(_mm256_castpd128_pd256(_mm_loadu_pd(p)), 0x05);
    }
    FFT_AVX2_INLINE static V duplicatedRun(const double* U, int b, int s) {
        switch (s) {
        case 1: return duplicated(U + b);
        case -1: return duplicatedReversed(U + b - 1);
        default: return _mm256_setr_pd(U[b], U[b], U[b + s], U[b + s]);
        }
    }
    FFT_AVX2_INLINE static V flipReal(V v) { return _mm256_xor_pd(v, _mm256_setr_pd(-0.0, 0.0, -0.0, 0.0)); }
    FFT_AVX2_INLINE static V flipImaginary(V v) { return _mm256_xor_pd(v, _mm256_setr_pd(0.0, -0.0, 0.0, -0.0)); }
    FFT_AVX2_INLINE static V flipAll(V v) { return _mm256_xor_pd(v, _mm256_set1_pd(-0.0)); }
};

// A twiddle per point: real parts duplicated, imaginary parts as (im, -im).
template <typename T>
struct VectorTwiddle {
    typename Avx<T>::V re;
    typename Avx<T>::V im;
};

// t = a - w b, the difference chain of every point at once.
template <typename T>
FFT_AVX2_INLINE typename Avx<T>::V differenceChain(typename Avx<T>::V a, VectorTwiddle<T> w,
                                                   typename Avx<T>::V b) {
    return (a - w.re * b) + w.im * Avx<T>::swapParts(b);
}

template <typename T>
FFT_AVX2_INLINE void butterfly(typename Avx<T>::V& a, typename Avx<T>::V& b, VectorTwiddle<T> w) {
    const typename Avx<T>::V t = differenceChain<T>(a, w, b);
    a = (a + a) - t;
    b = t;
}

template <typename T>
struct VectorRadix8Twiddles {
    VectorTwiddle<T> w1, w2, w3, w4, w2q, w3q, w4q;
};

template <typename T>
FFT_AVX2_INLINE VectorTwiddle<T> packTwiddle(const Complex<T>* w) {
    return {Avx<T>::realParts(w), Avx<T>::signedImaginaryParts(w)};
}

// The scalar path's twiddles of the given d per lane, packed into vectors (used
// while lanes may straddle the turn of w1).
template <typename T, bool Inverse>
FFT_AVX2_INLINE VectorRadix8Twiddles<T> vectorTwiddles(const T* U, const Radix8Walk& walk, const int* d) {
    constexpr int lanes = Avx<T>::points;
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
FFT_AVX2_INLINE VectorTwiddle<T> vectorTwiddle(typename Avx<T>::V c, typename Avx<T>::V s) {
    if constexpr (Inverse)
        return {c, Avx<T>::flipImaginary(s)};
    else
        return {c, Avx<T>::flipReal(s)};
}

template <typename T, bool Inverse>
FFT_AVX2_INLINE VectorTwiddle<T> vectorQuarterTurn(typename Avx<T>::V c, typename Avx<T>::V s) {
    if constexpr (Inverse)
        return {Avx<T>::flipAll(s), Avx<T>::flipImaginary(c)};
    else
        return {Avx<T>::flipAll(s), Avx<T>::flipReal(c)};
}

// The twiddles of lanes d0 .. d0 + lanes - 1 read straight from the table as runs
// of equally spaced entries. All lanes must lie in one half of the w1 walk.
template <typename T, bool Inverse>
FFT_AVX2_INLINE VectorRadix8Twiddles<T> tableTwiddles(const T* U, const Radix8Walk& walk, int d0) {
    using A = Avx<T>;
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
FFT_AVX2_INLINE void radix8Butterflies(typename Avx<T>::V* f, const VectorRadix8Twiddles<T>& w) {
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
FFT_AVX2 void radix8Consecutive(T* data, int points, int distance, const T* U, int tableSize) {
    constexpr int lanes = Avx<T>::points;
    const Radix8Walk walk(tableSize, distance);
    const int span = 8 * distance;
    // When D / 2 is a multiple of the lane count no group straddles the turn of w1.
    const bool runs = distance >= 2 * lanes;
    for (int d0 = 0; d0 < distance; d0 += lanes) {
        int d[lanes];
        for (int lane = 0; lane < lanes; ++lane)
            d[lane] = d0 + lane;
        const VectorRadix8Twiddles<T> w =
            runs ? tableTwiddles<T, Inverse>(U, walk, d0) : vectorTwiddles<T, Inverse>(U, walk, d);
        for (int base = d0; base < points; base += span) {
            typename Avx<T>::V f[8];
            for (int k = 0; k < 8; ++k)
                f[k] = Avx<T>::load(data + 2 * (base + k * distance));
            radix8Butterflies<T>(f, w);
            for (int k = 0; k < 8; ++k)
                Avx<T>::store(data + 2 * (base + k * distance), f[k]);
        }
    }
}

// Float with distance 2: lanes are d = 0, 1 of two neighbouring groups s, s + 1.
template <bool Inverse>
FFT_AVX2 void radix8DistanceTwo(float* data, int points, const float* U, int tableSize) {
    const Radix8Walk walk(tableSize, 2);
    const int d[4] = {0, 1, 0, 1};
    const VectorRadix8Twiddles<float> w = vectorTwiddles<float, Inverse>(U, walk, d);
    for (int base = 0; base < points; base += 32) {
        __m256 f[8];
        for (int k = 0; k < 8; ++k)
            f[k] = _mm256_loadu2_m128(data + 2 * (base + 16 + 2 * k), data + 2 * (base + 2 * k));
        radix8Butterflies<float>(f, w);
        for (int k = 0; k < 8; ++k)
            _mm256_storeu2_m128(data + 2 * (base + 16 + 2 * k), data + 2 * (base + 2 * k), f[k]);
    }
}

// Two neighbouring points of pass 1 in one vector: 4 floats or 4 doubles.
template <typename T>
struct PointPair;

template <>
struct PointPair<float> {
    using V = __m128;
    FFT_AVX2_INLINE static V load(const float* p) { return _mm_loadu_ps(p); }
    FFT_AVX2_INLINE static void store(float* p, V v) { _mm_storeu_ps(p, v); }
    FFT_AVX2_INLINE static V broadcast(float v) { return _mm_set1_ps(v); }
    // (first point of a, first of b) and (second of a, second of b).
    FFT_AVX2_INLINE static V firsts(V a, V b) { return _mm_movelh_ps(a, b); }
    FFT_AVX2_INLINE static V seconds(V a, V b) { return _mm_movehl_ps(b, a); }
};

template <>
struct PointPair<double> {
    using V = __m256d;
    FFT_AVX2_INLINE static V load(const double* p) { return _mm256_loadu_pd(p); }
    FFT_AVX2_INLINE static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
    FFT_AVX2_INLINE static V broadcast(double v) { return _mm256_set1_pd(v); }
    FFT_AVX2_INLINE static V firsts(V a, V b) { return _mm256_permute2f128_pd(a, b, 0x20); }
    FFT_AVX2_INLINE static V seconds(V a, V b) { return _mm256_permute2f128_pd(a, b, 0x31); }
};

// One block of pass 1 as loaded: (A0, A1) at p and (A2, A3) at p + N/2.
template <typename T>
struct LevelOneBlock {
    typename PointPair<T>::V low;
    typename PointPair<T>::V high;
};

template <typename T>
FFT_AVX2_INLINE LevelOneBlock<T> loadBlock(const T* data, int p, int half) {
    return {PointPair<T>::load(data + 2 * p), PointPair<T>::load(data + 2 * (p + half))};
}

// Sums (B0, B2) and differences (B1, B3), scaled after, stored as (B0, B1) at p and
// (B2, B3) at p + N/2.
template <typename T, bool Scaled>
FFT_AVX2_INLINE void storeLevelOne(T* data, int p, int half, LevelOneBlock<T> x,
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

template <typename T, bool Scaled>
FFT_AVX2 void bitReverseVector(T* data, int m, T scale) {
    const ReversalGeometry g(m);
    const typename PointPair<T>::V scales = PointPair<T>::broadcast(scale);
    for (int mid = 0; mid < g.middles; ++mid) {
        const int a = g.middle(mid);
        for (int x = g.count - 1; x >= 0; --x) {
            const int revX = g.rev(x);
            for (int y = g.count - 1; y > x; --y) {
                const int px = g.block(a, x, g.rev(y));
                const int py = g.block(a, y, revX);
                const LevelOneBlock<T> first = loadBlock(data, px, g.half);
                const LevelOneBlock<T> second = loadBlock(data, py, g.half);
                storeLevelOne<T, Scaled>(data, py, g.half, first, scales);
                storeLevelOne<T, Scaled>(data, px, g.half, second, scales);
            }
            const int own = g.block(a, x, revX);
            storeLevelOne<T, Scaled>(data, own, g.half, loadBlock(data, own, g.half), scales);
        }
    }
}

// One bin pair per lane of the real unpacking (or packing): xk holds the bins of
// the k role, xm their mirrors m' = N/2 - k, point by point; c and s are the
// duplicated cosine and sine of w. The results replace xk and xm. Per point the
// operations are those of unpackPair and packPair.
template <typename T, bool Packing>
FFT_AVX2_INLINE void realPairVector(typename Avx<T>::V& xk, typename Avx<T>::V& xm, typename Avx<T>::V c,
                                    typename Avx<T>::V s) {
    using A = Avx<T>;
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
FFT_AVX2 int realQuadsVector(T* data, int n, const T* U) {
    using A = Avx<T>;
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

}  // namespace

template <typename T, bool Scaled>
void Avx2Passes::bitReverse(T* data, int m, T scale) {
    bitReverseVector<T, Scaled>(data, m, scale);
}

template <typename T, bool Inverse>
int Avx2Passes::leading(T* data, int points, int levelsAfterFirst) {
    return leadingPass<T, Inverse>(data, points, levelsAfterFirst);
}

template <typename T, bool Inverse>
void Avx2Passes::radix8(T* data, int points, int distance, const T* U, int tableSize) {
    if (distance >= Avx<T>::points) {
        radix8Consecutive<T, Inverse>(data, points, distance, U, tableSize);
        return;
    }
    if constexpr (std::is_same_v<T, float>) {
        if (points >= 32) {
            radix8DistanceTwo<Inverse>(data, points, U, tableSize);
            return;
        }
    }
    radix8Pass<T, Inverse>(data, points, distance, U, tableSize);
}

template <typename T>
void Avx2Passes::unpack(T* data, int n, const T* U) {
    unpackEnds(data, n);
    realEighths<T, false>(data, n, U);
    realQuads<T, false>(data, n, U, realQuadsVector<T, false>(data, n, U));
}

template <typename T>
void Avx2Passes::pack(T* data, int n, const T* U) {
    packEnds(data, n);
    realEighths<T, true>(data, n, U);
    realQuads<T, true>(data, n, U, realQuadsVector<T, true>(data, n, U));
}

#define FERROTIP_FFT_AVX2_INSTANTIATE(T)                                           \
    template void Avx2Passes::bitReverse<T, false>(T*, int, T);                    \
    template void Avx2Passes::bitReverse<T, true>(T*, int, T);                     \
    template int Avx2Passes::leading<T, false>(T*, int, int);                      \
    template int Avx2Passes::leading<T, true>(T*, int, int);                       \
    template void Avx2Passes::radix8<T, false>(T*, int, int, const T*, int);       \
    template void Avx2Passes::radix8<T, true>(T*, int, int, const T*, int);        \
    template void Avx2Passes::unpack<T>(T*, int, const T*);                        \
    template void Avx2Passes::pack<T>(T*, int, const T*);

FERROTIP_FFT_AVX2_INSTANTIATE(float)
FERROTIP_FFT_AVX2_INSTANTIATE(double)

}  // namespace standardLib::fft

#endif
