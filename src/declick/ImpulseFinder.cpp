#include "declick/ImpulseFinder.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

#include "ar/ArRecursions.h"

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

ImpulseFinder::ImpulseFinder(double threshold) : threshold_(threshold)
{
    for (int i = 0; i < window; ++i)
        taper_[i] = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (i + 0.5) / window);
}

// Autocorrelation method and Levinson's recursion: a stable model whatever the data.
bool ImpulseFinder::fitModel(std::span<const float, window> samples)
{
    for (int i = 0; i < window; ++i) tapered_[i] = taper_[i] * samples[i];
    std::array<double, order + 1> lags{};
    autocorrelate(tapered_.data(), window, lags.data(), order);
    if (!(lags[0] > 0.0) || !std::isfinite(lags[0])) return false;
    lags[0] *= 1.0 + whiteFloor;
    std::array<double*, order + 1> rows;
    for (int m = 0; m <= order; ++m) rows[m] = orderRows_[m].data();
    const int reached = levinsonDurbinRows(lags.data(), rows.data(), order);
    model_.fill(0.0);
    std::copy_n(orderRows_[reached].begin(), reached + 1, model_.begin());
    return true;
}

// Each judged sample less what the model predicts from the `order` samples before
// it (direction -1) or after it (+1). Each error sums its terms in model order; the
// samples side by side keep the adds apart.
void ImpulseFinder::predictionErrors(std::span<const float, window> samples, int direction,
                                     std::array<double, judged>& errors) const
{
    errors.fill(0.0);
    const int first = context - reach;
    for (int j = 0; j <= order; ++j) {
        const float* shifted = samples.data() + first + direction * j;
        for (int i = 0; i < judged; ++i) errors[i] += model_[j] * shifted[i];
    }
}

// |forward error| over the block, where judged, into magnitudes_; returns how many.
int ImpulseFinder::gatherBlockErrors(int validFrom, int validTo)
{
    int count = 0;
    for (int n = std::max(context, validFrom + order); n < std::min(context + block, validTo); ++n)
        magnitudes_[count++] = std::fabs(forwardErrors_[n - (context - reach)]);
    return count;
}

// The largest |forward error| where it is judged.
double ImpulseFinder::largestForwardError(int validFrom, int validTo) const
{
    double largest = 0.0;
    for (int i = 0; i < judged; ++i) {
        const int n = context - reach + i;
        if (n - order >= validFrom && n < validTo) largest = std::max(largest, std::fabs(forwardErrors_[i]));
    }
    return largest;
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
        forward_[i] = n - order >= validFrom && n < validTo && std::fabs(forwardErrors_[i]) > limit;
        backward_[i] = n >= validFrom && n + order < validTo && std::fabs(backwardErrors_[i]) > limit;
    }
}

// The impulse in the run of flags [runStart, runEnd], if the run is one.
std::optional<ImpulseFinder::Impulse> ImpulseFinder::impulseIn(int runStart, int runEnd) const
{
    const bool startsInBlock = runStart >= reach && runStart < reach + block;
    if (!startsInBlock || runEnd - runStart > maxImpulse + 2 * order) return std::nullopt;
    int first = runStart;
    while (first <= runEnd && !forward_[first]) ++first;
    int last = runEnd;
    while (last >= runStart && !backward_[last]) --last;
    if (first > runEnd) return std::nullopt;
    if (last < runStart) last = runEnd;
    last = std::max(last, first);
    if (last - first >= maxImpulse) return std::nullopt;
    return Impulse{first - reach, last - reach};
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

void ImpulseFinder::find(std::span<const float, window> samples, int validFrom, int validTo,
                         std::vector<Impulse>& found)
{
    if (!fitModel(samples)) return;
    predictionErrors(samples, -1, forwardErrors_);
    const int count = gatherBlockErrors(validFrom, validTo);
    if (count == 0) return;
    // Most blocks hold no impulse: where the median already lies as high as the
    // largest error would need, nothing can pass, and the median need not be found.
    const double largest = largestForwardError(validFrom, validTo);
    if (medianAtLeast(count, largest * medianToDeviation / threshold_)) return;
    const double limit = threshold_ * robustErrorLevel(samples, count);
    // An impulse starts where the past cannot predict it.
    if (!(limit > 0.0) || !(largest > limit)) return;
    predictionErrors(samples, 1, backwardErrors_);
    flagOutliers(validFrom, validTo, limit);
    collectRuns(found);
}
