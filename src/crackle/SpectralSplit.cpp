#include "crackle/SpectralSplit.h"

#include <algorithm>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace spectralsplit {

namespace {

// Bins at or below this power go wholly to the residual, with no division.
constexpr float vanishingPower = 1e-11f;

void splitBin(float* tonalRe, float* tonalIm, float* residualRe, float* residualIm, int k,
              float spectralFloor)
{
    const float re = tonalRe[k];
    const float im = tonalIm[k];
    const float g = tonalGain(re, im, spectralFloor);
    residualRe[k] = (1.0f - g) * re;
    residualIm[k] = (1.0f - g) * im;
    tonalRe[k] = g * re;
    tonalIm[k] = g * im;
}

#if defined(__SSE2__)
// Four bins at a time with the scalar path's operations in the same order. maxps
// and minps return their second operand when unordered, which with (0, x) and
// (1, r) is what std::max(x, 0) and std::min(r, 1) return; the division of a
// vanishing bin is by 1 and its quotient is dropped.
void splitSse2Kernel(float* tonalRe, float* tonalIm, float* residualRe, float* residualIm, int bins,
                     float spectralFloor)
{
    const __m128 floor = _mm_set1_ps(spectralFloor);
    const __m128 zero = _mm_setzero_ps();
    const __m128 one = _mm_set1_ps(1.0f);
    const __m128 vanishing = _mm_set1_ps(vanishingPower);
    int k = 0;
    for (; k + 4 <= bins; k += 4) {
        const __m128 re = _mm_loadu_ps(tonalRe + k);
        const __m128 im = _mm_loadu_ps(tonalIm + k);
        const __m128 power = _mm_add_ps(_mm_mul_ps(re, re), _mm_mul_ps(im, im));
        const __m128 audible = _mm_cmpgt_ps(power, vanishing);
        const __m128 gain = _mm_max_ps(zero, _mm_sub_ps(power, floor));
        const __m128 divisor = _mm_or_ps(_mm_and_ps(audible, power), _mm_andnot_ps(audible, one));
        const __m128 g = _mm_and_ps(audible, _mm_min_ps(one, _mm_div_ps(gain, divisor)));
        const __m128 rest = _mm_sub_ps(one, g);
        _mm_storeu_ps(residualRe + k, _mm_mul_ps(rest, re));
        _mm_storeu_ps(residualIm + k, _mm_mul_ps(rest, im));
        _mm_storeu_ps(tonalRe + k, _mm_mul_ps(g, re));
        _mm_storeu_ps(tonalIm + k, _mm_mul_ps(g, im));
    }
    for (; k < bins; ++k) splitBin(tonalRe, tonalIm, residualRe, residualIm, k, spectralFloor);
}

Kernel sse2IfPresent()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("sse2") ? splitSse2Kernel : nullptr;
}
#else
Kernel sse2IfPresent() { return nullptr; }
#endif

#if defined(__x86_64__)
// Eight bins at a time, the SSE2 kernel's operations on wider registers (vmaxps and
// vminps keep maxps's and minps's rule for unordered operands).
__attribute__((target("avx2"))) void splitAvx2Kernel(float* tonalRe, float* tonalIm, float* residualRe,
                                                     float* residualIm, int bins, float spectralFloor)
{
    const __m256 floor = _mm256_set1_ps(spectralFloor);
    const __m256 zero = _mm256_setzero_ps();
    const __m256 one = _mm256_set1_ps(1.0f);
    const __m256 vanishing = _mm256_set1_ps(vanishingPower);
    int k = 0;
    for (; k + 8 <= bins; k += 8) {
        const __m256 re = _mm256_loadu_ps(tonalRe + k);
        const __m256 im = _mm256_loadu_ps(tonalIm + k);
        const __m256 power = _mm256_add_ps(_mm256_mul_ps(re, re), _mm256_mul_ps(im, im));
        const __m256 audible = _mm256_cmp_ps(power, vanishing, _CMP_GT_OS);
        const __m256 gain = _mm256_max_ps(zero, _mm256_sub_ps(power, floor));
        const __m256 divisor = _mm256_or_ps(_mm256_and_ps(audible, power), _mm256_andnot_ps(audible, one));
        const __m256 g = _mm256_and_ps(audible, _mm256_min_ps(one, _mm256_div_ps(gain, divisor)));
        const __m256 rest = _mm256_sub_ps(one, g);
        _mm256_storeu_ps(residualRe + k, _mm256_mul_ps(rest, re));
        _mm256_storeu_ps(residualIm + k, _mm256_mul_ps(rest, im));
        _mm256_storeu_ps(tonalRe + k, _mm256_mul_ps(g, re));
        _mm256_storeu_ps(tonalIm + k, _mm256_mul_ps(g, im));
    }
    for (; k < bins; ++k) splitBin(tonalRe, tonalIm, residualRe, residualIm, k, spectralFloor);
}

Kernel avx2IfPresent()
{
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") ? splitAvx2Kernel : nullptr;
}
#else
Kernel avx2IfPresent() { return nullptr; }
#endif

}  // namespace

float tonalGain(float re, float im, float spectralFloor)
{
    const float power = re * re + im * im;
    float gain = std::max(power - spectralFloor, 0.0f);
    if (power > vanishingPower)
        gain = std::min(gain / power, 1.0f);
    else
        gain = 0.0f;
    return gain;
}

void splitScalar(float* tonalRe, float* tonalIm, float* residualRe, float* residualIm, int bins,
                 float spectralFloor)
{
    for (int k = 0; k < bins; ++k) splitBin(tonalRe, tonalIm, residualRe, residualIm, k, spectralFloor);
}

const Kernel splitSse2 = sse2IfPresent();
const Kernel splitAvx2 = avx2IfPresent();

namespace {
const Kernel active = splitAvx2 != nullptr ? splitAvx2 : splitSse2 != nullptr ? splitSse2 : splitScalar;
}

void splitSpectrum(float* tonalRe, float* tonalIm, float* residualRe, float* residualIm, int bins,
                   float spectralFloor)
{
    active(tonalRe, tonalIm, residualRe, residualIm, bins, spectralFloor);
}

const char* activeKernel() { return active == splitScalar ? "scalar" : active == splitSse2 ? "sse2" : "avx2"; }

}  // namespace spectralsplit
