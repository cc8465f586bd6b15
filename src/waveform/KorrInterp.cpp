#include "waveform/KorrInterp.h"

#include <algorithm>
#include <cstring>

#include "waveform/CorrelationScan.h"

namespace {

// Copies count samples; a count of zero or less copies nothing.
void copySamples(const float* source, int count, float* destination)
{
    if (count > 0) std::copy(source, source + count, destination);
}

// Linear blend at distance j from the gap: the incoming sample weighs fade - j, the
// one already there weighs j. Each product, the sum and the division are in float.
float crossfade(float incoming, float existing, int j, int fade)
{
    const float incomingPart = static_cast<float>(fade - j) * incoming;
    const float existingPart = static_cast<float>(j) * existing;
    return (incomingPart + existingPart) / static_cast<float>(fade);
}

bool scansLeft(int searchSide) { return searchSide == 0 || searchSide == 1; }
bool scansRight(int searchSide) { return searchSide == 0 || searchSide == 2; }

}  // namespace

KorrInterp::Channel::Channel(int templateCapacity, int maxWindowLen, int scoreCapacity)
    : gapTemplate(templateCapacity),
      templateBuf(templateCapacity),
      leftWindow(2 * static_cast<std::size_t>(maxWindowLen)),
      rightWindow(2 * static_cast<std::size_t>(maxWindowLen)),
      leftScores(scoreCapacity),
      rightScores(scoreCapacity)
{
}

KorrInterp::KorrInterp(int channelCount, int sampleRate, int contextLength)
    : KorrInterp(channelCount, sampleRate, contextLength, 0)
{
}

KorrInterp::KorrInterp(int channelCount, int sampleRate, int contextLength, int shortGapLimit)
    : channelCount_(channelCount),
      dataLen_(contextLength),
      maxWindowLen_(contextLength),
      shortGapLimit_(shortGapLimit),
      sampleRate_(sampleRate)
{
    const int templateCapacity = shortGapLimit_ + 2 * templateLen_;
    const int scoreCapacity = maxWindowLen_ + 2 * templateLen_ + shortGapLimit_;
    // Each score float starts as the bytes 01 01 01 01 (2.3694278e-38): a side whose
    // window is too short for the scan to reach lag templateLen still reports this
    // small positive score at that lag.
    const std::size_t filledBytes =
        static_cast<std::size_t>(maxWindowLen_ + templateLen_) * sizeof(float);
    channels_.reserve(static_cast<std::size_t>(std::max(channelCount_, 0)));
    for (int c = 0; c < channelCount_; ++c) {
        Channel& channel = channels_.emplace_back(templateCapacity, maxWindowLen_, scoreCapacity);
        std::memset(channel.leftScores.data(), 1, filledBytes);
        std::memset(channel.rightScores.data(), 1, filledBytes);
    }
}

KorrInterp::~KorrInterp() = default;

int KorrInterp::interpolate(float** channels, int channelCount, int /*sampleRate*/, int start,
                            int length, int leftFade, int rightFade, int searchSide)
{
    if (onShortGapPath(length)) prepareShortGap(channels, channelCount, start, length);
    gather(channels, channelCount, start, length, searchSide);
    scan(channelCount, searchSide);
    decide(channelCount);
    for (int c = 0; c < channelCount; ++c) splice(channels[c], start, length, leftFade, rightFade);
    return 0;
}

void KorrInterp::prepareShortGap(float* const* channels, int channelCount, int start, int length)
{
    baseTemplateLen_ = templateLen_;
    for (int c = 0; c < channelCount; ++c) {
        const float* x = channels[c];
        float* gapTemplate = channels_[c].gapTemplate.data();
        copySamples(x + start - templateLen_, templateLen_, gapTemplate);
        copySamples(x + start + length, templateLen_, gapTemplate + templateLen_ + length);
    }
    templateLen_ = length + 2 * templateLen_;
}

void KorrInterp::gather(float* const* channels, int channelCount, int start, int length,
                        int searchSide)
{
    for (int c = 0; c < channelCount; ++c) {
        const float* x = channels[c];
        Channel& channel = channels_[c];
        const float* templateSource =
            onShortGapPath(length) ? channel.gapTemplate.data() : x + start - templateLen_;
        copySamples(templateSource, templateLen_, channel.templateBuf.data());
        if (scansLeft(searchSide)) gatherLeftWindow(x, channel, start, length);
        if (scansRight(searchSide)) gatherRightWindow(x, channel, start, length);
    }
}

