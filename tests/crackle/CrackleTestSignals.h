// Test signals and a streaming driver shared by the crackle tests.
#pragma once

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "crackle/MetaDeCrackler.h"

namespace cracklefixture {

using Channels = std::vector<std::vector<float>>;

constexpr double sampleRate = 44100.0;
constexpr double twoPi = 6.283185307179586;

// A recording-like signal: a few partials with vibrato and a slow envelope over a
// little broadband noise. Each channel has its own phase and noise.
inline Channels musicLike(int channels, int count, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> noise(0.0, 0.002);
    Channels x(channels, std::vector<float>(count));
    for (int c = 0; c < channels; ++c) {
        for (int t = 0; t < count; ++t) {
            const double time = t / sampleRate;
            const double vibrato = 1.0 + 0.003 * std::sin(twoPi * 5.0 * time);
            const double envelope = 0.6 + 0.4 * std::sin(twoPi * 0.7 * time + c);
            double v = 0.0;
            for (int h = 1; h <= 6; ++h)
                v += 0.25 / h * std::sin(twoPi * 196.0 * h * vibrato * time + h + 0.5 * c);
            x[c][t] = static_cast<float>(envelope * v + noise(rng));
        }
    }
    return x;
}

// A steady sinusoid on every channel.
inline Channels sine(int channels, int count, double frequency, double amplitude)
{
    Channels x(channels, std::vector<float>(count));
    for (int c = 0; c < channels; ++c)
        for (int t = 0; t < count; ++t)
            x[c][t] = static_cast<float>(amplitude * std::sin(twoPi * frequency * t / sampleRate + c));
    return x;
}

// Low-level Gaussian noise on every channel.
inline Channels noise(int channels, int count, double deviation, unsigned seed)
{
    std::mt19937 rng(seed);
    std::normal_distribution<double> gauss(0.0, deviation);
    Channels x(channels, std::vector<float>(count));
    for (auto& row : x)
        for (auto& v : row) v = static_cast<float>(gauss(rng));
    return x;
}

// A click of `length` samples: a single impulse for length 1, otherwise a damped
// broadband burst, as dust and scratches leave them.
inline std::vector<float> clickShape(int length, double amplitude, std::mt19937& rng)
{
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::vector<float> shape(length);
    const double sign = unit(rng) < 0.0 ? -1.0 : 1.0;
    for (int i = 0; i < length; ++i) {
        const double decay = std::exp(-3.0 * i / length);
        const double value = i == 0 ? sign : 0.6 * unit(rng) + 0.4 * sign;
        shape[i] = static_cast<float>(amplitude * decay * value);
    }
    return shape;
}

// Runs `input` through `engine` in blocks of `blockSize`, feeding zeros past its end
// so that the whole input comes out; returns what the engine handed back.
inline Channels stream(MetaDeCrackler& engine, const Channels& input, int blockSize, int extra = 0)
{
    const int channels = static_cast<int>(input.size());
    const int count = static_cast<int>(input[0].size()) + extra;
    const int blocks = (count + blockSize - 1) / blockSize;
    Channels output(channels, std::vector<float>(static_cast<size_t>(blocks) * blockSize));
    std::vector<std::vector<float>> block(channels, std::vector<float>(blockSize));
    std::vector<float*> io(channels);
    for (int b = 0; b < blocks; ++b) {
        for (int c = 0; c < channels; ++c) {
            for (int i = 0; i < blockSize; ++i) {
                const size_t t = static_cast<size_t>(b) * blockSize + i;
                block[c][i] = t < input[c].size() ? input[c][t] : 0.0f;
            }
            io[c] = block[c].data();
        }
        engine.process(io.data(), blockSize);
        for (int c = 0; c < channels; ++c)
            std::copy(block[c].begin(), block[c].end(), output[c].begin() + static_cast<long>(b) * blockSize);
    }
    return output;
}

}  // namespace cracklefixture
