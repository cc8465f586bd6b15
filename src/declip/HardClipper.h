// Hard clipping to a chosen signal-to-distortion ratio, for measuring declippers:
// finds the level theta at which clip(x, theta) has SDR = target against x (by
// bisection on theta, which SDR grows with), and signal-to-distortion ratios.
// SDR(y, x) = 10 log10(sum x^2 / sum (x - y)^2), dB, sums in double. No allocation
// beyond the returned vectors; pure functions.
#pragma once

#include <cstddef>
#include <vector>

namespace hardclip {

double sdr(const float* reference, const float* estimate, std::size_t count);
// The level (magnitude, both polarities) that clips `signal` to `targetSdr` dB.
float levelForSdr(const std::vector<float>& signal, double targetSdr);
std::vector<float> clip(const std::vector<float>& signal, float level);

}  // namespace hardclip
