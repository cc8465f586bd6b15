#include "declick/ImpulseFinder.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
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

namespace {

typedef double Pair __attribute__((vector_size(2 * sizeof(double))));
typedef long long PairBits __attribute__((vector_size(2 * sizeof(long long))));

// The largest |x[i]| for i in [0, count), in four partial maxima (two pairs, which the
// compiler keeps in vector registers): the largest of a set is the same in any order.
double largestMagnitude(const double* x, int count)
{
    const PairBits magnitudeBits = {0x7fffffffffffffffLL, 0x7fffffffffffffffLL};
    Pair low = {0.0, 0.0};
    Pair high = {0.0, 0.0};
    int i = 0;
    for (; i + 4 <= count; i += 4) {
        PairBits a;
        PairBits b;
        std::memcpy(&a, x + i, sizeof a);
        std::memcpy(&b, x + i + 2, sizeof b);
        const Pair u = std::bit_cast<Pair>(a & magnitudeBits);
        const Pair v = std::bit_cast<Pair>(b & magnitudeBits);
        low = low > u ? low : u;
        high = high > v ? high : v;
    }
    double largest = 0.0;
    for (const double lane : {low[0], low[1], high[0], high[1]}) largest = std::max(largest, lane);
    for (; i < count; ++i) largest = std::max(largest, std::fabs(x[i]));
    return largest;
}

// How many of x[0, count) lie below bound, two at a time in vector lanes.
int countBelow(const double* x, int count, double bound)
{
    const Pair bounds = {bound, bound};
    PairBits below = {0, 0};
    int i = 0;
    for (; i + 2 <= count; i += 2) {
        Pair v;
        std::memcpy(&v, x + i, sizeof v);
        below -= v < bounds;  // a true compare is all ones: -1
    }
    long long total = below[0] + below[1];
    for (; i < count; ++i) total += x[i] < bound ? 1 : 0;
    return static_cast<int>(total);
}

}  // namespace

// |forward error| over the block, where judged, into magnitudes_; returns how many.
int ImpulseFinder::gatherBlockErrors(int validFrom, int validTo)
{
    const int from = std::max(context, validFrom + order);
    const int count = std::max(std::min(context + block, validTo) - from, 0);
    const double* errors = forwardErrors_.data() + narrowOffset + from - (context - reach);
    for (int i = 0; i < count; ++i) magnitudes_[i] = std::fabs(errors[i]);
    return count;
}

// The largest |forward error| among computed positions [from, to) where it is judged
// (its `order` samples before it and itself inside the recording).
double ImpulseFinder::largestForwardError(int from, int to, int validFrom, int validTo) const
{
    const int origin = context - wideReach;  // window position of computed[0]
    from = std::max(from, validFrom + order - origin);
    to = std::min(to, validTo - origin);
    return from < to ? largestMagnitude(forwardErrors_.data() + from, to - from) : 0.0;
}

