// Fills a hole by repeating the pitch cycle found on each side of it: the last cycle
// before the hole and the first after it, crossfaded along the hole, are read at one
// phase whose rate glides from the one side's pitch to the other's and which meets
// both edges in step. Voiced sound keeps its waveform for many periods, where an
// autoregressive extrapolation rings down within a few tens of milliseconds.
//
// The period on a side comes from the normalised correlation, summed over the
// channels, between the `window` samples next to the hole and the same stretch one lag
// further out: the shortest lag at a peak near the highest (a multiple of the period
// correlates as well). Only `window + maxPeriod` samples on each side are read. Works on
// the caller's segments (double, any scale); the constructor allocates, fill never
// does. Plain loops in double: the same bits on every platform. One thread at a time.
#pragma once

#include <memory>

#include "inpaint/CycleKernels.h"
#include "signal/KernelPath.h"

class PeriodicExtension {
public:
    PeriodicExtension(int minPeriod, int maxPeriod, int window, int maxChannels);

    // Samples read on each side of a hole.
    int reach() const { return window_ + maxPeriod_; }
    // Writes out[c][0 .. length) for the hole [hole, hole + length) of each segment;
    // returns the lesser of the two sides' period correlations.
    double fill(const double* const* segments, int channelCount, int hole, int length, double* const* out);

private:
    struct Period {
        int lag;
        double correlation;
    };
    // direction -1: the stretch before `edge`, compared with one a lag earlier;
    // +1: the stretch from `edge` on, compared with one a lag later.
    Period periodAt(const double* const* segments, int channelCount, int edge, int direction);
    static constexpr int lanes = inpaint_kernels::lagLanes;  // lags a pass
    void correlationsAt(const double* const* segments, int channelCount, int first, double near, int lag,
                        int direction, double* out) const;

    // The cycles on the two sides: their first samples and their periods.
    struct Cycles {
        int beforeStart, before, afterStart, after;
    };
    double cycleOffset(const double* const* segments, int channelCount, const Cycles& at);

    int minPeriod_, maxPeriod_, window_;
    std::unique_ptr<double[]> correlations;  // by lag, maxPeriod + 2
    // maxChannels x 2 (maxPeriod + 1): the cycle after the hole, twice over
    std::unique_ptr<double[]> resampled;
    std::unique_ptr<double[]> shiftScores;           // maxPeriod + 1: by circular shift
    std::unique_ptr<const double*[]> beforeRows, afterRows;  // maxChannels
    kernel_paths::Path path = kernel_paths::fastestPath();
};
