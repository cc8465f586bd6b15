#include "declip/HardClipper.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace hardclip {

double sdr(const float* reference, const float* estimate, std::size_t count)
{
    double signal = 0.0, error = 0.0;
    for (std::size_t i = 0; i < count; ++i) {
        const double x = reference[i];
        const double e = x - estimate[i];
        signal += x * x;
        error += e * e;
    }
    if (error == 0.0) return std::numeric_limits<double>::infinity();
    return 10.0 * std::log10(signal / error);
}

std::vector<float> clip(const std::vector<float>& signal, float level)
{
    std::vector<float> clipped(signal.size());
    for (std::size_t i = 0; i < signal.size(); ++i) clipped[i] = std::clamp(signal[i], -level, level);
    return clipped;
}

float levelForSdr(const std::vector<float>& signal, double targetSdr)
{
    float peak = 0.0f;
    for (float x : signal) peak = std::max(peak, std::fabs(x));
    float low = 0.0f, high = peak;  // SDR grows with the level
    for (int step = 0; step < 40; ++step) {
        const float middle = 0.5f * (low + high);
        const std::vector<float> clipped = clip(signal, middle);
        if (sdr(signal.data(), clipped.data(), signal.size()) < targetSdr) low = middle;
        else high = middle;
    }
    return 0.5f * (low + high);
}

}  // namespace hardclip
