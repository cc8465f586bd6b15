#include "declick/DeclickChannelGroup.h"

#include <utility>

#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/AdvancedFftDeCracklerOpt.h"
#include "declick/DitherScope.h"

namespace {

template <typename Engine>
const int* marksOf(const MetaDeCrackler& engine, int channel)
{
    return static_cast<const Engine&>(engine).marks(channel);
}

template <typename Engine>
std::unique_ptr<MetaDeCrackler> makeEngine(int channels, int block, const int* (*&marks)(const MetaDeCrackler&, int))
{
    marks = &marksOf<Engine>;
    return std::make_unique<Engine>(channels, block);
}

}  // namespace

DeclickChannelGroup::DeclickChannelGroup(const DeclickSettings& settings, double meanSquare, int firstChannel,
                                         int channels, DeclickListen listen, int maxFrames)
    : block_(settings.block), firstChannel_(firstChannel), channels_(channels), blockRows_(channels)
{
    const auto active = settings.activePasses();
    for (std::size_t p = 0; p < active.size(); ++p) {
        Pass pass;
        pass.engine = settings.engine == DeclickEngineKind::standard
                          ? makeEngine<AdvancedFftDeCrackler>(channels, block_, pass.marksOf)
                          : makeEngine<AdvancedFftDeCracklerOpt>(channels, block_, pass.marksOf);
        // What was removed, or the input, is the whole chain's: the last pass
        // compares with what the first one was given.
        if (listen == DeclickListen::bypass) pass.engine->enableBypass();
        if (listen == DeclickListen::difference && active.size() == 1) pass.engine->enableDifferenceOutput();
        latency_ += pass.engine->getLatency();
        for (int c = 0; c < channels; ++c) pass.trackers.emplace_back(firstChannel + c, latency_);
        passes_.push_back(std::move(pass));
    }
    retune(settings, meanSquare);
    if (listen == DeclickListen::difference && active.size() > 1) {
        dryDelay_ = std::make_unique<standardLib::CDelay<float>>(channels, latency_);
        dryRows_ = std::make_unique<standardLib::CBuffer2D<float>>(channels, block_);
    }
    // A span takes at least a marked and an unmarked sample.
    const int blocks = (maxFrames + block_ - 1) / block_;
    spans_.resize(passes_.size() * channels * blocks * (block_ / 2 + 1));
}

DeclickChannelGroup::~DeclickChannelGroup() = default;
DeclickChannelGroup::DeclickChannelGroup(DeclickChannelGroup&&) noexcept = default;

void DeclickChannelGroup::retune(const DeclickSettings& settings, double meanSquare)
{
    const auto active = settings.activePasses();
    for (std::size_t p = 0; p < passes_.size() && p < active.size(); ++p) {
        passes_[p].engine->setSensitivity(active[p].sensitivity);
        passes_[p].engine->setSpectralFloor(active[p].floor.floorFor(meanSquare));
    }
}

void DeclickChannelGroup::reset()
{
    for (Pass& pass : passes_) {
        pass.engine->reset();
        for (ClickSpanTracker& tracker : pass.trackers) tracker.reset();
        pass.ditherState = 1;
    }
    if (dryDelay_) dryDelay_->reset();
    spanCount_ = 0;
}

void DeclickChannelGroup::process(float* const* rows, int frames)
{
    spanCount_ = 0;
    for (int offset = 0; offset + block_ <= frames; offset += block_) processBlock(rows, offset);
}

void DeclickChannelGroup::processBlock(float* const* rows, int offset)
{
    for (int c = 0; c < channels_; ++c) blockRows_[c] = rows[c] + offset;
    if (dryDelay_) dryDelay_->processSamples(blockRows_.data(), dryRows_->rows(), block_);
    for (Pass& pass : passes_) {
        {
            const DitherScope dither(pass.ditherState);
            pass.engine->process(blockRows_.data(), block_);
        }
        for (int c = 0; c < channels_; ++c) {
            pass.trackers[c].track(pass.marksOf(*pass.engine, c), block_, [&](const RepairedSpan& span) {
                if (spanCount_ < spans_.size()) spans_[spanCount_++] = span;
            });
        }
    }
    if (dryDelay_) subtractDelayedInput();
}

void DeclickChannelGroup::subtractDelayedInput()
{
    for (int c = 0; c < channels_; ++c) {
        const float* dry = (*dryRows_)[c];
        float* out = blockRows_[c];
        for (int i = 0; i < block_; ++i) out[i] = out[i] - dry[i];
    }
}
