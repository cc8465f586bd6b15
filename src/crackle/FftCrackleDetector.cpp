#include "crackle/FftCrackleDetector.h"

#include <algorithm>
#include <cmath>

#include "crackle/SpectralSplit.h"

namespace {

constexpr int hannWindowSelector = 1;
constexpr int defaultMargin = -1;
constexpr int standardSettleLimit = 5;
constexpr float levelFloor = 1e-9f;
// The in-place mark delay works in runs of up to this many samples, each costing a
// move of the 30-sample history: long runs keep that move rare.
constexpr int delayRunLength = 1024;

std::unique_ptr<standardLib::FftFrameProcessor> makeFrameProcessor(int channels, int frameSize)
{
    return std::make_unique<standardLib::FftFrameProcessor>(channels, channels, frameSize,
                                                             hannWindowSelector, defaultMargin,
                                                             defaultMargin);
}

}  // namespace

FftCrackleDetector::FftCrackleDetector(int channels, int frameSize)
    : FftCrackleDetector(channels, frameSize, standardSettleLimit)
{
}

FftCrackleDetector::FftCrackleDetector(int channels, int frameSize, int settleLimit)
    : channels_(channels),
      frameSize_(frameSize),
      hop_(frameSize / 4),
      tonalDelayLine_(std::make_unique<DelayClass>(channels, markDelay, delayRunLength)),
      residualDelayLine_(std::make_unique<DelayClass>(channels, markDelay, delayRunLength)),
      tonalFft_(makeFrameProcessor(channels, frameSize)),
      residualFft_(makeFrameProcessor(channels, frameSize)),
      tonalTime_(channels, frameSize),
      tonalRe_(channels, frameSize),
      tonalIm_(channels, frameSize),
      residualTime_(channels, frameSize),
      residualRe_(channels, frameSize),
      residualIm_(channels, frameSize),
      pendingMarks_(channels, frameSize),
      differences_(channels, frameSize / 4),
      trackers_(channels, ClickTracker(settleLimit)),
      prevSample_(channels),
      level_(channels),
      latency_(3 * (frameSize / 4) + markDelay),
      silent_(channels)
{
    reset();
}

FftCrackleDetector::~FftCrackleDetector() = default;

void FftCrackleDetector::reset()
{
    for (auto* rows : {&tonalTime_, &tonalRe_, &tonalIm_, &residualTime_, &residualRe_, &residualIm_, &differences_})
        rows->fill(0.0f);
    pendingMarks_.fill(0);
    for (auto& tracker : trackers_) tracker.reset();
    tonalFft_->reset();
    residualFft_->reset();
    std::fill(prevSample_.begin(), prevSample_.end(), 0.0f);
    std::fill(silent_.begin(), silent_.end(), 0);
    position_ = 0;
    tonalDelayLine_->reset();
    residualDelayLine_->reset();
}

int FftCrackleDetector::process(int** marks, float** audio, float** residual, int n)
{
    int offset = 0;
    while (offset < n) {
        const int count = std::min(n - offset, hop_ - position_);
        moveSamples(marks, audio, residual, offset, count);
        onTonalHandedOut(audio, offset, position_, count);
        offset += count;
        position_ += count;
        if (position_ == hop_) hopStep();
    }
    // The marks leave the tracker's history 29 samples after their difference;
    // delaying the audio by 30 puts each mark on the older sample of its pair.
    tonalDelayLine_->process(audio, 0, audio, 0, n);
    residualDelayLine_->process(residual, 0, residual, 0, n);
    return 0;
}

void FftCrackleDetector::moveSamples(int** marks, float** audio, float** residual, int offset,
                                     int count)
{
    // The time rows serve twice: the hop going out is read at the index where the
    // hop coming in is written. The arrays are distinct, so each exchange is a pair
    // of plain copies (and one swap for the tonal path, whose input is io itself).
    for (int c = 0; c < channels_; ++c) {
        float* tonal = tonalTime_[c] + position_;
        float* rest = residualTime_[c] + position_;
        float* io = audio[c] + offset;
        std::copy_n(rest, count, residual[c] + offset);
        std::copy_n(io, count, rest);
        std::copy_n(pendingMarks_[c] + position_, count, marks[c] + offset);
        std::swap_ranges(io, io + count, tonal);
    }
}

