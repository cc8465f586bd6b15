// Seeded test signals for the declipper: a few sinusoids with slowly varying
// amplitudes (sparse in a DFT frame, like tonal music), peak about 1.
#pragma once

#include <cmath>
#include <cstdint>
#include <vector>

#include "ar/ClassicRand.h"

namespace declipsignals {

inline std::vector<float> tonal(std::size_t length, unsigned seed, int partials = 5)
{
    ferrotip::srand(seed);
    std::vector<double> frequency, phase, amplitude;
    for (int p = 0; p < partials; ++p) {
        frequency.push_back(0.005 + 0.08 * ferrotip::rand() / 32767.0);  // cycles per sample
        phase.push_back(6.283185307179586 * ferrotip::rand() / 32767.0);
        amplitude.push_back(0.2 + 0.8 * ferrotip::rand() / 32767.0);
    }
    std::vector<float> signal(length);
    double peak = 0.0;
    for (std::size_t n = 0; n < length; ++n) {
        double sum = 0.0;
        for (int p = 0; p < partials; ++p)
            sum += amplitude[p] * (1.0 + 0.3 * std::sin(0.0003 * n + p)) * std::sin(6.283185307179586 * frequency[p] * n + phase[p]);
        signal[n] = static_cast<float>(sum);
        peak = std::max(peak, std::fabs(sum));
    }
    for (float& x : signal) x = static_cast<float>(x / peak);
    return signal;
}

}  // namespace declipsignals
