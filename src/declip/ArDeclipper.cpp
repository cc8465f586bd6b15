#include "declip/ArDeclipper.h"

#include <algorithm>
#include <cmath>
#include <limits>


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

struct ArDeclipper::Worker {
    Worker(int frameLength, int order) : fill(frameLength, order), lower(frameLength), upper(frameLength) {}

    BoundedArFill fill;
    std::vector<float> lower, upper;
};

ArDeclipper::ArDeclipper(const Settings& settings, int threads)
    : frameLength_(settings.frameLength),
      maxShare_(settings.maxShare),
      weight_(settings.weight),
      lightShare_(settings.lightShare),
      hann_(frame_grid::periodicHann(settings.frameLength))
{
    for (int worker = 0; worker < std::max(threads, 1); ++worker)
        workers_.push_back(std::make_unique<Worker>(settings.frameLength, settings.order));
}

ArDeclipper::~ArDeclipper() = default;

std::int64_t ArDeclipper::restore(const float* window, std::int64_t length, std::int64_t origin,
                                  ClipLevels levels, std::int64_t from, std::int64_t to, float* out)
{
    std::int64_t solved = 0;
    const std::int64_t count = std::max<std::int64_t>(to - from, 0);
    std::copy(window + from, window + from + count, out);
    if (!levels.any() || count == 0) return solved;
    sum_.assign(count, 0.0);
    windowSum_.assign(count, 0.0);
    frames_.find(frameLength(), 2, window, length, origin, levels, from, to);
    // A frame's result: whether it was filled.
    frames_.solve(static_cast<int>(workers_.size()), [&](int index, int thread, double* samples) {
        Worker& worker = *workers_[thread];
        // The model comes from the frame as observed; the window weights its estimate.
        const int clipped = frame_grid::loadFrame(frameLength(), window, length, frames_[index].start, levels,
                                                  nullptr, samples, worker.lower.data(), worker.upper.data());
        if (clipped > maxShare_ * frameLength()) return 0;
        worker.fill.fill(samples, worker.lower.data(), worker.upper.data(), hann_.data());
        return 1;
    });
    for (int index = 0; index < frames_.size(); ++index) solved += frames_.result(index);
    frames_.forEachOverlap(from, [&](int index, std::int64_t at, int n) {
        if (frames_.result(index) == 0) return;
        const double w = hann_[n];
        sum_[at] += w * w * frames_.slot(index)[n];
        windowSum_[at] += w * w;
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
    return solved;
}