void FftCrackleDetector::onTonalHandedOut(float**, int, int, int) {}

void FftCrackleDetector::hopStep()
{
    detectSilence();
    position_ = 0;
    // Only the tonal processor transforms the input. The residual processor's
    // forward step would see the same input, and all it leaves behind is its spectrum,
    // which the split overwrites in every bin the inverse reads, and its copy of the
    // hop, which only its own forward step reads: skipping it changes no bit.
    tonalFft_->forward(tonalTime_.rows(), tonalRe_.rows(), tonalIm_.rows());
    splitSpectra();
    tonalFft_->inverse(tonalTime_.rows(), tonalRe_.rows(), tonalIm_.rows());
    residualFft_->inverse(residualTime_.rows(), residualRe_.rows(), residualIm_.rows());
    judgeHop();
}

void FftCrackleDetector::detectSilence()
{
    // A hop is silent unless the sum of its magnitudes is above zero. That sum of
    // non-negative terms is above zero exactly when no term is NaN and one term is
    // above zero (rounding never takes a sum of non-negative numbers below its
    // largest term, and overflow gives infinity), so the test needs no running sum:
    // two independent flags, which vectorise.
    for (int c = 0; c < channels_; ++c) {
        const float* hop = tonalTime_[c];
        int anyNaN = 0;
        int anySound = 0;
        for (int k = 0; k < hop_; ++k) {
            const float magnitude = std::fabs(hop[k]);
            anyNaN |= magnitude != magnitude ? 1 : 0;
            anySound |= magnitude > 0.0f ? 1 : 0;
        }
        silent_[c] = anySound != 0 && anyNaN == 0 ? 0 : 1;
    }
}

void FftCrackleDetector::splitSpectra()
{
    // Complementary gains g and 1 - g: the two paths sum to the input.
    const int bins = frameSize_ / 2 + 1;
    for (int c = 0; c < channels_; ++c)
        spectralsplit::splitSpectrum(tonalRe_[c], tonalIm_[c], residualRe_[c], residualIm_[c], bins, spectralFloor_);
}

void FftCrackleDetector::hopLevels()
{
    // The mean absolute difference of each channel, summed in sample order. Two
    // channels share a loop so that the latencies of their running sums overlap.
    const float hopLength = static_cast<float>(hop_);
    int c = 0;
    for (; c + 1 < channels_; c += 2) {
        const float* a = differences_[c];
        const float* b = differences_[c + 1];
        float sumA = 0.0f;
        float sumB = 0.0f;
        for (int k = 0; k < hop_; ++k) {
            sumA += a[k];
            sumB += b[k];
        }
        level_[c] = std::max(sumA / hopLength, levelFloor);
        level_[c + 1] = std::max(sumB / hopLength, levelFloor);
    }
    if (c < channels_) {
        const float* a = differences_[c];
        float sum = 0.0f;
        for (int k = 0; k < hop_; ++k) sum += a[k];
        level_[c] = std::max(sum / hopLength, levelFloor);
    }
}

void FftCrackleDetector::judgeHop()
{
    // The statistic is the absolute first difference, carried across hops by the
    // last sample of the previous one.
    for (int c = 0; c < channels_; ++c) {
        const float* x = residualTime_[c];
        float* d = differences_[c];
        d[0] = std::fabs(x[0] - prevSample_[c]);
        for (int k = 1; k < hop_; ++k) d[k] = std::fabs(x[k] - x[k - 1]);
        prevSample_[c] = x[hop_ - 1];
    }
    // The level includes the clicks of the very hop it judges.
    hopLevels();
    for (int c = 0; c < channels_; ++c) judgeChannel(c, differences_[c], level_[c]);
}

void FftCrackleDetector::judgeChannel(int c, const float* statistic, float level)
{
    int* pending = pendingMarks_[c];
    trackers_[c].judgeRun(statistic, hop_, sensitivity_, level, pending);
    // A silent input hop hands out no marks (the tracker still saw the hop).
    if (silent_[c] != 0) std::fill_n(pending, hop_, 0);
}
