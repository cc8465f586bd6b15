// Direct time-domain correlation scan: a reference passage slid along a signal,
// one score per lag. Lag k compares ref[0 .. refLen) with elements k .. k+refLen-1
// of a zero-filled working copy of the signal, so late lags run into zeros.
//
// Working copy: shift < 0 places sig[0 .. sigLen) at working index -shift; shift >= 0
// reads sig[shift .. shift + sigLen) to index 0, so the caller provides shift
// readable elements past sig[sigLen - 1].
//
// normCorrelate: out[k] = dot(ref, window k) / (sqrt(Ea * Eb) + 1e-30), Ea the
// reference energy and Eb the window energy, slid lag by lag in 64-bit floats with no
// clamp and no recomputation (a loud passage ending in digital silence can leave Eb
// slightly negative and the score NaN). The float member rounds each square to float
// before widening, keeps the dot product in float and divides in float. Scores run
// about -1 .. 1, independent of level.
//
// scaledCorrelate: raw dot products, then by scaleMode: 1 times 1/(refLen+sigLen),
// 2 times 1/(refLen+sigLen-k), 3 leaves out[0 .. numLags) raw and multiplies the
// following numLags elements by the peak |out[k]| (out then needs 2 * numLags
// elements), anything else raw.
//
// Both return 0, write nothing when numLags < 1 and never change ref or sig; out
// must not overlap them. refLen >= 1 (a zero-length reference scores 0 everywhere).
// Each call allocates its working copy (max(sigLen, refLen) + |shift| + numLags
// elements) and nothing else; calls share no state, so any thread may call.
#pragma once

#include "waveform/LagKernels.h"

int normCorrelate(const float* ref, int refLen, const float* sig, int sigLen, float* out,
                  int numLags, int shift);
int normCorrelate(const double* ref, int refLen, const double* sig, int sigLen, double* out,
                  int numLags, int shift);

int scaledCorrelate(const float* ref, int refLen, const float* sig, int sigLen, float* out,
                    int numLags, int shift, unsigned int scaleMode);
int scaledCorrelate(const double* ref, int refLen, const double* sig, int sigLen, double* out,
                    int numLags, int shift, unsigned int scaleMode);

// The float members on a chosen lag kernel (the ones above take the fastest); every
// path gives the same bits.
int normCorrelate(ScanPath path, const float* ref, int refLen, const float* sig, int sigLen,
                  float* out, int numLags, int shift);
int scaledCorrelate(ScanPath path, const float* ref, int refLen, const float* sig, int sigLen,
                    float* out, int numLags, int shift, unsigned int scaleMode);
