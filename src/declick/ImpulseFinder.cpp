#include "declick/ImpulseFinder.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>
#include <utility>

#include "ar/ArRecursions.h"
#include "declick/ImpulseKernels.h"

namespace {

// Median absolute value of Gaussian errors over their standard deviation.
constexpr double medianToDeviation = 0.6745;
// White floor on the autocorrelation (-90 dB), so the recursion stays regular on
// a pure tone or digital silence.
constexpr double whiteFloor = 1e-9;
// The error level never counts as less than this share of the window's rms: on a
// signal the model predicts almost exactly, rounding noise is not an impulse.
constexpr double minErrorShare = 1e-3;

}  // namespace

ImpulseFinder::ImpulseFinder(double threshold, double fineThreshold)
    : threshold_(threshold), fineThreshold_(fineThreshold), kernelPath_(kernel_paths::fastestPath())
{
    for (int i = 0; i < window; ++i)
        taper_[i] = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (i + 0.5) / window);
}

// Autocorrelation method and Levinson's recursion: a stable model whatever the data.
bool ImpulseFinder::fitModel(std::span<const float, window> samples)
{
    for (int i = 0; i < window; ++i) {
        widened_[i] = samples[i];
        tapered_[i] = taper_[i] * widened_[i];
    }
    return modelFit_.fit(tapered_.data(), window, whiteFloor, model_);
}

// Each computed sample less what the model predicts from the `order` samples before
// it (direction -1) or after it (+1), each error summed in model order from zero.
void ImpulseFinder::predictionErrors(int direction, std::array<double, computed>& errors) const
{
    const double* first = widened_.data() + (context - wideReach);
    impulse_kernels::predictionErrors(kernelPath_, first, model_.data(), order, direction, errors.data(), computed);
}

// |forward error| over the block, where judged, into magnitudes_; returns how many.
int ImpulseFinder::gatherBlockErrors(int validFrom, int validTo)
{
    int count = 0;
    for (int n = std::max(context, validFrom + order); n < std::min(context + block, validTo); ++n)
        magnitudes_[count++] = std::fabs(forwardError(n - (context - reach)));
    return count;
}

// The largest |forward error| among computed positions [from, to) where it is judged
// (its `order` samples before it and itself inside the recording). Four partial
// maxima: the largest of a set is the same in any order.
double ImpulseFinder::largestForwardError(int from, int to, int validFrom, int validTo) const
{
    const int origin = context - wideReach;  // window position of computed[0]
    from = std::max(from, validFrom + order - origin);
    to = std::min(to, validTo - origin);
    std::array<double, 4> largest{};
    int i = from;
    for (; i + 4 <= to; i += 4)
        for (int lane = 0; lane < 4; ++lane) largest[lane] = std::max(largest[lane], std::fabs(forwardErrors_[i + lane]));
    for (; i < to; ++i) largest[0] = std::max(largest[0], std::fabs(forwardErrors_[i]));
    return std::max(std::max(largest[0], largest[1]), std::max(largest[2], largest[3]));
}

// Whether the median of magnitudes_[0, count) is at least `bound`: at most count / 2
// of them lie below it. A count where nth_element would sort.
bool ImpulseFinder::medianAtLeast(int count, double bound) const
{
    int below = 0;
    for (int i = 0; i < count; ++i) below += magnitudes_[i] < bound ? 1 : 0;
    return below <= count / 2;
}

// Median |forward error| over the block, floored by a share of the window's rms.
double ImpulseFinder::robustErrorLevel(std::span<const float, window> samples, int count)
{
    const auto middle = magnitudes_.begin() + count / 2;
    std::nth_element(magnitudes_.begin(), middle, magnitudes_.begin() + count);
    double energy = 0.0;
    for (int i = 0; i < window; ++i) energy += static_cast<double>(samples[i]) * samples[i];
    return std::max(*middle / medianToDeviation, minErrorShare * std::sqrt(energy / window));
}

void ImpulseFinder::flagOutliers(int validFrom, int validTo, double limit)
{
    for (int i = 0; i < judged; ++i) {
        const int n = context - reach + i;
        forward_[i] = n - order >= validFrom && n < validTo && std::fabs(forwardError(i)) > limit;
        backward_[i] = n >= validFrom && n + order < validTo && std::fabs(backwardError(i)) > limit;
    }
}

namespace {

// In a run of flags [runStart, runEnd]: its first forward flag and its last backward
// one (the run's end if it has none), or nothing without a forward flag.
std::optional<std::pair<int, int>> flaggedExtent(const bool* forward, const bool* backward, int runStart, int runEnd)
{
    int first = runStart;
    while (first <= runEnd && !forward[first]) ++first;
    int last = runEnd;
    while (last >= runStart && !backward[last]) --last;
    if (first > runEnd) return std::nullopt;
    if (last < runStart) last = runEnd;
    return std::pair{first, std::max(last, first)};
}

}  // namespace

// The impulse in the run of flags [runStart, runEnd], if the run is one.
std::optional<ImpulseFinder::Impulse> ImpulseFinder::impulseIn(int runStart, int runEnd) const
{
    const bool startsInBlock = runStart >= reach && runStart < reach + block;
    if (!startsInBlock || runEnd - runStart > maxImpulse + 2 * order) return std::nullopt;
    const auto extent = flaggedExtent(forward_.data(), backward_.data(), runStart, runEnd);
    if (!extent || extent->second - extent->first >= maxImpulse) return std::nullopt;
    return Impulse{extent->first - reach, extent->second - reach};
}