// The audio before the template, or at most maxWindowLen - length samples ending at
// the gap (template included) when the context is longer than that.
void KorrInterp::gatherLeftWindow(const float* x, Channel& channel, int start, int length)
{
    const float* source = x;
    if (start - templateLen_ >= maxWindowLen_) {
        leftWindowLen_ = maxWindowLen_ - length;
        source = x + start - leftWindowLen_;
    } else {
        leftWindowLen_ = start - templateLen_;
    }
    copySamples(source, leftWindowLen_, channel.leftWindow.data());
}

// The audio after the gap, stopping one sample short of the data's end.
void KorrInterp::gatherRightWindow(const float* x, Channel& channel, int start, int length)
{
    const int skipped = onShortGapPath(length) ? baseTemplateLen_ : 0;
    const int rightBase = start + length + skipped;
    if (dataLen_ - start >= maxWindowLen_)
        rightWindowLen_ = maxWindowLen_;
    else
        rightWindowLen_ = dataLen_ - start - length - 1 - skipped;
    copySamples(x + rightBase, rightWindowLen_, channel.rightWindow.data());
}

void KorrInterp::scan(int channelCount, int searchSide)
{
    for (int c = 0; c < channelCount; ++c) {
        Channel& channel = channels_[c];
        if (scansLeft(searchSide)) {
            normCorrelate(channel.templateBuf.data(), templateLen_, channel.leftWindow.data(),
                          leftWindowLen_, channel.leftScores.data(), leftWindowLen_, 0);
            pickPeak(channel.leftScores, leftWindowLen_, channel.leftMaxScore, channel.leftMaxLag);
        }
        if (scansRight(searchSide)) {
            normCorrelate(channel.templateBuf.data(), templateLen_, channel.rightWindow.data(),
                          rightWindowLen_, channel.rightScores.data(), rightWindowLen_, 0);
            pickPeak(channel.rightScores, rightWindowLen_, channel.rightMaxScore,
                     channel.rightMaxLag);
        }
    }
}

// Best score among lags templateLen .. windowLen - templateLen - 1, the earliest of
// equal scores. The walk starts from the score at lag templateLen, so with no
// candidates that score stands, and a NaN there is never replaced.
void KorrInterp::pickPeak(const std::vector<float>& scores, int windowLen, float& maxScore,
                          int& maxLag) const
{
    float best = scores[templateLen_];
    int bestCandidate = 0;
    const int candidates = windowLen - 2 * templateLen_;
    for (int candidate = 0; candidate < candidates; ++candidate) {
        const float score = scores[templateLen_ + candidate];
        if (score > best) {
            best = score;
            bestCandidate = candidate;
        }
    }
    maxScore = best;
    maxLag = bestCandidate + templateLen_;
}

// One lag for all channels: only a strictly greater score replaces the best, the
// right side tested before the left, so lower channels and right sides win ties.
void KorrInterp::decide(int channelCount)
{
    float best = 0.0f;
    bestLag_ = 0;
    for (int c = 0; c < channelCount; ++c) {
        const Channel& channel = channels_[c];
        if (channel.rightMaxScore > best) {
            best = channel.rightMaxScore;
            bestLag_ = channel.rightMaxLag;
        }
        if (channel.leftMaxScore > best) {
            best = channel.leftMaxScore;
            bestLag_ = channel.leftMaxLag;
        }
    }
}

// The lag counts from the array's start whichever window it came from. The right
// crossfade reads its source one sample further on than its destination.
void KorrInterp::splice(float* x, int start, int length, int leftFade, int rightFade) const
{
    const int src = bestLag_ + templateLen_;
    if (length > 0)
        std::memmove(x + start, x + src, static_cast<std::size_t>(length) * sizeof(float));
    for (int j = 1; j < leftFade; ++j)
        x[start - j] = crossfade(x[src - j], x[start - j], j, leftFade);
    for (int j = 1; j < rightFade; ++j) {
        const int d = start + length + j - 1;
        x[d] = crossfade(x[src + length + j], x[d], j, rightFade);
    }
}
