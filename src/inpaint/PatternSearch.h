// Similarity search for long gaps: the passage of the known audio whose two borders
// (a stretch before and one after a hole of the gap's length) best match the gap's own
// borders, by normalised correlation summed over the channels, and the passage
// between them scaled by its least-squares gain on the borders. The correlation of
// every shift comes from one transform per channel and gap and one per hole.
//
// begin takes each channel's segment (the gap's samples are never read by a search
// that excludes them). The constructor allocates for segments up to maxLength samples
// and maxChannels channels; nothing else does. The signal library's transform gives
// the same bits on every instruction-set path. One thread at a time per object.
#pragma once

#include <memory>

#include "signal/CFft_std.h"

class PatternSearch {
public:
    PatternSearch(int maxLength, int maxChannels);

    // Transforms the segments, count samples each (count <= maxLength).
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

private:
    double templateFor(int hole, int length, int& border);
    double correlationAt(int hole, int length, int border);
    double windowEnergy(int u, int length, int border) const;
    double scoreAt(int u, int hole, int length, int border, double templateEnergy) const;

    int size;
    int maxChannels_;
    int channels = 0;
    int count_ = 0;
    const double* const* segments_ = nullptr;
    standardLib::standard::CFft_std<double> fft;
    std::unique_ptr<double[]> spectraRe, spectraIm;  // maxChannels x (size / 2 + 1)
    std::unique_ptr<double[]> accRe, accIm, re, im;  // size / 2 + 1
    std::unique_ptr<double[]> work;                  // size
    std::unique_ptr<double[]> energy;                // maxLength + 1 running sums of squares
};
