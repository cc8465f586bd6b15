// Crackle detector: splits each channel in the frequency domain into a tonal path
// (bins whose power stands above spectralFloor) and a residual path (what the floor
// takes away), and marks clicks in the residual with a per-sample tracker.
//
// process(marks, audio, residual, n) replaces audio with the tonal path and writes
// the residual path, both delayed by latency() = 3 * hop + 30 samples (1566 at frame
// size 2048), and one mark per residual sample (1 = repair). A mark for the first
// difference between samples j - 1 and j falls on sample j - 1. The statistic is the
// residual's absolute first difference against the hop's mean absolute difference.
// Spectra are scaled by 1/frameSize (window divided by frameSize), which is the scale
// of spectralFloor. Construction allocates everything; process allocates nothing.
// audio, residual and marks must be distinct arrays. One thread at a time.
#pragma once

#include <memory>
#include <vector>

#include "crackle/ClickTracker.h"
#include "signal/CBuffer2D.h"
#include "signal/DelayClass.h"
#include "signal/FftFrameProcessor.h"

class FftCrackleDetector {
public:
    FftCrackleDetector(int channels, int frameSize);
    virtual ~FftCrackleDetector();
    FftCrackleDetector(const FftCrackleDetector&) = delete;
    FftCrackleDetector& operator=(const FftCrackleDetector&) = delete;

    int process(int** marks, float** audio, float** residual, int n);
    virtual void reset();

    // Plain stores, read at the next frame (floor) and the next judged sample.
    void setSensitivity(float sensitivity) { sensitivity_ = sensitivity; }
    void setSpectralFloor(float spectralFloor) { spectralFloor_ = spectralFloor; }
    float sensitivity() const { return sensitivity_; }
    float spectralFloor() const { return spectralFloor_; }

    int latency() const { return latency_; }
    int hop() const { return hop_; }
    int channels() const { return channels_; }
    // The level of the hop judged last (reference of the thresholds).
    float level(int channel) const { return level_[channel]; }
    const ClickTracker& tracker(int channel) const { return trackers_[channel]; }
    // The residual hop judged last, before the 30-sample output delay.
    const float* residualHop(int channel) const { return residualTime_[channel]; }

protected:
    static constexpr int markDelay = ClickTracker::historyLength;

    FftCrackleDetector(int channels, int frameSize, int settleLimit);

    // Called after each run of samples has been moved; the tonal samples handed
    // out are audio[c][offset .. offset + count) and belong to hop positions
    // position .. position + count - 1.
    virtual void onTonalHandedOut(float** audio, int offset, int position, int count);
    // Judges the residual hop now in residualRows() and fills the pending marks.
    virtual void judgeHop();

    // Runs channel c's tracker over the hop's statistic and hands its flags to the
    // pending marks, all dropped when the channel's newest input hop was silent.
    void judgeChannel(int c, const float* statistic, float level);
    float* residualRow(int c) { return residualTime_[c]; }
    void setLevel(int c, float level) { level_[c] = level; }

private:
    void moveSamples(int** marks, float** audio, float** residual, int offset, int count);
    void hopStep();
    void detectSilence();
    void splitSpectra();
    // level_ of every channel from differences_.
    void hopLevels();

    float sensitivity_ = 3.0f;
    float spectralFloor_ = 1e-7f;
    int channels_;
    int frameSize_;
    int hop_;
    std::unique_ptr<DelayClass> tonalDelayLine_;
    std::unique_ptr<DelayClass> residualDelayLine_;
    std::unique_ptr<standardLib::FftFrameProcessor> tonalFft_;
    std::unique_ptr<standardLib::FftFrameProcessor> residualFft_;
    standardLib::CBuffer2D<float> tonalTime_;
    standardLib::CBuffer2D<float> tonalRe_;
    standardLib::CBuffer2D<float> tonalIm_;
    standardLib::CBuffer2D<float> residualTime_;
    standardLib::CBuffer2D<float> residualRe_;
    standardLib::CBuffer2D<float> residualIm_;
    standardLib::CBuffer2D<int> pendingMarks_;
    standardLib::CBuffer2D<float> differences_;  // the hop's statistic per channel
    int position_ = 0;
    std::vector<ClickTracker> trackers_;
    std::vector<float> prevSample_;
    std::vector<float> level_;
    int latency_;
    std::vector<int> silent_;
};