// Whether the median of magnitudes_[0, count) is at least `bound`: at most count / 2
// of them lie below it. A count where nth_element would sort.
bool ImpulseFinder::medianAtLeast(int count, double bound) const
{
    return countBelow(magnitudes_.data(), count, bound) <= count / 2;
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

// Computed positions whose matched filter reads only errors that are judged: its
// samples `order` before to `order` after the position inside the recording.
std::pair<int, int> ImpulseFinder::matchedRange(int validFrom, int validTo) const
{
    const int origin = context - wideReach;  // window position of computed[0]
    return {std::max(validFrom + order - origin, 0), std::min(validTo - order - origin, matchedCount)};
}

namespace {

[[gnu::always_inline]] inline double larger(double a, double b) { return a > b ? a : b; }

// score[i] = the largest of |m[i]| w[0], |m[i] + m[i + 1]| w[1] and
// |m[i] + m[i + 1] + m[i + 2]| w[2] for i in [from, to), each sum taken only where m
// reaches (below end); returns the largest score. Plain loops over independent
// positions, which the compiler spreads over vector lanes without changing a bit.
double scorePulses(const double* m, const std::array<double, 3>& w, double* score, int from, int to, int end)
{
    static_assert(ImpulseFinder::pulseLengths == 3);
    for (int i = from; i < to; ++i) score[i] = std::fabs(m[i]) * w[0];
    for (int i = from; i < std::min(to, end - 1); ++i) score[i] = larger(score[i], std::fabs(m[i] + m[i + 1]) * w[1]);
    for (int i = from; i < std::min(to, end - 2); ++i)
        score[i] = larger(score[i], std::fabs(m[i] + m[i + 1] + m[i + 2]) * w[2]);
    return largestMagnitude(score + from, to - from);  // scores are not negative
}

}  // namespace

// The matched filter at computed positions up to what the scores before `position`
// read, within the judged range; returns that end.
int ImpulseFinder::filterFor(int position)
{
    const int filterTo = std::min(position + pulseLengths - 1, matchedTo_);
    if (filterTo > filteredTo_) {
        impulse_kernels::predictionErrors(kernelPath_, forwardErrors_.data() + filteredTo_, model_.data(), order, 1,
                                          matched_.data() + filteredTo_, filterTo - filteredTo_);
        filteredTo_ = filterTo;
    }
    return filterTo;
}

// Scores (and the matched filter they read) at computed positions up to `position`,
// within the judged range; returns the largest of those added.
double ImpulseFinder::scoreUpTo(int position)
{
    const int to = std::min(position, matchedTo_);
    if (to <= scoredTo_) return 0.0;
    filterFor(to);
    const double largest = scorePulses(matched_.data(), pulseWeights_, score_.data(), scoredTo_, to, matchedTo_);
    scoredTo_ = to;
    return largest;
}

// Whether fine crackle may start in the block: the matched filter
// matched_[i] = sum over j in [0, order] of model[j] * forward error[i + j], and the
// score of a pulse of L samples at i, |matched_[i] + ... + matched_[i + L - 1]| over
// that sum's deviation for white errors of unit level, largest over L, in score_.
// A run starts in the block only with a flag there and none in the fineJoin samples
// before it, so scores are taken from there to a little past the block, and further
// only while a run stays open (findFine). No score can pass where the median already
// lies as high as the largest would need; most blocks are ruled out by a bound before
// any score is taken.
bool ImpulseFinder::fineCracklePossible(int validFrom, int validTo, int count)
{
    const auto [from, to] = matchedRange(validFrom, validTo);
    const int scoreFrom = std::max(from, wideReach - fineJoin);
    const int scoreTo = std::min(to, wideReach + block + fineTail);
    if (scoreFrom >= scoreTo) return false;
    matchedTo_ = to;
    scoreFrom_ = filteredTo_ = scoredTo_ = scoreFrom;
    std::array<double, pulseLengths> lags{};  // autocorrelation of the model's coefficients
    autocorrelate(model_.data(), order + 1, lags.data(), pulseLengths - 1);
    double gain = 0.0;  // a score is at most gain * max |matched_|
    for (int length = 1; length <= pulseLengths; ++length) {
        double variance = length * lags[0];
        for (int k = 1; k < length; ++k) variance += 2.0 * (length - k) * lags[k];
        pulseWeights_[length - 1] = 1.0 / std::sqrt(variance);
        gain = std::max(gain, length * pulseWeights_[length - 1]);
    }
    const auto passable = [&](double largestScore) {
        return !medianAtLeast(count, largestScore * medianToDeviation / fineThreshold_);
    };
    const int filterTo = filterFor(scoreTo);
    // (A hair above the bound, for the sums' rounding.)
    const double largestMatched = largestMagnitude(matched_.data() + scoreFrom, filterTo - scoreFrom);
    return passable(gain * largestMatched * (1.0 + 1e-9)) && passable(scoreUpTo(scoreTo));
}

// First forward flag to last backward flag at fineExtentShare of the fine threshold,
// from fineSpread samples before the run of matched flags [runStart, runEnd] to as
// far after it; the run itself where no forward error stands out.
std::pair<int, int> ImpulseFinder::fineExtentOf(int runStart, int runEnd, int validFrom, int validTo,
                                                double level) const
{
    const double limit = fineExtentShare * fineThreshold_ * level;
    const int origin = context - wideReach;
    int first = -1;
    int last = -1;
    for (int i = std::max(runStart - fineSpread, 0); i <= std::min(runEnd + fineSpread, computed - 1); ++i) {
        const int n = origin + i;
        if (first < 0 && n - order >= validFrom && n < validTo && std::fabs(forwardErrors_[i]) > limit) first = i;
        if (n >= validFrom && n + order < validTo && std::fabs(backwardErrors_[i]) > limit) last = i;
    }
    if (first < 0) return {runStart, runEnd};
    return {first, last >= first ? last : std::max(runEnd, first)};
}

// The fine crackle in the run of matched flags [runStart, runEnd] (computed
// positions), if the run starts in the block and stands out of its surroundings too.
std::optional<ImpulseFinder::Impulse> ImpulseFinder::fineIn(int runStart, int runEnd, int validFrom, int validTo,
                                                            double level)
{
    const bool startsInBlock = runStart >= wideReach && runStart < wideReach + block;
    if (!startsInBlock) return std::nullopt;
    const auto [first, last] = fineExtentOf(runStart, runEnd, validFrom, validTo, level);
    if (last - first >= fineLongest) return std::nullopt;
    double peak = 0.0;
    for (int i = runStart; i <= runEnd; ++i) peak = std::max(peak, score_[i]);
    if (peak < fineThreshold_ * localErrorLevel(runStart, runEnd)) return std::nullopt;
    return Impulse{first - wideReach, last - wideReach, peak / level};
}

void ImpulseFinder::findFine(int validFrom, int validTo, double level, std::vector<Impulse>& fine)
{
    const double limit = fineThreshold_ * level;
    int runStart = -1;
    int lastFlag = 0;
    blockFine_.clear();
    const auto closeRun = [&] {
        if (const auto crackle = fineIn(runStart, lastFlag, validFrom, validTo, level)) blockFine_.push_back(*crackle);
    };
    for (int i = scoreFrom_; i < matchedTo_; ++i) {
        if (runStart >= 0 && i - lastFlag > fineJoin) {
            closeRun();
            runStart = -1;
        }
        // Past the block only an open run needs scores.
        if (runStart < 0 && i >= wideReach + block) break;
        if (i >= scoredTo_) scoreUpTo(i + fineTail);
        if (score_[i] > limit) {
            if (runStart < 0) runStart = i;
            lastFlag = i;
        }
    }
    if (runStart >= 0) closeRun();
    // A sawtooth bass's corner in every cycle looks like an impulse to the model;
    // crackle comes a few times a block at most.
    if (static_cast<int>(blockFine_.size()) <= finePerBlock) fine.insert(fine.end(), blockFine_.begin(), blockFine_.end());
}

void ImpulseFinder::find(std::span<const float, window> samples, int validFrom, int validTo,
                         std::vector<Impulse>& found, std::vector<Impulse>* fine)
{
    if (!fitModel(samples)) return;
    predictionErrors(-1, forwardErrors_);
    const int count = gatherBlockErrors(validFrom, validTo);
    if (count == 0) return;
    // Most blocks hold neither: where the median already lies as high as the largest
    // error (or pulse score) would need, nothing can pass, and the median need not be
    // found.
    const double largest = largestForwardError(narrowOffset, narrowOffset + judged, validFrom, validTo);
    const bool impulsePossible = !medianAtLeast(count, largest * medianToDeviation / threshold_);
    const bool finePossible = fine != nullptr && fineThreshold_ > 0.0 && fineCracklePossible(validFrom, validTo, count);
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
