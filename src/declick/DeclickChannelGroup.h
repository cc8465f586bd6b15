// The crackle engines of a group of channels (one channel, or all of a file's when
// they share an engine): one engine per pass, chained, with the group's own dither
// sequence and the spans the passes repaired.
//
// The repair's dither comes from the calling thread's classic rand state. Each pass
// keeps a state of its own and swaps it in around every engine call, so its output
// depends only on its own input: not on the thread that runs it nor on what other
// passes or groups ran there before. A fresh pass starts from state 1, as a fresh
// thread does, so a chain gives what its passes give run one after another.
//
// process(rows, frames) takes frames (a multiple of blockSize()) samples per channel
// at full scale 1 and replaces them in place with the engine's output, latency()
// samples late. Construction allocates everything, spans included (room for
// maxFrames per call); process, retune and reset allocate nothing, take no lock and
// do no I/O, so a real-time path may call them. One thread at a time per group.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "crackle/MetaDeCrackler.h"
#include "declick/ClickSpanTracker.h"
#include "declick/DeclickPreset.h"
#include "signal/CBuffer2D.h"
#include "signal/CDelay.h"

enum class DeclickListen { repaired, difference, bypass };

class DeclickChannelGroup {
public:
    // Channels [firstChannel, firstChannel + channels) of the stream, whose mean
    // square (full scale 1) sets floors relative to the level.
    DeclickChannelGroup(const DeclickSettings& settings, double meanSquare, int firstChannel, int channels,
                        DeclickListen listen, int maxFrames);
    ~DeclickChannelGroup();
    DeclickChannelGroup(DeclickChannelGroup&&) noexcept;

    int latency() const { return latency_; }
    int blockSize() const { return block_; }
    int firstChannel() const { return firstChannel_; }
    int channels() const { return channels_; }

    // rows: one pointer per channel of the group.
    void process(float* const* rows, int frames);
    // Writes the passes' sensitivities and floors (for a group of that mean square)
    // into the running engines. `settings` has the engine, block and pass count the
    // group was built with; only its passes' values are read.
    void retune(const DeclickSettings& settings, double meanSquare);
    // Back to the just-built state: engines, span trackers and dither states.
    void reset();
    // The spans that ended during the last process call, pass by pass, in order of
    // their end per channel; the passes' spans may overlap.
    std::span<const RepairedSpan> lastSpans() const { return {spans_.data(), spanCount_}; }

private:
    struct Pass {
        std::unique_ptr<MetaDeCrackler> engine;
        const int* (*marksOf)(const MetaDeCrackler&, int channel);
        std::vector<ClickSpanTracker> trackers;  // one per channel
        std::uint32_t ditherState = 1;
    };

    void processBlock(float* const* rows, int offset);
    void subtractDelayedInput();

    int block_;
    int latency_ = 0;
    int firstChannel_;
    int channels_;
    std::vector<float*> blockRows_;
    std::vector<Pass> passes_;
    // Difference output of a chain: the input delayed by the whole latency.
    std::unique_ptr<standardLib::CDelay<float>> dryDelay_;
    std::unique_ptr<standardLib::CBuffer2D<float>> dryRows_;
    std::vector<RepairedSpan> spans_;
    std::size_t spanCount_ = 0;
};
