// Refills the clicks the crackle engines repaired, with the least-squares AR click
// method (the module's method 2: one pass, a model of twice the gap's length from
// the audio on both sides), over each click and a few samples around it.
//
// The engines repair a click in the residual their spectral split leaves, which
// suits fine crackle: a few samples, faint beside the music. A loud click of tens of
// samples also rings through the tonal part, and its edges lie outside the marked
// span, so the engines leave some of it behind. A span whose removed peak stands at
// least standOut times above the output's rms on both sides of it, and that is at
// least minLength samples long, is filled again from the engines' output around it,
// widened on each side by `margin` samples plus its length, up to twice `margin`
// more (a long click rings longer). Fine crackle and the rare marks on clean
// audio change too little to qualify and keep the engines' repair.
//
// A stage after the engines, for a whole recording: it sees the input as it enters
// the engines, the spans they report and their latency-aligned output, holds the
// output back until no span can still reach it, and hands it on. Spans are refilled
// in the order they become complete, each from output that holds the refills before
// it, with a dither sequence per channel: the output depends only on the input and
// the spans, not on the chunking or the thread. Allocates as it goes (not for
// real-time paths). One thread at a time calls it; the impulse search may spread the
// channels over `jobs` threads of its own.
//
// It also looks for impulses in the input (ImpulseFinder): a click that lifts every
// bin far above the spectral floor goes through the engines' tonal part, the louder
// the more, and is marked late or not at all. Each impulse found is filled like a
// loud click, whatever the engines did there. With a fine threshold it also finds
// fine crackle there, faint beside the music, which the engines leave in at a
// sensitivity that spares clean audio: each is filled, one sample wider on each side,
// by least-squares AR with a model of order 64 (ShortGapFill) in the output, in
// order of position with the clusters of spans.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "declick/ImpulseFinder.h"
#include "declick/RepairedSpan.h"
#include "declick/ShortGapFill.h"

// Takes rows[c][from, from + count): the next output frames.
using DeclickFrameSink = std::function<void(const float* const* rows, int from, int count)>;

class ClickRefill {
public:
    struct Settings {
        double standOut = 3.0;  // removed peak / rms around the span
        int minLength = 3;      // samples marked
        int margin = 12;        // samples refilled beyond each end, at 44.1 kHz, plus the
                                // span's length up to twice as many
        int levelReach = 64;    // samples on each side whose rms is the level, at 44.1 kHz
        // Prediction error / its robust level that makes an impulse; 0: none looked for.
        double impulseThreshold = 100.0;
        // And fine crackle (ImpulseFinder); 0: none looked for.
        double fineThreshold = 0.0;
        // Whether the engines' spans that stand out are filled again (else only impulses).
        bool refillEngineSpans = true;
        // Threads for the impulse search, one channel each; the output does not depend on it.
        int jobs = 1;
    };

    // `total` frames of `channels` channels at `sampleRate`; frames past the end are silence.
    ClickRefill(int channels, int sampleRate, std::int64_t total, const Settings& settings);
    ClickRefill(int channels, int sampleRate, std::int64_t total) : ClickRefill(channels, sampleRate, total, Settings{}) {}

    // The next input frames rows[c][0, frames), as they enter the engines.
    void addInput(const float* const* rows, int frames);
    // A span the engines repaired (stream positions, last < total).
    void addSpan(const RepairedSpan& span);
    // The next output frames rows[c][from, from + count), aligned with the input.
    void addOutput(const float* const* rows, int from, int count);
    // Refills the spans whose surroundings are complete and hands the frames no later
    // span can reach to sink; with `final` (all output added) everything that is left.
    void release(const DeclickFrameSink& sink, bool final);

    // The stretches refilled so far (margins included), in the order refilled.
    const std::vector<RepairedSpan>& refilled() const { return refilled_; }
    // Clusters of spans that arrived after the audio they needed had been handed on
    // (left as the engines repaired them).
    std::int64_t late() const { return late_; }

private:
    struct Stretch {
        std::int64_t start;  // first sample refilled
        int length;          // capped at the method's longest gap + 1
        int before;          // samples the method reads before start
        int after;           // and from start on
    };

    struct ChannelSearch {
        ImpulseFinder finder;
        std::vector<ImpulseFinder::Impulse> found;
        std::vector<ImpulseFinder::Impulse> fine;
        std::vector<float> window;
    };

    void findImpulses(bool final);
    void searchChannel(int channel, std::int64_t from, std::int64_t to);
    void searchBlock(int channel, std::int64_t start);
    bool fineReady(const RepairedSpan& fine, bool final) const;
    void fillFine(int channel, std::int64_t before, bool final);
    bool holdsImpulse(int channel, const RepairedSpan& click) const;
    int marginFor(std::int64_t first, std::int64_t last) const;
    int widestMargin() const { return 3 * margin_; }
    Stretch stretchOf(std::int64_t first, std::int64_t last) const;
    bool standsOut(const RepairedSpan& span) const;
    void refill(int channel, std::int64_t first, std::int64_t last);
    void refillCluster(int channel, std::span<const RepairedSpan> cluster);
    void refillSettled(bool final);
    // Silence outside what the buffers hold.
    float sampleAt(const std::vector<std::vector<float>>& rows, int channel, std::int64_t position) const;
    // count samples from position `from` into out: what the buffers hold before `end`,
    // silence elsewhere.
    void copySamples(const std::vector<std::vector<float>>& rows, int channel, std::int64_t from, int count,
                     std::int64_t end, float* out) const;
    float outputAt(int channel, std::int64_t position) const { return sampleAt(output_, channel, position); }
    std::int64_t outputEnd() const { return base_ + static_cast<std::int64_t>(output_.front().size()); }

    int sampleRate_;
    std::int64_t total_;
    double standOut_;
    int minLength_;
    bool refillEngineSpans_;
    int margin_;
    int levelReach_;
    int maxLength_;
    int settleLag_;  // how far behind the output's end a span may still arrive
    int reachBefore_;  // the most the method reads before a stretch
    int reachAfter_;   // and from its start on
    int holdBack_;
    std::int64_t base_ = 0;                   // stream position of element 0 of the buffers
    std::vector<std::vector<float>> input_;   // from base_ on, as far as the input has come
    std::vector<std::vector<float>> output_;  // from base_ on, as far as the output has come
    std::vector<std::vector<RepairedSpan>> pending_;  // per channel
    std::vector<std::uint32_t> ditherStates_;         // per channel
    std::vector<RepairedSpan> refilled_;
    std::vector<float> window_;
    std::vector<RepairedSpan> clicks_;  // a cluster's clicks, kept between clusters
    std::vector<const float*> rows_;  // the output rows handed to the sink
    std::int64_t late_ = 0;
    std::vector<ChannelSearch> searches_;  // per channel; none without the impulse search
    int jobs_;
    std::int64_t searchedTo_ = 0;                      // impulses looked for before this position
    std::vector<std::vector<RepairedSpan>> impulses_;  // per channel, not yet refilled
    bool findsFine_ = false;
    std::vector<std::vector<RepairedSpan>> fine_;  // per channel, not yet filled, widened
    ShortGapFill shortGapFill_;
};
