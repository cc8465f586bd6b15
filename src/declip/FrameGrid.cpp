#include "declip/FrameGrid.h"

#include "signal/PortableCosine.h"

namespace frame_grid {

std::vector<float> periodicHann(int length)
{
    constexpr double twoPi = 6.283185307179586476925286766559;
    std::vector<float> window(length);
    for (int n = 0; n < length; ++n)
        window[n] = static_cast<float>(0.5 - 0.5 * standardLib::cosine(twoPi * n / length));
    return window;
}

}  // namespace frame_grid
