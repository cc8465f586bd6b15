// Similarity search for long gaps: the passage of the known audio whose two borders
// (a stretch before and one after a hole of the gap's length) best match the gap's own
// borders, by normalised correlation summed over the channels, and the passage
// between them scaled by its least-squares gain on the borders. The correlation of
// every shift comes from transforms by overlap-save: blocks of at least twice the
// template's span (and at least blockMinimum), so that a search seconds long runs in
// transforms that stay in cache rather than in one the length of the whole segment.
//
// begin takes each channel's segment (the gap's samples are never read by a search
// that excludes them). The constructor allocates for segments up to maxLength samples,
// maxChannels channels and templates (two borders and the hole) up to maxSpan samples;
// nothing else does. A template longer than the largest block (twice maxSpan, or
// blockMinimum) finds no match. The signal library's transform gives
// the same bits on every instruction-set path. A search whose scores only rank
// candidates for a closer look may take its transforms in single precision
// (Precision::ranking), at half their cost. One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/BlockCorrelator.h"
#include "signal/KernelPath.h"

class PatternSearch {
public:
    enum class Precision { exact, ranking };

    PatternSearch(int maxLength, int maxChannels, int maxSpan, Precision precision = Precision::exact);
    PatternSearch(int maxLength, int maxChannels) : PatternSearch(maxLength, maxChannels, maxLength) {}

    // Takes the segments, count samples each (count <= maxLength), and their running energy.
    void begin(const double* const* segments, int channelCount, int count);
    // Fills out[c][0 .. length) for the hole [hole, hole + length) with borders of
    // `border` samples; the source passage and its borders never overlap the hole.
    // Returns the match's normalised correlation, or 0 (and writes zeros) when no
    // source fits.
    double fill(int hole, int length, int border, double* const* out);
    // The same search's scores, for other selections: the normalised correlation of the
    // hole's borders with the borders of every window of the same shape starting at u,
    // for u < windows (0 where the window holds part of the hole or is silent).
    // In the search's own buffer, which the caller may overwrite, until the next call;
    // nullptr with windows = 0 when no source fits.
    double* scores(int hole, int length, int border, int& windows);

    static constexpr int blockMinimum = 4096;

private:
    int blockSizeFor(int span) const;
    double templateFor(int hole, int length, int& border);
    double correlationAt(int hole, int length, int border);
    double windowEnergy(int u, int length, int border) const;
    double scoreAt(int u, int hole, int length, int border, double templateEnergy) const;

    int size;          // of the whole segment
    int largestBlock;  // the largest block's transform
    int maxChannels_;
    int channels = 0;
    int count_ = 0;
    const double* const* segments_ = nullptr;
    // Blocks from blockMinimum (or less, for short segments) to largestBlock, in the
    // search's precision (the other one is null).
    std::unique_ptr<BlockCorrelator<double>> exactBlocks;
    std::unique_ptr<BlockCorrelator<float>> rankingBlocks;
    std::unique_ptr<double[]> work;                  // size: every window's correlation
    kernel_paths::Path path = kernel_paths::fastestPath();
    std::unique_ptr<double[]> energy;                // maxLength + 1 running sums of squares
};
