// The analysis segment of the least-squares AR repair: the window of each mode,
// where the windowed stretch sits in the 2N-sample span around the gap, and the
// integer noise that is added and taken out again.
//
// span holds samples[start - N .. start + N - 1]: N samples before the gap's
// first sample and N from it on. Windows have N points (N <= 1024). No allocation.
#pragma once

#include <cstdint>

inline constexpr int maxAnalysisLength = 1024;

// How the centred Hann window of modes 1 and 2 is evaluated: in 32-bit float (the
// repair itself) or wholly in 64-bit float and narrowed once.
enum class HannPrecision { float32, float64 };

// Window of `mode` (1 to 4) over n points into window[0..n-1].
// Modes 1, 2: periodic Hann divided by n, centred on the gap's first sample.
// Mode 3: long rise, short fall; mode 4: the same turned round (each narrowed from
// 64-bit values).
void buildAnalysisWindow(int mode, int n, float* window,
                         HannPrecision precision = HannPrecision::float32);

// Index in span of the first windowed sample: n - n/2 (modes 1, 2), gapLength
// (mode 3, the n samples ending with the gap's last sample), n (mode 4, the n
// samples starting at the gap's first sample).
int windowedSegmentOffset(int mode, int n, int gapLength);

// Writes window[i] * span[offset + i] over span[0..n-1] for the mode.
void windowSpan(int mode, int n, int gapLength, float* span,
                HannPrecision precision = HannPrecision::float32);

// The multiplicative generator behind the integer noise: s = s * multiplier
// (mod 2^32), restarted at i when it reaches zero. Adds (sign +1) or subtracts
// (sign -1) s * 2^-32, in float, to span[0..count-1].
void applyIntegerNoise(float* span, int count, std::uint32_t seed, std::uint32_t multiplier,
                       float sign);

// Generator constants from the seed value: truncations of seedValue * 1000.0 and
// seedValue * 10000.0 formed in double; the generator keeps their low 32 bits.
std::uint32_t noiseSeed(int seedValue);
std::uint32_t noiseMultiplier(int seedValue);

// float -> int32 truncation as the x86 conversion does it: values outside the
// range (and NaN) give INT32_MIN instead of undefined behaviour.
std::int32_t truncateToInt32(double value);
std::int64_t truncateToInt64(double value);
