// The power-complementary split of a spectrum into tonal and residual parts.
//
// For each bin, P = re^2 + im^2 and the tonal gain g = clamp((P - floor) / P, 0, 1),
// or 0 when P <= 1e-11; the tonal part is g * X, the residual part (1 - g) * X, all
// in single precision, so the parts sum to the input up to rounding. The tonal rows
// hold the input and are overwritten in place; the residual rows are written.
// Rows must not overlap one another. No allocation; any thread.
//
// splitSpectrum uses the fastest kernel this CPU has (chosen once, at load); the
// named kernels exist so that tests can compare them bit for bit.
#pragma once

namespace spectralsplit {

// Tonal gain of one bin.
float tonalGain(float re, float im, float spectralFloor);

using Kernel = void (*)(float* tonalRe, float* tonalIm, float* residualRe, float* residualIm,
                        int bins, float spectralFloor);

void splitScalar(float* tonalRe, float* tonalIm, float* residualRe, float* residualIm, int bins,
                 float spectralFloor);
// Null where the CPU or the build has no SSE2.
extern const Kernel splitSse2;
// Null where the CPU or the build has no AVX2.
extern const Kernel splitAvx2;

void splitSpectrum(float* tonalRe, float* tonalIm, float* residualRe, float* residualIm, int bins,
                   float spectralFloor);
// "avx2", "sse2" or "scalar".
const char* activeKernel();

}  // namespace spectralsplit
