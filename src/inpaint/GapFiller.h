// Fills a gap of missing samples in one or more channels from the audio on both
// sides, by iterated least-squares autoregressive (AR) interpolation over the whole
// gap (after Janssen, Veldhuis & Vries, "Adaptive interpolation of discrete-time
// signals that can be modeled as autoregressive processes", 1986, run gap-wise as
// in Mokrý & Rajmic, "On the use of autoregressive methods for audio inpainting").
//
// Each pass takes one AR model from the context on both sides (the first pass from
// the two sides alone, so the unknown samples never bias it; later passes across the
// current fill, the channels' autocorrelations pooled), then puts in the samples that
// minimise the model's prediction error over every residual that touches the gap:
// a banded Toeplitz system solved by Levinson's recursion for all channels at once.
//
// Samples are floats in any scale; only the gap's samples are written. The caller
// provides contextLength(length) samples before and after the gap (zeros where the
// recording has none). The constructor allocates for gaps up to maxGap samples and
// up to maxChannels channels; fill never allocates. Double arithmetic in plain
// loops: the same bits on every platform. One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/ArEstimator.h"
#include "inpaint/ToeplitzSolver.h"

struct InpaintSettings {
    double contextMs = 90.0;   // context on each side
    int orderCap = 1024;       // highest AR order (also at most the context)
    int iterations = 3;        // model / fill passes
    double lagScaleMs = 0.0;   // Gaussian lag window width, 0 for none
    double whiteFloor = 1e-9;  // relative white-noise floor of the model's spectrum
    double loading = 1e-9;     // relative diagonal loading of the fill's normal equations
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
    int order(int context) const;
    void loadSegments(float* const* channels, int channelCount, int start, int length, int context);
    void estimate(int channelCount, int length, int context, bool sidesOnly);
    void solveGap(int channelCount, int length, int context);
    double* segment(int channel) const;

    InpaintSettings settings_;
    int rate;
    int maxGap_;
    int maxChannels_;
    int maxContext;
    int segmentCapacity;
    ArEstimator estimator;
    ToeplitzSolver solver;
    std::unique_ptr<double[]> segments;        // maxChannels x segmentCapacity
    std::unique_ptr<double[]> residual;        // maxGap + order
    std::unique_ptr<double[]> modelAutocorr;   // order + 1
    std::unique_ptr<double*[]> gapPointers;    // maxChannels
    const double* model = nullptr;
};
