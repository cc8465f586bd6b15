// Test scenarios for the Kalman filter: a stable AR signal plus AR(2) noise whose
// drive variance jumps in flagged bursts, generated in double from fixed seeds.
#pragma once

#include "kalman/Kalman.h"
#include "kalman/RowMatrix.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <random>
#include <vector>

namespace kalman_test {

// A full AR polynomial (leading 1) of the given order with every pole inside the
// unit circle: resonant pairs at radius 0.95, and a real pole at 0.5 for odd orders.
inline std::vector<float> stablePolynomial(int order) {
    std::vector<double> poly{1.0};
    auto multiply = [&poly](const std::vector<double>& factor) {
        std::vector<double> out(poly.size() + factor.size() - 1, 0.0);
        for (std::size_t i = 0; i < poly.size(); ++i)
            for (std::size_t j = 0; j < factor.size(); ++j) out[i + j] += poly[i] * factor[j];
        poly = out;
    };
    const double pi = 3.14159265358979323846;
    for (int pair = 0; pair < order / 2; ++pair) {
        const double angle = pi * (pair + 0.5) / (order / 2 + 1);
        multiply({1.0, -2.0 * 0.95 * std::cos(angle), 0.95 * 0.95});
    }
    if (order % 2 != 0) multiply({1.0, -0.5});
    return std::vector<float>(poly.begin(), poly.end());
}

struct Scenario {
    std::vector<float> signalAr;
    std::vector<float> noiseAr{1.0f, -0.5f, 0.2f};
    float signalVariance = 1.0f;
    float cleanVariance = 0.01f;
    float flaggedVariance = 25.0f;
    std::vector<int> flags;
    std::vector<double> signal;
    std::vector<double> noise;
    std::vector<float> observed;
};

// length samples; every 400 samples a burst of 60 flagged ones, starting at 150.
inline Scenario makeScenario(int signalOrder, int length, std::uint32_t seed) {
    Scenario s;
    s.signalAr = stablePolynomial(signalOrder);
    s.flags.assign(static_cast<std::size_t>(length), 0);
    for (int n = 0; n < length; ++n)
        if (n % 400 >= 150 && n % 400 < 210) s.flags[static_cast<std::size_t>(n)] = 1;
    std::mt19937 generator(seed);
    std::normal_distribution<double> unit(0.0, 1.0);
    s.signal.assign(static_cast<std::size_t>(length), 0.0);
    s.noise.assign(static_cast<std::size_t>(length), 0.0);
    s.observed.assign(static_cast<std::size_t>(length), 0.0f);
    auto past = [](const std::vector<double>& x, int n, int lag) {
        return n - lag >= 0 ? x[static_cast<std::size_t>(n - lag)] : 0.0;
    };
    for (int n = 0; n < length; ++n) {
        const std::size_t i = static_cast<std::size_t>(n);
        double value = std::sqrt(static_cast<double>(s.signalVariance)) * unit(generator);
        for (int k = 1; k <= signalOrder; ++k) value -= s.signalAr[static_cast<std::size_t>(k)] * past(s.signal, n, k);
        s.signal[i] = value;
        const double drive = s.flags[i] == 1 ? s.flaggedVariance : s.cleanVariance;
        s.noise[i] = std::sqrt(drive) * unit(generator) - s.noiseAr[1] * past(s.noise, n, 1) -
                     s.noiseAr[2] * past(s.noise, n, 2);
        s.observed[i] = static_cast<float>(s.signal[i] + s.noise[i]);
    }
    return s;
}

// setModels, setNoise and start with a zero initial state.
inline void configure(Kalman& filter, const Scenario& s, int delay, int outputSignal) {
    filter.setModels(s.signalAr.data(), static_cast<int>(s.signalAr.size()), s.noiseAr.data(),
                     static_cast<int>(s.noiseAr.size()));
    filter.setNoise(s.signalVariance, s.cleanVariance, s.flaggedVariance, s.flags.data(),
                    static_cast<int>(s.flags.size()));
    const std::vector<float> initial(s.signalAr.size() - 1 + static_cast<std::size_t>(delay), 0.0f);
    filter.start(delay, initial.data(), outputSignal);
}

inline std::uint32_t bitsOf(float value) {
    std::uint32_t bits = 0;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

// Bitwise equality of two float ranges (NaNs included).
inline bool sameBits(const float* a, const float* b, int n) {
    return std::memcmp(a, b, static_cast<std::size_t>(n) * sizeof(float)) == 0;
}

inline kalman::RowMatrix makeMatrix(std::initializer_list<std::initializer_list<float>> rows) {
    const int cols = rows.size() == 0 ? 0 : static_cast<int>(rows.begin()->size());
    kalman::RowMatrix m(static_cast<int>(rows.size()), cols);
    int r = 0;
    for (const auto& row : rows) {
        int c = 0;
        for (float v : row) m[r][c++] = v;
        ++r;
    }
    return m;
}

}  // namespace kalman_test