// Flags closer than maxImpulse form a run; a run ends where a longer gap follows it.
void ImpulseFinder::collectRuns(std::vector<Impulse>& found) const
{
    int runStart = -1;
    int lastFlag = 0;
    for (int i = 0; i < judged; ++i) {
        if (runStart >= 0 && i - lastFlag > maxImpulse) {
            if (const auto impulse = impulseIn(runStart, lastFlag)) found.push_back(*impulse);
            runStart = -1;
        }
        if (forward_[i] || backward_[i]) {
            if (runStart < 0) runStart = i;
            lastFlag = i;
        }
    }
}

// The median |forward error| over the run and localReach samples on each side of
// it (as far as errors are computed), over the median's deviation ratio.
double ImpulseFinder::localErrorLevel(int runStart, int runEnd)
{
    const int from = std::max(runStart - localReach, 0);
    const int to = std::min(runEnd + localReach, computed);
    const int count = to - from;
    for (int i = 0; i < count; ++i) local_[i] = std::fabs(forwardErrors_[from + i]);
    const auto upper = local_.begin() + count / 2;
    std::nth_element(local_.begin(), upper, local_.begin() + count);
    double median = *upper;
    if (count % 2 == 0) median = 0.5 * (median + *std::max_element(local_.begin(), upper));
    return median / medianToDeviation;
}

// The fine crackle in the run of fine flags [runStart, runEnd] (computed positions),
// if the run is one, with its peak error over the block's level.
std::optional<ImpulseFinder::Impulse> ImpulseFinder::fineIn(int runStart, int runEnd, double level)
{
    const bool startsInBlock = runStart >= wideReach && runStart < wideReach + block;
    if (!startsInBlock || runEnd - runStart > fineJoin + 2 * order) return std::nullopt;
    const auto extent = flaggedExtent(fineForward_.data(), fineBackward_.data(), runStart, runEnd);
    if (!extent || extent->second - extent->first >= fineJoin) return std::nullopt;
    double peak = 0.0;
    for (int i = runStart; i <= runEnd; ++i)
        peak = std::max({peak, std::fabs(forwardErrors_[i]), std::fabs(backwardErrors_[i])});
    if (peak < fineThreshold_ * localErrorLevel(runStart, runEnd)) return std::nullopt;
    return Impulse{extent->first - wideReach, extent->second - wideReach, peak / level};
}

void ImpulseFinder::findFine(int validFrom, int validTo, double level, std::vector<Impulse>& fine)
{
    const double limit = fineThreshold_ * level;
    for (int i = 0; i < computed; ++i) {
        const int n = context - wideReach + i;
        fineForward_[i] = n - order >= validFrom && n < validTo && std::fabs(forwardErrors_[i]) > limit;
        fineBackward_[i] = n >= validFrom && n + order < validTo && std::fabs(backwardErrors_[i]) > limit;
    }
    blockFine_.clear();
    int runStart = -1;
    int lastFlag = 0;
    const auto closeRun = [&] {
        if (const auto candidate = fineIn(runStart, lastFlag, level)) blockFine_.push_back(*candidate);
    };
    for (int i = 0; i < computed; ++i) {
        if (runStart >= 0 && i - lastFlag > fineJoin) {
            closeRun();
            runStart = -1;
        }
        if (fineForward_[i] || fineBackward_[i]) {
            if (runStart < 0) runStart = i;
            lastFlag = i;
        }
    }
    if (runStart >= 0) closeRun();
    if (static_cast<int>(blockFine_.size()) > finePerBlock) return;
    for (const Impulse& candidate : blockFine_) {
        const int extent = candidate.last - candidate.first + 1;
        if (extent <= fineExtent || (extent <= fineLongExtent && candidate.peak > fineLongThreshold))
            fine.push_back(candidate);
    }
}

void ImpulseFinder::find(std::span<const float, window> samples, int validFrom, int validTo,
                         std::vector<Impulse>& found, std::vector<Impulse>* fine)
{
    if (!fitModel(samples)) return;
    predictionErrors(-1, forwardErrors_);
    const int count = gatherBlockErrors(validFrom, validTo);
    if (count == 0) return;
    // Most blocks hold no impulse: where the median already lies as high as the
    // largest error would need, nothing can pass, and the median need not be found.
    const double largest = largestForwardError(narrowOffset, narrowOffset + judged, validFrom, validTo);
    const bool impulsePossible = !medianAtLeast(count, largest * medianToDeviation / threshold_);
    const bool finePossible = fine != nullptr && fineThreshold_ > 0.0 &&
                              !medianAtLeast(count, largestForwardError(0, computed, validFrom, validTo) * medianToDeviation / fineThreshold_);
    if (!impulsePossible && !finePossible) return;
    const double level = robustErrorLevel(samples, count);
    const double limit = threshold_ * level;
    if (!(level > 0.0)) return;
    predictionErrors(1, backwardErrors_);
    // An impulse starts where the past cannot predict it.
    if (impulsePossible && largest > limit) {
        flagOutliers(validFrom, validTo, limit);
        collectRuns(found);
    }
    if (finePossible) findFine(validFrom, validTo, level, *fine);
}
