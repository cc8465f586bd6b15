#include "declip/Declipper.h"

#include <algorithm>
#include <cmath>


namespace {

FrameDeclipper::Settings withRedundancy(FrameDeclipper::Settings settings, int redundancy)
{
    settings.redundancy = redundancy;
    return settings;
}

}  // namespace

struct Declipper::Worker {
    explicit Worker(const FrameDeclipper::Settings& settings)
        : heavyShare(settings.heavyShare),
          heaviestShare(settings.heaviestShare),
          heaviest(withRedundancy(settings, settings.heaviestRedundancy)),
          heavy(settings),
          light(withRedundancy(settings, 1)),
          lower(settings.frameLength),
          upper(settings.frameLength)
    {
    }

    // The more of a frame is clipped, the finer the DFT it is solved in.
    FrameDeclipper& solverFor(int clipped)
    {
        const double share = static_cast<double>(clipped) / light.frameLength();
        if (share > heaviestShare) return heaviest;
        return share > heavyShare ? heavy : light;
    }

    float heavyShare, heaviestShare;
    FrameDeclipper heaviest, heavy, light;
    std::vector<float> lower, upper;
};

Declipper::Declipper(const FrameDeclipper::Settings& settings, int threads)
    : frameLength_(settings.frameLength), hann_(frame_grid::periodicHann(settings.frameLength))
{
    for (int worker = 0; worker < std::max(threads, 1); ++worker) workers_.push_back(std::make_unique<Worker>(settings));
}

Declipper::~Declipper() = default;

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
    frames_.find(frameLength(), 4, window, length, origin, levels, from, to);
    frames_.solve(static_cast<int>(workers_.size()), [&](int index, int thread, float* samples) {
        Worker& worker = *workers_[thread];
        const int clipped = frame_grid::loadFrame(frameLength(), window, length, frames_[index].start, levels,
                                                  hann_.data(), samples, worker.lower.data(), worker.upper.data());
        return worker.solverFor(clipped).restore(samples, worker.lower.data(), worker.upper.data());
    });
    for (int index = 0; index < frames_.size(); ++index) stats.iterations += frames_.result(index);
    stats.framesSolved = frames_.size();
    // Least-squares overlap-add: each frame's estimate of w * x, weighted by w.
    frames_.forEachOverlap(from, [&](int index, std::int64_t at, int n) {
        const double w = hann_[n];
        sum_[at] += w * frames_.slot(index)[n];
        weight_[at] += w * w;
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
