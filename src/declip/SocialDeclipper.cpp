#include "declip/SocialDeclipper.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

SocialDeclipper::Settings SocialDeclipper::Settings::forSampleRate(int sampleRate)
{
    constexpr int longest = 1 << 20;  // the transform's largest size
    Settings settings;
    settings.solver.blockLength = frame_grid::nearestPowerOfTwo(0.74 * sampleRate, 1024, longest);
    settings.solver.windowLength = frame_grid::nearestPowerOfTwo(0.0464 * sampleRate, 64, longest);
    // On 8 kHz speech it gained 0.4-0.7 dB at 3-10 dB but took the whole restoration
    // from 1.4-1.5 times adeclip's speed to 0.5-0.8 times (adeclip is fast there, where
    // its windows hold few samples).
    if (sampleRate < 16000) settings.weight = 0.0f;
    return settings;
}

struct SocialDeclipper::Worker {
    explicit Worker(const SocialSparsitySolver::Settings& settings)
        : solver(settings), lower(settings.blockLength), upper(settings.blockLength)
    {
    }

    SocialSparsitySolver solver;
    std::vector<float> lower, upper;
};

SocialDeclipper::SocialDeclipper(const Settings& settings, int threads, int remembered)
    : blockLength_(settings.solver.blockLength),
      fewestShare_(settings.fewestShare),
      mostShare_(settings.mostShare),
      weight_(settings.weight),
      fullUpTo_(settings.fullUpTo),
      noneFrom_(settings.noneFrom),
      hann_(frame_grid::periodicHann(settings.solver.blockLength))
{
    if (!used()) return;
    for (int worker = 0; worker < std::max(threads, 1); ++worker)
        workers_.push_back(std::make_unique<Worker>(settings.solver));
    remembered_.resize(std::max(remembered, 0));
    for (auto& block : remembered_) {
        block.input.resize(blockLength_);
        block.output.resize(blockLength_);
    }
}

const SocialDeclipper::Remembered* SocialDeclipper::recall(const float* samples, ClipLevels levels) const
{
    const auto bytes = static_cast<std::size_t>(blockLength()) * sizeof(float);
    for (const auto& block : remembered_)
        if (block.valid && std::memcmp(&block.levels, &levels, sizeof levels) == 0 &&
            std::memcmp(block.input.data(), samples, bytes) == 0)
            return &block;
    return nullptr;
}

// Keeps the solved block `index` of this call, oldest remembered out.
void SocialDeclipper::remember(const float* window, std::int64_t length, ClipLevels levels, int index)
{
    if (remembered_.empty()) return;
    Remembered& block = remembered_[nextRemembered_];
    nextRemembered_ = (nextRemembered_ + 1) % remembered_.size();
    Worker& scratch = *workers_.front();
    frame_grid::loadFrame(blockLength(), window, length, blocks_[index].start, levels, nullptr, block.input.data(),
                          scratch.lower.data(), scratch.upper.data());
    std::copy(blocks_.slot(index), blocks_.slot(index) + blockLength(), block.output.begin());
    block.levels = levels;
    block.valid = true;
}

SocialDeclipper::~SocialDeclipper() = default;

std::int64_t SocialDeclipper::restore(const float* window, std::int64_t length, std::int64_t origin,
                                      ClipLevels levels, std::int64_t from, std::int64_t to, float* out,
                                      float* share)
{
    std::int64_t solved = 0;
    const std::int64_t count = std::max<std::int64_t>(to - from, 0);
    std::copy(window + from, window + from + count, out);
    std::fill(share, share + count, 0.0f);
    if (!used() || !levels.any() || count == 0) return solved;
    sum_.assign(count, 0.0);
    solvedWeight_.assign(count, 0.0);
    weightSum_.assign(count, 0.0);
    blocks_.find(blockLength(), 2, window, length, origin, levels, from, to);
    // A block's result: 0 not solved, 1 solved, 2 recalled.
    blocks_.solve(static_cast<int>(workers_.size()), [&](int index, int thread, float* samples) {
        Worker& worker = *workers_[thread];
        const int clipped = frame_grid::loadFrame(blockLength(), window, length, blocks_[index].start, levels,
                                                  nullptr, samples, worker.lower.data(), worker.upper.data());
        if (clipped < fewestShare_ * blockLength() || clipped > mostShare_ * blockLength()) return 0;
        if (const Remembered* block = recall(samples, levels)) {
            std::copy(block->output.begin(), block->output.end(), samples);
            return 2;
        }
        worker.solver.restore(samples, worker.lower.data(), worker.upper.data());
        return 1;
    });
    // The last block reaches furthest into the next call's stretch.
    const int last = blocks_.size() - 1;
    if (last >= 0 && blocks_.result(last) == 1) remember(window, length, levels, last);
    for (int index = 0; index < blocks_.size(); ++index) solved += blocks_.result(index) != 0 ? 1 : 0;
    blocks_.forEachOverlap(from, [&](int index, std::int64_t at, int n) {
        const double w = hann_[n];
        weightSum_[at] += w * w;
        if (blocks_.result(index) == 0) return;
        sum_[at] += w * w * blocks_.slot(index)[n];
        solvedWeight_[at] += w * w;
    });
    for (std::int64_t i = from; i < to; ++i) {
        const float observed = window[i];
        const int sign = levels.sign(observed);
        if (sign == 0) continue;
        const std::int64_t at = i - from;
        const float restored = solvedWeight_[at] > 0.0 ? static_cast<float>(sum_[at] / solvedWeight_[at])
                                                       : std::numeric_limits<float>::quiet_NaN();
        // No block solved, or samples near the float range that overflow the solve: none.
        if (!std::isfinite(restored)) {
            out[at] = std::numeric_limits<float>::quiet_NaN();
            continue;
        }
        out[at] = sign > 0 ? std::max(restored, observed) : std::min(restored, observed);
        share[at] = static_cast<float>(weight_ * (solvedWeight_[at] / weightSum_[at]));
    }
    return solved;
}
