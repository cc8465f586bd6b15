#include "declick/DeclickChannelGroup.h"

#include <utility>

#include "ar/ClassicRand.h"
#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/AdvancedFftDeCracklerOpt.h"

namespace {

// Puts a saved generator state on this thread for the lifetime of the scope, and
// saves the state it leaves behind.
class DitherScope {
public:
    explicit DitherScope(std::uint32_t& saved) : saved_(saved) { std::swap(saved_, ferrotip::detail::classicRandState); }
    ~DitherScope() { std::swap(saved_, ferrotip::detail::classicRandState); }
    DitherScope(const DitherScope&) = delete;
    DitherScope& operator=(const DitherScope&) = delete;

private:
    std::uint32_t& saved_;
};

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

DeclickChannelGroup::DeclickChannelGroup(const DeclickSettings& settings, float floor, int firstChannel,
                                         int channels, DeclickListen listen, int maxFrames)
    : engine_(settings.engine == DeclickEngineKind::standard
                  ? makeEngine<AdvancedFftDeCrackler>(channels, settings.block, marksOf_)
                  : makeEngine<AdvancedFftDeCracklerOpt>(channels, settings.block, marksOf_)),
      block_(settings.block),
      latency_(engine_->getLatency()),
      firstChannel_(firstChannel),
      blockRows_(channels)
{
    engine_->setSensitivity(settings.sensitivity);
    engine_->setSpectralFloor(floor);
    if (listen == DeclickListen::difference) engine_->enableDifferenceOutput();
    if (listen == DeclickListen::bypass) engine_->enableBypass();
    for (int c = 0; c < channels; ++c) trackers_.emplace_back(firstChannel + c, latency_);
    // A span takes at least a marked and an unmarked sample.
    const int blocks = (maxFrames + block_ - 1) / block_;
    spans_.resize(static_cast<std::size_t>(channels) * blocks * (block_ / 2 + 1));
}

DeclickChannelGroup::~DeclickChannelGroup() = default;
DeclickChannelGroup::DeclickChannelGroup(DeclickChannelGroup&&) noexcept = default;

void DeclickChannelGroup::process(float* const* rows, int frames)
{
    spanCount_ = 0;
    const DitherScope dither(ditherState_);
    for (int offset = 0; offset + block_ <= frames; offset += block_) processBlock(rows, offset);
}

void DeclickChannelGroup::processBlock(float* const* rows, int offset)
{
    for (std::size_t c = 0; c < blockRows_.size(); ++c) blockRows_[c] = rows[c] + offset;
    engine_->process(blockRows_.data(), block_);
    for (std::size_t c = 0; c < trackers_.size(); ++c) {
        trackers_[c].track(marksOf_(*engine_, static_cast<int>(c)), block_, [&](const RepairedSpan& span) {
            if (spanCount_ < spans_.size()) spans_[spanCount_++] = span;
        });
    }
}
