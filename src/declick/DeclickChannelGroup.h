// One crackle engine over a group of channels (one channel, or all of a file's when
// they share an engine), with its own dither sequence and the spans it repaired.
//
// The repair's dither comes from the calling thread's classic rand state. The group
// keeps a state of its own and swaps it in around every engine call, so its output
// depends only on its own input: not on the thread that runs it nor on what other
// groups ran there before. A fresh group starts from state 1, as a fresh thread does.
//
// process(rows, frames) takes frames (a multiple of blockSize()) samples per channel
// at full scale 1 and replaces them in place with the engine's output, latency()
// samples late. Construction allocates everything, spans included (room for
// maxFrames per call); process allocates nothing, takes no lock and does no I/O, so
// a real-time path may call it. One thread at a time per group.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "crackle/MetaDeCrackler.h"
#include "declick/ClickSpanTracker.h"
#include "declick/DeclickPreset.h"

enum class DeclickListen { repaired, difference, bypass };

class DeclickChannelGroup {
public:
    // Channels [firstChannel, firstChannel + channels) of the stream; floor is the
    // engine's spectral floor (a bin power).
    DeclickChannelGroup(const DeclickSettings& settings, float floor, int firstChannel, int channels,
                        DeclickListen listen, int maxFrames);
    ~DeclickChannelGroup();
    DeclickChannelGroup(DeclickChannelGroup&&) noexcept;

    int latency() const { return latency_; }
    int blockSize() const { return block_; }
    int firstChannel() const { return firstChannel_; }
    int channels() const { return static_cast<int>(trackers_.size()); }

    // rows: one pointer per channel of the group.
    void process(float* const* rows, int frames);
    // The spans that ended during the last process call, in order of their end per channel.
    std::span<const RepairedSpan> lastSpans() const { return {spans_.data(), spanCount_}; }

private:
    void processBlock(float* const* rows, int offset);

    std::unique_ptr<MetaDeCrackler> engine_;
    const int* (*marksOf_)(const MetaDeCrackler&, int channel);
    int block_;
    int latency_;
    int firstChannel_;
    std::uint32_t ditherState_ = 1;
    std::vector<float*> blockRows_;
    std::vector<ClickSpanTracker> trackers_;
    std::vector<RepairedSpan> spans_;
    std::size_t spanCount_ = 0;
};
