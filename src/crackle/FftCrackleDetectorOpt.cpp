#include "crackle/FftCrackleDetectorOpt.h"

#include <algorithm>
#include <cmath>

#include "ar/ArRecursions.h"
#include "ar/ClassicRand.h"
#include "signal/PortableCosine.h"

namespace {

constexpr int optSettleLimit = 6;
// The order-7 polynomial, cut to its first filterOrder + 1 entries.
constexpr int storedRow = 7;
constexpr double silentTonalEnergy = 1e-10;
constexpr float levelFloor = 1e-9f;
constexpr float levelAfterReset = 1e-8f;

// Ascending order as the three-way float comparison gives it; NaN sorts last so
// that the order stays strict and weak whatever the input.
bool ascending(float a, float b) { return a < b || (!std::isnan(a) && std::isnan(b)); }

// Entry `index` of `values` sorted ascending; reorders `values`.
float sortedEntry(float* values, int count, int index)
{
    std::nth_element(values, values + index, values + count, ascending);
    return values[index];
}

}  // namespace

FftCrackleDetectorOpt::FftCrackleDetectorOpt(int channels, int frameSize)
    : FftCrackleDetector(channels, frameSize, optSettleLimit),
      hop_(frameSize / 4),
      weightedTonal_(channels, frameSize / 4),
      hannWindow_(frameSize / 4),
      statistic_(channels, frameSize / 4),
      autocorr_(lpcOrderLimit + 1),
      lpcRows_(lpcOrderLimit + 1, lpcOrderLimit + 1),
      orderErrors_(lpcOrderLimit + 1),
      coefficientRing_(ringSlots * channels, filterOrder + 1),
      filterInUse_(channels, filterOrder + 1),
      filterState_(channels, filterOrder + 1),
      quantileRing_(channels, quantileCount),
      quantilePosition_(channels, 0),
      sortScratch_(std::max(frameSize / 8, quantileCount))
{
    // Periodic Hann over one hop, scaled by 1/hop, computed in double.
    for (int k = 0; k < hop_; ++k) {
        const double angle = (6.283185307179586 * k) / hop_;
        hannWindow_[k] = static_cast<float>((0.5 - 0.5 * standardLib::cosine(angle)) / hop_);
    }
    reset();
}

void FftCrackleDetectorOpt::reset()
{
    FftCrackleDetector::reset();
    statistic_.fill(0.0f);
    weightedTonal_.fill(0.0);
    lpcRows_.fill(0.0);
    filterState_.fill(0.0f);
    quantileRing_.fill(0.0f);
    coefficientRing_.fill(0.0);
    filterInUse_.fill(0.0);
    std::fill(autocorr_.begin(), autocorr_.end(), 0.0);
    ringPosition_ = 0;
    for (int c = 0; c < channels(); ++c) setLevel(c, levelAfterReset);
    // quantilePosition is left where it stands: the emptied ring fills from there.
}

void FftCrackleDetectorOpt::onTonalHandedOut(float** audio, int offset, int position, int count)
{
    // Sample-major, channel-minor: one rand per sample and channel in stream order.
    for (int i = 0; i < count; ++i) {
        const int p = position + i;
        for (int c = 0; c < channels(); ++c) {
            const float t = audio[c][offset + i];
            const float dither =
                (static_cast<float>(ferrotip::rand()) * (1.0f / 32767.0f) - 0.5f) * 1e-6f;
            weightedTonal_[c][p] = static_cast<double>(t * hannWindow_[p] + dither);
        }
    }
}

void FftCrackleDetectorOpt::judgeHop()
{
    for (int c = 0; c < channels(); ++c) {
        storeFilter(c);
        // One shared slot index, advanced per channel.
        ringPosition_ = (ringPosition_ + 1) % ringSlots;
        std::copy_n(ringSlot(ringPosition_, c), filterOrder + 1, filterInUse_[c]);
        computeStatistic(c);
        const float level = std::max(movingQuantile(c), levelFloor);
        setLevel(c, level);
        judgeChannel(c, statistic_[c], level);
    }
}

void FftCrackleDetectorOpt::storeFilter(int c)
{
    // The filter comes from the tonal path, which the clicks do not reach. A silent
    // tonal path keeps the slot's filter.
    autocorrelate(weightedTonal_[c], hop_, autocorr_.data(), lpcOrderLimit);
    if (autocorr_[0] > silentTonalEnergy) {
        levinsonDurbinOrders(autocorr_.data(), lpcRows_.rows(), lpcOrderLimit, orderErrors_.data());
        std::copy_n(lpcRows_[storedRow], filterOrder + 1, ringSlot(ringPosition_, c));
    }
}

float FftCrackleDetectorOpt::filterStep(float* state, const double* taps, float x) const
{
    // Prediction error with taps 1..6; the sum is rounded to float after each tap.
    state[0] = x;
    float acc = x;
    for (int i = filterOrder; i >= 1; --i) {
        acc = static_cast<float>(static_cast<double>(state[i]) * taps[i] + static_cast<double>(acc));
        state[i] = state[i - 1];
    }
    return std::fabs(acc);
}

void FftCrackleDetectorOpt::computeStatistic(int c)
{
    // Forward and backward error magnitudes add, so a click shows from both sides.
    // The filter memory carries over between passes and hops.
    const float* x = residualRow(c);
    const double* taps = filterInUse_[c];
    float* state = filterState_[c];
    float* statistic = statistic_[c];
    for (int k = 0; k < hop_; ++k) statistic[k] = filterStep(state, taps, x[k]);
    for (int k = hop_ - 1; k >= 0; --k) statistic[k] = statistic[k] + filterStep(state, taps, x[k]);
}

void FftCrackleDetectorOpt::pushHalfHopQuantile(int c, const float* values)
{
    const int half = hop_ / 2;
    const int q = 2 * half / 3;
    std::copy_n(values, half, sortScratch_.data());
    quantileRing_[c][quantilePosition_[c]] = sortedEntry(sortScratch_.data(), half, q);
    quantilePosition_[c] = (quantilePosition_[c] + 1) % quantileCount;
}

float FftCrackleDetectorOpt::movingQuantile(int c)
{
    // A middle value of the two-thirds quantiles of the last ten hops: a click has
    // to lift nine of the twenty entries to move it.
    const int half = hop_ / 2;
    pushHalfHopQuantile(c, statistic_[c]);
    pushHalfHopQuantile(c, statistic_[c] + half);
    std::copy_n(quantileRing_[c], quantileCount, sortScratch_.data());
    return sortedEntry(sortScratch_.data(), quantileCount, quantileCount / 2 + 1);
}
