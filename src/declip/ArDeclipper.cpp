#include "declip/ArDeclipper.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "declip/FrameGrid.h"

ArDeclipper::Settings ArDeclipper::Settings::forSampleRate(int sampleRate)
{
    Settings settings;
    // 4096 samples (93 ms at 44.1 kHz, 0.19 s at 22.05 kHz) up to 64 kHz, 8192 above.
    // At 22.05 kHz frames of 4096 restored dialogue about 0.2 dB better than 2048.
    settings.frameLength = sampleRate > 64000 ? 8192 : 4096;
    settings.order = settings.frameLength / 64;
    if (sampleRate < 16000) settings.weight = 0.0f;
    return settings;
}

ArDeclipper::ArDeclipper(const Settings& settings)
    : maxShare_(settings.maxShare),
      weight_(settings.weight),
      lightShare_(settings.lightShare),
      fill_(settings.frameLength, settings.order),
      hann_(frame_grid::periodicHann(settings.frameLength)),
      samples_(settings.frameLength),
      lower_(settings.frameLength),
      upper_(settings.frameLength)
{
}

std::int64_t ArDeclipper::restore(const float* window, std::int64_t length, std::int64_t origin,
                                  ClipLevels levels, std::int64_t from, std::int64_t to, float* out)
{
    std::int64_t frames = 0;
    const std::int64_t count = std::max<std::int64_t>(to - from, 0);
    std::copy(window + from, window + from + count, out);
    if (!levels.any() || count == 0) return frames;
    sum_.assign(count, 0.0);
    windowSum_.assign(count, 0.0);
    frame_grid::forEachSolvedFrame(
        frameLength(), 2, window, length, origin, levels, from, to,
        [&](std::int64_t start, std::int64_t overlapFirst, std::int64_t overlapEnd) {
            // The model comes from the frame as observed; the window weights its estimate.
            const int clipped = frame_grid::loadFrame(frameLength(), window, length, start, levels, nullptr,
                                                      samples_.data(), lower_.data(), upper_.data());
            if (clipped > maxShare_ * frameLength()) return;
            fill_.fill(samples_.data(), lower_.data(), upper_.data(), hann_.data());
            ++frames;
            for (std::int64_t i = overlapFirst; i < overlapEnd; ++i) {
                const double w = hann_[i - start];
                sum_[i - from] += w * w * samples_[i - start];
                windowSum_[i - from] += w * w;
            }
        });
    for (std::int64_t i = from; i < to; ++i) {
        const float observed = window[i];
        const int sign = levels.sign(observed);
        if (sign == 0) continue;
        const float restored = windowSum_[i - from] > 0.0 ? static_cast<float>(sum_[i - from] / windowSum_[i - from])
                                                          : std::numeric_limits<float>::quiet_NaN();
        // No frame solved, or samples near the float range that overflow the fill: none.
        if (!std::isfinite(restored)) {
            out[i - from] = std::numeric_limits<float>::quiet_NaN();
            continue;
        }
        out[i - from] = sign > 0 ? std::max(restored, observed) : std::min(restored, observed);
    }
    return frames;
}
