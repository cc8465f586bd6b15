// Fills a hole by repeating the pitch period found on each side of it: each side's
// last (or first) period is repeated across the hole, and the two are crossfaded
// from one side to the other. Voiced sound keeps its waveform for many periods, where
// an autoregressive extrapolation rings down within a few tens of milliseconds.
//
// The period on a side is the lag of the highest normalised correlation, summed over
// the channels, between the `window` samples next to the hole and the same stretch one
// lag further out; only `window + maxPeriod` samples on each side are read. Works on
// the caller's segments (double, any scale); holds no buffers and never allocates.
// Plain loops in double: the same bits on every platform. Any thread.
#pragma once

class PeriodicExtension {
public:
    PeriodicExtension(int minPeriod, int maxPeriod, int window);

    // Samples read on each side of a hole.
    int reach() const { return window_ + maxPeriod_; }
    // Writes out[c][0 .. length) for the hole [hole, hole + length) of each segment.
    void fill(const double* const* segments, int channelCount, int hole, int length, double* const* out) const;

private:
    // direction -1: the stretch before `edge`, compared with one a lag earlier;
    // +1: the stretch from `edge` on, compared with one a lag later.
    int periodAt(const double* const* segments, int channelCount, int edge, int direction) const;

    int minPeriod_, maxPeriod_, window_;
};
