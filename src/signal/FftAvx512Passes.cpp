// AVX-512 path of the transform kernels: 8 float or 4 double complex points per
// vector, and 32 vector registers, so a radix-8 butterfly group with its seven
// twiddles stays in registers. Only avx512f/vl/dq are enabled here, never fma.
#include "signal/FftVectorPasses.h"

#if FERROTIP_FFT_HAS_X86_PATHS

#include <immintrin.h>

// GCC 12 takes the undefined pass-through operand inside its own AVX-512 permute
// intrinsics for an uninitialised read (a false report, gone in later releases).
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define FFT_VECTOR_TARGET "avx2,avx512f,avx512vl,avx512dq"
#define FFT_VECTOR_NAMESPACE avx512
#define FFT_VECTOR_KERNELS avx512Kernels
#define FFT_AVX512_INLINE __attribute__((target(FFT_VECTOR_TARGET), always_inline)) inline

namespace standardLib::fft::avx512 {

template <typename T>
struct Vec;

template <>
struct Vec<float> {
    using V = __m512;
    static constexpr int points = 8;
    FFT_AVX512_INLINE static V load(const float* p) { return _mm512_loadu_ps(p); }
    FFT_AVX512_INLINE static void store(float* p, V v) { _mm512_storeu_ps(p, v); }
    FFT_AVX512_INLINE static V swapParts(V v) { return _mm512_permute_ps(v, 0xB1); }
    FFT_AVX512_INLINE static V reversePoints(V v) {
        return _mm512_castpd_ps(_mm512_permutexvar_pd(_mm512_setr_epi64(7, 6, 5, 4, 3, 2, 1, 0), _mm512_castps_pd(v)));
    }
    // Eight values (or fifteen for a step of 2) spread to (v[i], v[i]) pairs.
    FFT_AVX512_INLINE static V spread(__m512i index, V values) { return _mm512_permutexvar_ps(index, values); }
    FFT_AVX512_INLINE static __m512i pairIndex(int first, int step) {
        return _mm512_add_epi32(_mm512_set1_epi32(first),
                                _mm512_mullo_epi32(_mm512_set1_epi32(step),
                                                   _mm512_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7)));
    }
    FFT_AVX512_INLINE static V duplicated(const float* p) {
        return spread(pairIndex(0, 1), _mm512_castps256_ps512(_mm256_loadu_ps(p)));
    }
    FFT_AVX512_INLINE static V duplicatedReversed(const float* p) {
        return spread(pairIndex(7, -1), _mm512_castps256_ps512(_mm256_loadu_ps(p)));
    }
    // Steps of 1 and 2 are contiguous (masked) loads, wider steps a gather.
    FFT_AVX512_INLINE static V duplicatedRun(const float* U, int b, int s) {
        switch (s) {
        case 1: return duplicated(U + b);
        case -1: return duplicatedReversed(U + b - 7);
        case 2: return spread(pairIndex(0, 2), _mm512_maskz_loadu_ps(0x7FFF, U + b));
        case -2: return spread(pairIndex(14, -2), _mm512_maskz_loadu_ps(0x7FFF, U + b - 14));
        default: {
            const __m256i offsets = _mm256_mullo_epi32(_mm256_set1_epi32(s), _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7));
            return spread(pairIndex(0, 1), _mm512_castps256_ps512(_mm256_i32gather_ps(U + b, offsets, 4)));
        }
        }
    }
    FFT_AVX512_INLINE static V flipReal(V v) {
        return _mm512_xor_ps(v, _mm512_castsi512_ps(_mm512_set1_epi64(0x80000000LL)));
    }
    FFT_AVX512_INLINE static V flipImaginary(V v) {
        return _mm512_xor_ps(v, _mm512_castsi512_ps(_mm512_set1_epi64(static_cast<long long>(0x8000000000000000ULL))));
    }
    FFT_AVX512_INLINE static V flipAll(V v) { return _mm512_xor_ps(v, _mm512_set1_ps(-0.0f)); }
    // Halves of two vectors, or quarters of four.
    template <int B>
    FFT_AVX512_INLINE static void transpose(V (&rows)[B]) {
        static_assert(B == 2 || B == 4);
        if constexpr (B == 2) {
            const V first = rows[0];
            rows[0] = _mm512_shuffle_f32x4(first, rows[1], 0x44);
            rows[1] = _mm512_shuffle_f32x4(first, rows[1], 0xEE);
        } else {
            const V t0 = _mm512_shuffle_f32x4(rows[0], rows[1], 0x44);  // 00 01 10 11
            const V t1 = _mm512_shuffle_f32x4(rows[0], rows[1], 0xEE);  // 02 03 12 13
            const V t2 = _mm512_shuffle_f32x4(rows[2], rows[3], 0x44);  // 20 21 30 31
            const V t3 = _mm512_shuffle_f32x4(rows[2], rows[3], 0xEE);  // 22 23 32 33
            rows[0] = _mm512_shuffle_f32x4(t0, t2, 0x88);
            rows[1] = _mm512_shuffle_f32x4(t0, t2, 0xDD);
            rows[2] = _mm512_shuffle_f32x4(t1, t3, 0x88);
            rows[3] = _mm512_shuffle_f32x4(t1, t3, 0xDD);
        }
    }
};

