// The real transforms' packed spectrum layout that both sparse declippers work in:
// [0] the DC bin, [1] the Nyquist bin (both real), [2b] and [2b + 1] the real and
// imaginary parts of bin b. Header only; nothing allocates.
#pragma once

#include "signal/CFft.h"

namespace packed_spectrum {

constexpr unsigned int layout = standardLib::LayoutNyquistSecond;

// power[b] = |X_b|^2 for the bins 0 .. half of a packed spectrum, each square apart
// and then summed (never fused).
inline void powers(const float* spectrum, int half, float* power)
{
    power[0] = spectrum[0] * spectrum[0];
    power[half] = spectrum[1] * spectrum[1];
    for (int bin = 1; bin < half; ++bin) {
        const float re = spectrum[2 * bin], im = spectrum[2 * bin + 1];
        const float squareRe = re * re;
        const float squareIm = im * im;
        power[bin] = squareRe + squareIm;
    }
}

}  // namespace packed_spectrum
