// Crackle detector variant: the same spectral split and tracker, judging the
// residual's short-term prediction error against a slowly moving quantile of it.
//
// Per hop and channel, a prediction filter of six taps (entries 0..6 of the order-7
// polynomial of a 150-order Levinson recursion on the windowed, dithered tonal hop)
// is stored in one of four ring slots; the slot index is shared by all channels and
// advances once per channel, so the filter a channel uses depends on the channel
// count modulo 4 (three hops old for 1, one hop old for 3, none for 0 or 2). The
// statistic is |error| run forward plus |error| run backward over the residual hop;
// the level is entry 11 of the last 20 two-thirds quantiles of half-hops. Runs end
// six samples after their last strong hit. Latency, units and aliasing as
// FftCrackleDetector. process allocates nothing; the dither takes one
// ferrotip::rand per sample and channel from this thread's sequence.
#pragma once

#include <vector>

#include "crackle/FftCrackleDetector.h"
#include "signal/CBuffer2D.h"

class FftCrackleDetectorOpt : public FftCrackleDetector {
public:
    static constexpr int lpcOrderLimit = 150;
    static constexpr int filterOrder = 6;
    static constexpr int ringSlots = 4;
    static constexpr int quantileCount = 20;

    FftCrackleDetectorOpt(int channels, int frameSize);

    void reset() override;

    int ringPosition() const { return ringPosition_; }
    int quantilePosition(int channel) const { return quantilePosition_[channel]; }
    // Taps 0..filterOrder of the filter the channel used in the last hop.
    const double* filterInUse(int channel) const { return filterInUse_[channel]; }
    const float* statistic(int channel) const { return statistic_[channel]; }
    // Taps stored for the channel in one of the four ring slots.
    const double* storedFilter(int slot, int channel) const
    {
        return coefficientRing_[slot * channels() + channel];
    }

protected:
    void onTonalHandedOut(float** audio, int offset, int position, int count) override;
    void judgeHop() override;

private:
    void storeFilter(int c);
    void computeStatistic(int c);
    float filterStep(float* state, const double* taps, float x) const;
    float movingQuantile(int c);
    void pushHalfHopQuantile(int c, const float* values);
    double* ringSlot(int slot, int c) { return coefficientRing_[slot * channels() + c]; }

    int hop_;
    standardLib::CBuffer2D<double> weightedTonal_;
    std::vector<float> hannWindow_;
    standardLib::CBuffer2D<float> statistic_;
    std::vector<double> autocorr_;
    standardLib::CBuffer2D<double> lpcRows_;
    std::vector<double> orderErrors_;
    int ringPosition_ = 0;
    standardLib::CBuffer2D<double> coefficientRing_;  // ringSlots * channels rows
    standardLib::CBuffer2D<double> filterInUse_;
    standardLib::CBuffer2D<float> filterState_;
    standardLib::CBuffer2D<float> quantileRing_;
    std::vector<int> quantilePosition_;
    std::vector<float> sortScratch_;
};
