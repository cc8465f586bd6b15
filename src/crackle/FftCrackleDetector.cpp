#include "crackle/FftCrackleDetector.h"

#include <algorithm>
#include <cmath>

#include "crackle/SpectralSplit.h"

namespace {

constexpr int hannWindowSelector = 1;
constexpr int defaultMargin = -1;
constexpr int standardSettleLimit = 5;
constexpr float levelFloor = 1e-9f;

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
      tonalDelayLine_(std::make_unique<DelayClass>(channels, markDelay, markDelay + 1)),
      residualDelayLine_(std::make_unique<DelayClass>(channels, markDelay, markDelay + 1)),
      tonalFft_(makeFrameProcessor(channels, frameSize)),
      residualFft_(makeFrameProcessor(channels, frameSize)),
      tonalTime_(channels, frameSize),
      tonalRe_(channels, frameSize),
      tonalIm_(channels, frameSize),
      residualTime_(channels, frameSize),
      residualRe_(channels, frameSize),
      residualIm_(channels, frameSize),
      pendingMarks_(channels, frameSize),
      trackers_(channels, ClickTracker(settleLimit)),
      prevSample_(channels),
      prevMeanSample_(channels),
      level_(channels),
      latency_(3 * (frameSize / 4) + markDelay),
      silent_(channels)
{
    reset();
}

FftCrackleDetector::~FftCrackleDetector() = default;

void FftCrackleDetector::reset()
{
    for (auto* rows : {&tonalTime_, &tonalRe_, &tonalIm_, &residualTime_, &residualRe_, &residualIm_})
        rows->fill(0.0f);
    pendingMarks_.fill(0);
    for (auto& tracker : trackers_) tracker.reset();
    tonalFft_->reset();
    residualFft_->reset();
    std::fill(prevMeanSample_.begin(), prevMeanSample_.end(), 0.0f);
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
    // hop coming in is written.
    for (int c = 0; c < channels_; ++c) {
        float* tonal = tonalTime_[c] + position_;
        float* rest = residualTime_[c] + position_;
        const int* pending = pendingMarks_[c] + position_;
        float* io = audio[c] + offset;
        float* residualOut = residual[c] + offset;
        int* marksOut = marks[c] + offset;
        for (int i = 0; i < count; ++i) {
            const float t = tonal[i];
            const float r = rest[i];
            tonal[i] = io[i];
            rest[i] = io[i];
            marksOut[i] = pending[i];
            io[i] = t;
            residualOut[i] = r;
        }
    }
}

void FftCrackleDetector::onTonalHandedOut(float**, int, int, int) {}

void FftCrackleDetector::hopStep()
{
    detectSilence();
    position_ = 0;
    // Both processors take the same input so that each keeps its own frame history;
    // the residual processor's forward spectrum is overwritten by the split.
    tonalFft_->forward(tonalTime_.rows(), tonalRe_.rows(), tonalIm_.rows());
    residualFft_->forward(residualTime_.rows(), residualRe_.rows(), residualIm_.rows());
    splitSpectra();
    tonalFft_->inverse(tonalTime_.rows(), tonalRe_.rows(), tonalIm_.rows());
    residualFft_->inverse(residualTime_.rows(), residualRe_.rows(), residualIm_.rows());
    judgeHop();
}

void FftCrackleDetector::detectSilence()
{
    for (int c = 0; c < channels_; ++c) {
        const float* hop = tonalTime_[c];
        float sum = 0.0f;
        for (int k = 0; k < hop_; ++k) sum += std::fabs(hop[k]);
        silent_[c] = sum > 0.0f ? 0 : 1;
    }
}

void FftCrackleDetector::splitSpectra()
{
    // Complementary gains g and 1 - g: the two paths sum to the input.
    const int bins = frameSize_ / 2 + 1;
    for (int c = 0; c < channels_; ++c)
        spectralsplit::splitSpectrum(tonalRe_[c], tonalIm_[c], residualRe_[c], residualIm_[c], bins, spectralFloor_);
}

float FftCrackleDetector::meanAbsoluteDifference(int c)
{
    const float* x = residualTime_[c];
    float previous = prevMeanSample_[c];
    float sum = 0.0f;
    for (int k = 0; k < hop_; ++k) {
        sum += std::fabs(x[k] - previous);
        previous = x[k];
    }
    prevMeanSample_[c] = previous;
    return std::max(sum / static_cast<float>(hop_), levelFloor);
}

void FftCrackleDetector::judgeHop()
{
    // The level includes the clicks of the very hop it judges.
    for (int c = 0; c < channels_; ++c) {
        level_[c] = meanAbsoluteDifference(c);
        const float* x = residualTime_[c];
        float previous = prevSample_[c];
        for (int k = 0; k < hop_; ++k) {
            const float d = std::fabs(x[k] - previous);
            previous = x[k];
            emitMark(c, k, trackers_[c].judge(d, sensitivity_, level_[c]));
        }
        prevSample_[c] = previous;
    }
}
