#include "declip/Declipper.h"

#include <algorithm>
#include <cmath>

#include "declip/FrameGrid.h"

namespace {

FrameDeclipper::Settings withRedundancy(FrameDeclipper::Settings settings, int redundancy)
{
    settings.redundancy = redundancy;
    return settings;
}

}  // namespace

Declipper::Declipper(const FrameDeclipper::Settings& settings)
    : heavyShare_(settings.heavyShare),
      heaviestShare_(settings.heaviestShare),
      heaviest_(withRedundancy(settings, settings.heaviestRedundancy)),
      heavy_(settings),
      light_(withRedundancy(settings, 1)),
      hann_(frame_grid::periodicHann(settings.frameLength)),
      samples_(settings.frameLength),
      lower_(settings.frameLength),
      upper_(settings.frameLength)
{
}

// The more of a frame is clipped, the finer the DFT it is solved in.
FrameDeclipper& Declipper::solverFor(int clipped)
{
    const double share = static_cast<double>(clipped) / frameLength();
    if (share > heaviestShare_) return heaviest_;
    return share > heavyShare_ ? heavy_ : light_;
}

Declipper::Stats Declipper::restore(const float* window, std::int64_t length, std::int64_t origin,
                                    ClipLevels levels, std::int64_t from, std::int64_t to, float* out)
{
    Stats stats;
    const std::int64_t count = std::max<std::int64_t>(to - from, 0);
    std::copy(window + from, window + from + count, out);
    if (!levels.any() || count == 0) return stats;
    sum_.assign(count, 0.0);
    weight_.assign(count, 0.0);

    // Whether a frame is solved depends on its own samples only, so the result does
    // not depend on the cut.
    frame_grid::forEachSolvedFrame(
        frameLength(), 4, window, length, origin, levels, from, to,
        [&](std::int64_t start, std::int64_t overlapFirst, std::int64_t overlapEnd) {
            const int clipped = frame_grid::loadFrame(frameLength(), window, length, start, levels, hann_.data(),
                                                      samples_.data(), lower_.data(), upper_.data());
            stats.iterations += solverFor(clipped).restore(samples_.data(), lower_.data(), upper_.data());
            ++stats.framesSolved;
            // Least-squares overlap-add: each frame's estimate of w * x, weighted by w.
            for (std::int64_t i = overlapFirst; i < overlapEnd; ++i) {
                const double w = hann_[i - start];
                sum_[i - from] += w * samples_[i - start];
                weight_[i - from] += w * w;
            }
        });
    for (std::int64_t i = from; i < to; ++i) {
        const float observed = window[i];
        const int sign = levels.sign(observed);
        if (sign == 0 || !(weight_[i - from] > 0.0)) continue;
        const float restored = static_cast<float>(sum_[i - from] / weight_[i - from]);
        // Samples near the float range overflow the frames' power sums: keep the level there.
        if (!std::isfinite(restored)) continue;
        out[i - from] = sign > 0 ? std::max(restored, observed) : std::min(restored, observed);
    }
    return stats;
}
