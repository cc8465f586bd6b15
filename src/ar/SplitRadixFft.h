// In-place split-radix transforms in 32-bit float, and the power spectrum of a block.
//
// Sizes: n must be a power of two, at least 2. Any other size ends the process with
// exit status 1 and no message (all three transforms); powerSpectrum checks first.
// Sign: the forward transforms compute X[k] = sum_t x[t] e^{-2πi kt/n}.
// Packed half spectrum of n real values: entry 0 = Re X[0], entry n/2 = Re X[n/2],
// entry k = Re X[k] and entry n - k = Im X[k] for k = 1 .. n/2 - 1.
// No scaling anywhere: inverseRealFft(forwardRealFft(x)) = n x.
// Twiddles come from StageTwiddles: no table; the library sine and cosine are called
// for the start angle only.
// The transforms do not allocate; powerSpectrum allocates its scratch copy. Any thread.
#pragma once

#include <array>
#include <cstdint>

inline constexpr int powerSpectrumCapacity = 8192;

// True for the sizes the transforms accept: powers of two from 2 up.
bool isTransformSize(int n);

// Real forward transform, decimation in time: data[0..n-1] becomes the packed spectrum.
void forwardRealFft(float* data, int n);

// Inverse of forwardRealFft without the 1/n: a packed spectrum becomes n times the signal.
void inverseRealFft(float* data, int n);

// Complex forward transform (e^{-i}) on split arrays, decimation in frequency, natural
// order in and out.
void complexFft(float* re, float* im, int n);

struct PowerSpectrumBlock {
    std::array<float, powerSpectrumCapacity> block{};
    std::int32_t length = 0;
};

// For a power-of-two length n (2 .. 8192): entry 0 = X[0]², entry n/2 = X[n/2]², and
// |X[k]|² in both entry k and entry n - k for k = 1 .. n/2 - 1. Entries from n on are
// kept. Any other length, also a power of two above the block's 8192, leaves the
// block as it is.
// Read as a packed spectrum, entry n - k is the imaginary part of bin k, so
// inverseRealFft of this block gives n times the circular autocorrelation only after
// entries n/2 + 1 .. n - 1 are cleared.
void powerSpectrum(PowerSpectrumBlock& record);