template <>
struct Vec<double> {
    using V = __m512d;
    static constexpr int points = 4;
    FFT_AVX512_INLINE static V load(const double* p) { return _mm512_loadu_pd(p); }
    FFT_AVX512_INLINE static void store(double* p, V v) { _mm512_storeu_pd(p, v); }
    FFT_AVX512_INLINE static V swapParts(V v) { return _mm512_permute_pd(v, 0x55); }
    FFT_AVX512_INLINE static V reversePoints(V v) {
        return _mm512_permutexvar_pd(_mm512_setr_epi64(6, 7, 4, 5, 2, 3, 0, 1), v);
    }
    FFT_AVX512_INLINE static V spread(__m512i index, V values) { return _mm512_permutexvar_pd(index, values); }
    FFT_AVX512_INLINE static __m512i pairIndex(int first, int step) {
        return _mm512_add_epi64(_mm512_set1_epi64(first),
                                _mm512_mullo_epi64(_mm512_set1_epi64(step), _mm512_setr_epi64(0, 0, 1, 1, 2, 2, 3, 3)));
    }
    FFT_AVX512_INLINE static V duplicated(const double* p) {
        return spread(pairIndex(0, 1), _mm512_castpd256_pd512(_mm256_loadu_pd(p)));
    }
    FFT_AVX512_INLINE static V duplicatedReversed(const double* p) {
        return spread(pairIndex(3, -1), _mm512_castpd256_pd512(_mm256_loadu_pd(p)));
    }
    FFT_AVX512_INLINE static V duplicatedRun(const double* U, int b, int s) {
        switch (s) {
        case 1: return duplicated(U + b);
        case -1: return duplicatedReversed(U + b - 3);
        case 2: return spread(pairIndex(0, 2), _mm512_maskz_loadu_pd(0x7F, U + b));
        case -2: return spread(pairIndex(6, -2), _mm512_maskz_loadu_pd(0x7F, U + b - 6));
        default: {
            const __m128i offsets = _mm_mullo_epi32(_mm_set1_epi32(s), _mm_setr_epi32(0, 1, 2, 3));
            return spread(pairIndex(0, 1), _mm512_castpd256_pd512(_mm256_i32gather_pd(U + b, offsets, 8)));
        }
        }
    }
    FFT_AVX512_INLINE static V flipReal(V v) {
        return _mm512_xor_pd(v, _mm512_setr_pd(-0.0, 0.0, -0.0, 0.0, -0.0, 0.0, -0.0, 0.0));
    }
    FFT_AVX512_INLINE static V flipImaginary(V v) {
        return _mm512_xor_pd(v, _mm512_setr_pd(0.0, -0.0, 0.0, -0.0, 0.0, -0.0, 0.0, -0.0));
    }
    FFT_AVX512_INLINE static V flipAll(V v) { return _mm512_xor_pd(v, _mm512_set1_pd(-0.0)); }
    // Halves of two vectors.
    template <int B>
    FFT_AVX512_INLINE static void transpose(V (&rows)[B]) {
        static_assert(B == 2);
        const V first = rows[0];
        rows[0] = _mm512_shuffle_f64x2(first, rows[1], 0x44);
        rows[1] = _mm512_shuffle_f64x2(first, rows[1], 0xEE);
    }
};

}  // namespace standardLib::fft::avx512

#include "signal/FftVectorGraph.h"

#endif
