#include "declick/MultichannelDeclicker.h"

#include <algorithm>
#include <numeric>

#include "declick/SampleRange.h"
#include "signal/SpreadOverThreads.h"

namespace {

// Starting a thread costs tens of microseconds: a short block (a stream fed a few
// hundred frames at a time) runs its channels in turn.
constexpr int minFramesToSpread = 4096;

double average(std::span<const double> values)
{
    if (values.empty()) return 0.0;
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

}  // namespace

MultichannelDeclicker::MultichannelDeclicker(const DeclickSettings& settings, std::span<const double> meanSquares,
                                             bool sharedEngine, DeclickListen listen, int maxFrames, int jobs)
    : channels_(static_cast<int>(meanSquares.size())), sharedEngine_(sharedEngine)
{
    if (sharedEngine) {
        groups_.emplace_back(settings, average(meanSquares), 0, channels_, listen,
                             maxFrames);
    } else {
        groups_.reserve(meanSquares.size());
        for (int c = 0; c < channels_; ++c)
            groups_.emplace_back(settings, meanSquares[c], c, 1, listen, maxFrames);
    }
    jobs_ = std::clamp(jobs, 1, static_cast<int>(groups_.size()));
}

void MultichannelDeclicker::retune(const DeclickSettings& settings, std::span<const double> meanSquares)
{
    if (sharedEngine_) {
        groups_.front().retune(settings, average(meanSquares));
        return;
    }
    for (int c = 0; c < channels_; ++c) groups_[c].retune(settings, meanSquares[c]);
}

void MultichannelDeclicker::reset()
{
    for (DeclickChannelGroup& group : groups_) group.reset();
    clampedSamples_ = 0;
}

void MultichannelDeclicker::processGroup(std::size_t index, float* const* rows, int frames)
{
    DeclickChannelGroup& group = groups_[index];
    group.process(rows + group.firstChannel(), frames);
}

void MultichannelDeclicker::process(float* const* rows, int frames)
{
    clampedSamples_ += clampToDeclickRange(rows, channels_, frames);
    if (jobs_ == 1 || frames < minFramesToSpread) {
        for (std::size_t g = 0; g < groups_.size(); ++g) processGroup(g, rows, frames);
        return;
    }
    // Which thread runs a group does not change its output.
    spreadOverThreads(static_cast<int>(groups_.size()), jobs_,
                      [&](int g) { processGroup(static_cast<std::size_t>(g), rows, frames); });
}
