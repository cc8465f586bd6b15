// Drives the crackle engines over every channel of a stream: one engine per channel
// (or one shared by all channels, the engine's own multichannel mode), run in
// parallel over channels, with the spans each repaired.
//
// Build it with the stream's channel mean squares (full scale 1; they only matter
// for a floor relative to the level) and the largest frames a call will pass.
// process(rows, frames) takes frames (a multiple of blockSize()) samples per channel
// at full scale 1 and replaces them in place with the output of latency() samples
// earlier. Every channel's engine has its own dither sequence, so the output is the
// same bits whatever `jobs` is and whichever thread runs a channel. A host whose
// blocks are not whole engine blocks gathers them in a FIFO first (its reported
// latency then grows by up to one block). A stream holds at least one channel.
//
// Allocation and threads: construction allocates everything. With jobs 1 (or one
// engine) process runs on the caller's thread and allocates nothing, takes no lock
// and does no I/O: a real-time path may call it, and retune and reset. With jobs > 1 a
// call of 4096 frames or more starts up to jobs - 1 helper threads and joins them
// before returning (a shorter one runs the channels in turn). One caller at a time.
//
// A sample beyond ±largestDeclickSample (SampleRange.h), which the engines' float
// squares cannot hold, is put at that limit before the engines see it and counted
// (clampedSamples): the output stays finite. A caller with the whole recording can
// refuse such input first instead.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "declick/DeclickChannelGroup.h"
#include "declick/DeclickPreset.h"

class MultichannelDeclicker {
public:
    MultichannelDeclicker(const DeclickSettings& settings, std::span<const double> meanSquares,
                          bool sharedEngine, DeclickListen listen, int maxFrames, int jobs);

    int channels() const { return channels_; }
    int latency() const { return groups_.front().latency(); }
    int blockSize() const { return groups_.front().blockSize(); }
    int jobs() const { return jobs_; }
    // Input samples put at ±largestDeclickSample since construction or reset.
    std::int64_t clampedSamples() const { return clampedSamples_; }

    // rows: one pointer per channel.
    void process(float* const* rows, int frames);
    // New pass sensitivities and floors for the channels' current mean squares, in
    // the running engines; `settings` keeps the engine, block and pass count built with.
    void retune(const DeclickSettings& settings, std::span<const double> meanSquares);
    // Back to the just-built state.
    void reset();
    // Calls onSpan(const RepairedSpan&) for every span that ended during the last
    // process call, channel by channel.
    template <typename OnSpan>
    void forEachLastSpan(OnSpan&& onSpan) const
    {
        for (const auto& group : groups_)
            for (const RepairedSpan& span : group.lastSpans()) onSpan(span);
    }

private:
    void processGroup(std::size_t index, float* const* rows, int frames);

    int channels_;
    int jobs_;
    bool sharedEngine_;
    std::int64_t clampedSamples_ = 0;
    std::vector<DeclickChannelGroup> groups_;
};
