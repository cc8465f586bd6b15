// Waveform replacement of one damaged region on all channels at once.
//
// The 1000 samples before the gap are the template. It is scanned with the float
// normCorrelate against the audio left of the gap, right of it, or both
// (searchSide 0 both, 1 left, 2 right, anything else neither); the best score over
// all channels fixes one lag for every channel, which keeps them time-aligned. Each
// channel then gets x[start .. start+length) = x[src .. src+length) with
// src = bestLag + templateLen (the lag counted from the array's start, whichever
// side won), plus a linear float crossfade of leftFade - 1 samples before the gap
// and rightFade - 1 samples from the gap's end, the right one reading its source one
// sample ahead. All search input is read before any sample is written.
//
// Positions are sample indices into each channel array, which holds at least
// contextLength (dataLen) samples. The caller guarantees start >= templateLen,
// dataLen - start - length - 1 >= 0, rightFade - 1 samples after the gap and every
// position the splice reads; nothing is checked.
//
// The constructor allocates every buffer (about six times contextLength floats per
// channel); interpolate allocates only each scan's working copy. One object serves
// one repair on one thread: a second interpolate on the same object is not part of
// the design.
#pragma once

#include <vector>

class KorrInterp {
public:
    KorrInterp(int channelCount, int sampleRate, int contextLength);
    virtual ~KorrInterp();

    KorrInterp(const KorrInterp&) = delete;
    KorrInterp& operator=(const KorrInterp&) = delete;

    // Repairs channels[c][start .. start+length) of channelCount channels (at most the
    // constructor's count) in place. sampleRate is not read. Returns 0.
    int interpolate(float** channels, int channelCount, int sampleRate, int start, int length,
                    int leftFade, int rightFade, int searchSide);

    // Results of the run: the winning lag, the window lengths, each side's best
    // score and its lag (an index into that side's window).
    int bestLag() const { return bestLag_; }
    int templateLen() const { return templateLen_; }
    int leftWindowLen() const { return leftWindowLen_; }
    int rightWindowLen() const { return rightWindowLen_; }
    int leftMaxLag(int channel) const { return channels_[channel].leftMaxLag; }
    int rightMaxLag(int channel) const { return channels_[channel].rightMaxLag; }
    float leftMaxScore(int channel) const { return channels_[channel].leftMaxScore; }
    float rightMaxScore(int channel) const { return channels_[channel].rightMaxScore; }

protected:
    // A gap shorter than shortGapLimit is matched with a template that spans it: the
    // templateLen samples on each side with the gap zeroed between them.
    KorrInterp(int channelCount, int sampleRate, int contextLength, int shortGapLimit);

private:
    struct Channel {
        Channel(int templateCapacity, int maxWindowLen, int scoreCapacity);

        std::vector<float> gapTemplate;
        std::vector<float> templateBuf;
        std::vector<float> leftWindow;
        std::vector<float> rightWindow;
        std::vector<float> leftScores;
        std::vector<float> rightScores;
        int leftMaxLag = 0;
        int rightMaxLag = 0;
        float leftMaxScore = 0.0f;
        float rightMaxScore = 0.0f;
    };

    bool onShortGapPath(int length) const { return length < shortGapLimit_; }
    void prepareShortGap(float* const* channels, int channelCount, int start, int length);
    void gather(float* const* channels, int channelCount, int start, int length, int searchSide);
    void gatherLeftWindow(const float* x, Channel& channel, int start, int length);
    void gatherRightWindow(const float* x, Channel& channel, int start, int length);
    void scan(int channelCount, int searchSide);
    void pickPeak(const std::vector<float>& scores, int windowLen, float& maxScore,
                  int& maxLag) const;
    void decide(int channelCount);
    void splice(float* x, int start, int length, int leftFade, int rightFade) const;

    int templateLen_ = 1000;
    int channelCount_;
    int dataLen_;
    int leftWindowLen_ = 0;
    int rightWindowLen_ = 0;
    int bestLag_ = 0;
    int maxWindowLen_;
    int shortGapLimit_;
    [[maybe_unused]] int sampleRate_;  // stored only
    int baseTemplateLen_ = 0;
    std::vector<Channel> channels_;
};
