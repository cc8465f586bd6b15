// Test inputs for the waveform subsystem: seeded random noise, audio-like material
// (tones under an envelope, with quiet passages and digital silence) and small
// integers, on which every float sum of the scan is exact.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

namespace waveform_test {

inline std::vector<float> randomSignal(std::size_t count, std::uint32_t seed, float scale = 1.0f)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> uniform(-scale, scale);
    std::vector<float> x(count);
    for (float& v : x) v = uniform(generator);
    return x;
}

// Three partials with a slow amplitude envelope, a little noise, a fade to digital
// silence in the last eighth and a loud burst just before it.
inline std::vector<float> audioLikeSignal(std::size_t count, std::uint32_t seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> noise(0.0, 0.01);
    const double pi = 3.14159265358979323846;
    std::vector<float> x(count);
    const std::size_t silenceFrom = count - count / 8;
    for (std::size_t n = 0; n < count; ++n) {
        if (n >= silenceFrom) break;  // digital silence
        const double t = static_cast<double>(n);
        const double envelope = 0.5 + 0.45 * std::sin(2.0 * pi * t / 7919.0);
        double v = 0.6 * std::sin(2.0 * pi * t * 0.0211) +
                   0.3 * std::sin(2.0 * pi * t * 0.0537 + 1.0) +
                   0.1 * std::sin(2.0 * pi * t * 0.1313 + 2.0);
        v = envelope * v + noise(generator);
        if (n + 200 >= silenceFrom) v *= 8.0;  // loud passage ending in silence
        x[n] = static_cast<float>(v);
    }
    return x;
}

// Integers in [-limit, limit]: products and sums of a 1000-tap scan stay exact.
inline std::vector<float> smallIntegerSignal(std::size_t count, std::uint32_t seed, int limit = 3)
{
    std::mt19937 generator(seed);
    std::uniform_int_distribution<int> uniform(-limit, limit);
    std::vector<float> x(count);
    for (float& v : x) v = static_cast<float>(uniform(generator));
    return x;
}

// A random integer pattern of `period` samples repeated to `count` samples.
inline std::vector<float> periodicIntegerSignal(std::size_t count, int period, std::uint32_t seed)
{
    const std::vector<float> pattern = smallIntegerSignal(static_cast<std::size_t>(period), seed);
    std::vector<float> x(count);
    for (std::size_t n = 0; n < count; ++n) x[n] = pattern[n % static_cast<std::size_t>(period)];
    return x;
}

inline std::uint32_t bitsOf(float v)
{
    std::uint32_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    return bits;
}

// Index of the first element whose bits differ, or -1.
inline long firstBitDifference(const float* a, const float* b, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        if (bitsOf(a[i]) != bitsOf(b[i])) return static_cast<long>(i);
    return -1;
}

}  // namespace waveform_test
