#include "declick/ImpulseFinder.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <optional>

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
    for (int k = 0; k <= order; ++k) {
        double sum = 0.0;
        for (int i = k; i < window; ++i) sum += tapered_[i] * tapered_[i - k];
        lags[k] = sum;
    }
    if (!(lags[0] > 0.0) || !std::isfinite(lags[0])) return false;
    lags[0] *= 1.0 + whiteFloor;
    model_.fill(0.0);
    model_[0] = 1.0;
    double error = lags[0];
    for (int m = 1; m <= order; ++m) {
        double acc = lags[m];
        for (int j = 1; j < m; ++j) acc += model_[j] * lags[m - j];
        const double reflection = -acc / error;
        for (int j = 1; j <= m / 2; ++j) {
            const double low = model_[j];
            const double high = model_[m - j];
            model_[j] = low + reflection * high;
            if (j != m - j) model_[m - j] = high + reflection * low;
        }
        model_[m] = reflection;
        error *= 1.0 - reflection * reflection;
    }
    return true;
}

// Sample n less what the model predicts from the `order` samples before it
// (direction -1) or after it (+1).
double ImpulseFinder::predictionError(std::span<const float, window> samples, int n, int direction) const
{
    double error = 0.0;
    for (int j = 0; j <= order; ++j) error += model_[j] * samples[n + direction * j];
    return error;
}

// Median |forward error| over the block, floored by a share of the window's rms.
double ImpulseFinder::robustErrorLevel(std::span<const float, window> samples, int validFrom, int validTo)
{
    int count = 0;
    for (int n = std::max(context, validFrom + order); n < std::min(context + block, validTo); ++n)
        magnitudes_[count++] = std::fabs(predictionError(samples, n, -1));
    if (count == 0) return 0.0;
    const auto middle = magnitudes_.begin() + count / 2;
    std::nth_element(magnitudes_.begin(), middle, magnitudes_.begin() + count);
    double energy = 0.0;
    for (int i = 0; i < window; ++i) energy += static_cast<double>(samples[i]) * samples[i];
    return std::max(*middle / medianToDeviation, minErrorShare * std::sqrt(energy / window));
}

void ImpulseFinder::flagOutliers(std::span<const float, window> samples, int validFrom, int validTo, double limit)
{
    for (int i = 0; i < judged; ++i) {
        const int n = context - reach + i;
        forward_[i] = n - order >= validFrom && n < validTo && std::fabs(predictionError(samples, n, -1)) > limit;
        backward_[i] = n >= validFrom && n + order < validTo && std::fabs(predictionError(samples, n, 1)) > limit;
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
    if (first > runEnd) first = runStart;
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
    const double level = robustErrorLevel(samples, validFrom, validTo);
    if (!(level > 0.0)) return;
    flagOutliers(samples, validFrom, validTo, threshold_ * level);
    collectRuns(found);
}
