// Fills a gap of missing samples in one or more channels from the audio on both
// sides, by least-squares autoregressive (AR) interpolation over the whole gap
// (Janssen, Veldhuis & Vries, "Adaptive interpolation of discrete-time signals that
// can be modeled as autoregressive processes", 1986, run gap-wise as in Mokrý &
// Rajmic, "On the use of autoregressive methods for audio inpainting", 2024).
//
// The model comes from Burg's method over the context on both sides, never across
// the gap, pooled over the channels; a white floor under its spectrum keeps the
// solve regular. Further passes (if asked) take the model across the current fill.
// One banded Toeplitz system, solved by Levinson's recursion with FFT products for
// the right-hand sides, serves every channel. The same model also fills two stretches
// of known audio of the gap's length just outside the gap's reach. With several
// candidate context lengths, each gives a fill, and the least-squares weights that
// would have restored those known stretches best combine them (with one candidate,
// a gain of at most 1), which keeps an unreliable fill from doing worse than silence.
//
// Samples are floats in any scale; only the gap's samples are written. The caller
// provides contextLength(length) samples before and after the gap (zeros where the
// recording has none). The constructor allocates for gaps up to maxGap samples and
// up to maxChannels channels; fill never allocates. Double arithmetic in plain loops
// and the signal library's FFT: the same bits on every platform and path for the same
// maxGap (which sets the transform size). One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/BurgEstimator.h"
#include "inpaint/ModelFloor.h"
#include "inpaint/NormalProduct.h"
#include "inpaint/ToeplitzSolver.h"

struct InpaintSettings {
    static constexpr int maxCandidates = 4;
    // Context on each side for each candidate model (0 ends the list).
    double contextMs[maxCandidates] = {90.0, 0.0, 0.0, 0.0};
    // Gaps up to shortGapMs add a candidate with shortContextMs of context: quickly
    // changing sound (speech) is better told by a short context, and short gaps leave
    // the time for a second model.
    double shortGapMs = 20.0;
    double shortContextMs = 32.0;
    double orderMs = 23.2;     // AR order in time (1024 samples at 44.1 kHz), at most the context
    int passes = 1;            // model / fill passes
    bool validate = true;      // scale the fill by its reliability on known audio
    double whiteFloor = 1e-8;  // white floor under the model's spectrum, relative to its power
};

class GapFiller {
public:
    GapFiller(int sampleRate, int maxGap, int maxChannels, InpaintSettings settings = {});

    // Samples the fill reads on each side of a gap of `length` samples.
    int contextLength(int length) const;
    // Rewrites channels[c][start .. start + length) for c < channelCount; reads
    // contextLength(length) samples on each side. length <= maxGap, channelCount <= maxChannels.
    void fill(float* const* channels, int channelCount, int start, int length);

private:
    struct Layout {
        int length, reach, total;
        int gap() const { return reach; }
    };
    Layout layout(int length) const;
    double* segment(int channel) const;
    double* rightHandSide(int row) const;
    void load(float* const* channels, int channelCount, int start, const Layout& at);
    void estimate(int channelCount, const Layout& at, int context, bool sidesOnly);
    void keepCandidate(int candidate, int channelCount, const Layout& at);
    void combineCandidates(int channelCount, const Layout& at);
    void solve(int channelCount, const Layout& at);
    int validationStart(const Layout& at, int side) const;

    InpaintSettings settings_;
    int candidates = 0;        // for long gaps; short gaps use one more
    int activeCandidates = 0;  // of the gap being filled
    int shortGap = 0;
    int candidateContext[InpaintSettings::maxCandidates + 1] = {};
    int contextSamples;  // the longest candidate's
    int order;
    int maxGap_;
    int maxChannels_;
    int segmentCapacity;
    BurgEstimator estimator;
    ModelFloor flooring;
    NormalProduct normal;
    ToeplitzSolver solver;
    std::unique_ptr<double[]> segments;   // maxChannels rows of segmentCapacity
    std::unique_ptr<double[]> work;       // segmentCapacity
    std::unique_ptr<double[]> rightHandSides;  // 3 * maxChannels rows of maxGap
    std::unique_ptr<double*[]> rows;      // 3 * maxChannels right-hand sides
    std::unique_ptr<double[]> column;     // order + 1
    std::unique_ptr<double[]> candidateFills;  // (maxCandidates + 1) x 3 x maxChannels x maxGap
    double weights[InpaintSettings::maxCandidates + 1] = {};
};
