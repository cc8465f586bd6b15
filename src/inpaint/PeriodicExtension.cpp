#include "inpaint/PeriodicExtension.h"

#include <algorithm>
#include <cmath>

#include "inpaint/CycleKernels.h"

namespace {

// One cycle of a channel, `period` samples from `start`, read at a phase in cycles
// (taken modulo 1) by linear interpolation that wraps within the cycle.
double cycleAt(const double* x, int start, int period, double phase)
{
    const double position = (phase - std::floor(phase)) * period;
    const int k = std::min(static_cast<int>(position), period - 1);
    const double frac = position - k;
    return (1.0 - frac) * x[start + k] + frac * x[start + (k + 1) % period];
}

// The factor on the gliding phase that ends it at a whole number of cycles plus
// `offset`: of the whole numbers next to gliding - offset, the one that changes the
// pitch least by ratio. Mostly fewer <= gliding < more, and gliding / fewer <=
// more / gliding picks the fewer (products, not logarithms, for the same choice on
// every platform); where no whole cycle fits below gliding - offset, both lie above
// gliding and the test picks the fewer too. A hole shorter than a cycle may so hold
// none: forcing one there would double the pitch.
double nearestStretch(double gliding, double offset)
{
    const double fewer = std::max(0.0, std::floor(gliding - offset)) + offset, more = fewer + 1.0;
    return gliding * gliding <= fewer * more ? fewer / gliding : more / gliding;
}

}  // namespace

PeriodicExtension::PeriodicExtension(int minPeriod, int maxPeriod, int window, int maxChannels)
    : minPeriod_(minPeriod),
      maxPeriod_(maxPeriod),
      window_(window),
      correlations(new double[maxPeriod + 2]()),
      resampled(new double[static_cast<std::size_t>(maxChannels) * 2 * (maxPeriod + 1)]()),
      shiftScores(new double[maxPeriod + 1]()),
      beforeRows(new const double*[maxChannels]()),
      afterRows(new const double*[maxChannels]())
{
}

// The normalised correlations of the window at `first` (of energy `near` over all
// channels) with the windows `direction` times lags lag .. lag + lanes - 1 away: each
// lag's sums in their own chains, in the order of the channels, then of the samples.
void PeriodicExtension::correlationsAt(const double* const* segments, int channelCount, int first, double near,
                                       int lag, int direction, double* out) const
{
    double cross[lanes], far[lanes];
    inpaint_kernels::lagCorrelations(path, segments, channelCount, first, window_, lag, direction, cross, far);
    for (int i = 0; i < lanes; ++i) {
        const double energy = near * far[i];
        out[i] = energy > 0.0 ? cross[i] / std::sqrt(energy) : 0.0;
    }
}

// The shortest lag at a peak of the correlation within octaveTolerance of the highest:
// a multiple of the period correlates about as well, and taking it on one side only
// would glide the pitch by an octave.
PeriodicExtension::Period PeriodicExtension::periodAt(const double* const* segments, int channelCount, int edge,
                                                      int direction)
{
    const int first = direction < 0 ? edge - window_ : edge;
    double near = 0.0;
    for (int c = 0; c < channelCount; ++c)
        for (int j = 0; j < window_; ++j) near += segments[c][first + j] * segments[c][first + j];
    // The last pass ends at the longest lag, repeating a few (each lag's sums are its own).
    for (int from = minPeriod_; from <= maxPeriod_; from += lanes) {
        const int start = std::max(0, std::min(from, maxPeriod_ - lanes + 1));
        double pass[lanes];
        correlationsAt(segments, channelCount, first, near, start, direction, pass);
        for (int i = 0; i < lanes; ++i)
            if (start + i >= minPeriod_ && start + i <= maxPeriod_) correlations[start + i] = pass[i];
    }
    double highest = -2.0;
    for (int lag = minPeriod_; lag <= maxPeriod_; ++lag) highest = std::max(highest, correlations[lag]);
    correlations[maxPeriod_ + 1] = -2.0;
    constexpr double octaveTolerance = 0.9;
    for (int lag = minPeriod_; lag <= maxPeriod_; ++lag) {
        const bool peak = (lag == minPeriod_ || correlations[lag] >= correlations[lag - 1]) &&
                          correlations[lag] >= correlations[lag + 1];
        if (peak && correlations[lag] >= octaveTolerance * highest) return {lag, correlations[lag]};
    }
    return {minPeriod_, highest};
}

// The phase (in cycles of the cycle before the hole) at which the cycle after it
// lines up best with the one before, summed over the channels: the cycle after,
// resampled to the length of the one before, correlated at every circular shift.
double PeriodicExtension::cycleOffset(const double* const* segments, int channelCount, const Cycles& at)
{
    const int period = at.before;
    for (int c = 0; c < channelCount; ++c) {
        double* after = resampled.get() + c * 2 * (maxPeriod_ + 1);
        for (int j = 0; j < period; ++j) after[j] = cycleAt(segments[c], at.afterStart, at.after, double(j) / period);
        std::copy_n(after, period, after + period);
        beforeRows[c] = segments[c] + at.beforeStart;
        afterRows[c] = after;
    }
    // Eight shifts a pass, each summed in its own chain.
    for (int shift = 0; shift < period; shift += inpaint_kernels::cycleShiftLanes) {
        const int count = std::min(inpaint_kernels::cycleShiftLanes, period - shift);
        inpaint_kernels::circularCorrelations(path, beforeRows.get(), afterRows.get(), channelCount, period, shift,
                                              count, shiftScores.get() + shift);
    }
    int best = 0;
    double bestScore = 0.0;
    for (int shift = 0; shift < period; ++shift)
        if (shift == 0 || shiftScores[shift] > bestScore) {
            bestScore = shiftScores[shift];
            best = shift;
        }
    return double(best) / period;
}

double PeriodicExtension::fill(const double* const* segments, int channelCount, int hole, int length,
                               double* const* out)
{
    const Period left = periodAt(segments, channelCount, hole, -1);
    const Period right = periodAt(segments, channelCount, hole + length, 1);
    const Cycles at{hole - left.lag, left.lag, hole + length, right.lag};
    // The phase runs in cycles of the cycle before the hole, its rate gliding from one
    // side's period to the other's, stretched a little so that at the hole's end it
    // reaches a whole number of cycles plus the offset of the cycle after the hole:
    // the two cycles, crossfaded along the hole, stay in step and meet both edges.
    const double offset = cycleOffset(segments, channelCount, at);
    const double rateBefore = 1.0 / at.before, rateAfter = 1.0 / at.after;
    const double gliding = length * (rateBefore + rateAfter) / 2.0;
    const double stretch = nearestStretch(gliding, offset);
    for (int i = 0; i < length; ++i) {
        const double t = i;
        const double phase = stretch * (t * rateBefore + t * t / (2.0 * length) * (rateAfter - rateBefore));
        const double towardsEnd = (i + 0.5) / length;
        for (int c = 0; c < channelCount; ++c)
            out[c][i] = (1.0 - towardsEnd) * cycleAt(segments[c], at.beforeStart, at.before, phase) +
                        towardsEnd * cycleAt(segments[c], at.afterStart, at.after, phase - offset);
    }
    return std::min(left.correlation, right.correlation);
}
