// AVX2 path of the transform kernels: 4 float or 2 double complex points per
// vector. Only avx2 is enabled here, never fma.
#include "signal/FftVectorPasses.h"

#if FERROTIP_FFT_HAS_X86_PATHS

#include <immintrin.h>

#define FFT_VECTOR_TARGET "avx2"
#define FFT_VECTOR_NAMESPACE avx2
#define FFT_VECTOR_KERNELS avx2Kernels
#define FFT_AVX2_INLINE __attribute__((target(FFT_VECTOR_TARGET), always_inline)) inline

namespace standardLib::fft::avx2 {

template <typename T>
struct Vec;

template <>
struct Vec<float> {
    using V = __m256;
    static constexpr int points = 4;
    FFT_AVX2_INLINE static V load(const float* p) { return _mm256_loadu_ps(p); }
    FFT_AVX2_INLINE static void store(float* p, V v) { _mm256_storeu_ps(p, v); }
    FFT_AVX2_INLINE static V swapParts(V v) { return _mm256_permute_ps(v, 0xB1); }
    FFT_AVX2_INLINE static V reversePoints(V v) {
        return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(v), 0x1B));
    }
    FFT_AVX2_INLINE static V duplicated(const float* p) {
        return _mm256_permutevar8x32_ps(_mm256_castps128_ps256(_mm_loadu_ps(p)),
                                        _mm256_setr_epi32(0, 0, 1, 1, 2, 2, 3, 3));
    }
    FFT_AVX2_INLINE static V duplicatedReversed(const float* p) {
        return _mm256_permutevar8x32_ps(_mm256_castps128_ps256(_mm_loadu_ps(p)),
                                        _mm256_setr_epi32(3, 3, 2, 2, 1, 1, 0, 0));
    }
    // Steps of 1 and 2 are contiguous (masked) loads.
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
    FFT_AVX2_INLINE static V flipReal(V v) {
        return _mm256_xor_ps(v, _mm256_setr_ps(-0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f));
    }
    FFT_AVX2_INLINE static V flipImaginary(V v) {
        return _mm256_xor_ps(v, _mm256_setr_ps(0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f, 0.0f, -0.0f));
    }
    FFT_AVX2_INLINE static V flipAll(V v) { return _mm256_xor_ps(v, _mm256_set1_ps(-0.0f)); }
    // Halves of two vectors.
    template <int B>
    FFT_AVX2_INLINE static void transpose(V (&rows)[B]) {
        static_assert(B == 2);
        const V first = rows[0];
        rows[0] = _mm256_permute2f128_ps(first, rows[1], 0x20);
        rows[1] = _mm256_permute2f128_ps(first, rows[1], 0x31);
    }
};

template <>
struct Vec<double> {
    using V = __m256d;
    static constexpr int points = 2;
    FFT_AVX2_INLINE static V load(const double* p) { return _mm256_loadu_pd(p); }
    FFT_AVX2_INLINE static void store(double* p, V v) { _mm256_storeu_pd(p, v); }
    FFT_AVX2_INLINE static V swapParts(V v) { return _mm256_permute_pd(v, 0x5); }
    FFT_AVX2_INLINE static V reversePoints(V v) { return _mm256_permute2f128_pd(v, v, 0x01); }
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

}  // namespace standardLib::fft::avx2

#include "signal/FftVectorGraph.h"

#endif
