#include "signal/FftFrameProcessor.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "signal/PortableCosine.h"

namespace standardLib {
namespace {

int roundUpToEven(int count)
{
    return count + (count & 1);
}

int marginOrDefault(int margin, int frameSize)
{
    return margin == -1 ? frameSize / 4 : margin;
}

}  // namespace

FftFrameProcessor::FftFrameProcessor(int inputChannels, int outputChannels, int frameSize,
                                     int windowSelector, int frontMargin, int backMargin)
    : frameSize_(frameSize),
      inputChannels_(inputChannels),
      outputChannels_(outputChannels),
      frontMargin_(marginOrDefault(frontMargin, frameSize)),
      backMargin_(marginOrDefault(backMargin, frameSize)),
      evenInputChannels_(roundUpToEven(inputChannels)),
      evenChannels_(std::max(roundUpToEven(inputChannels), roundUpToEven(outputChannels))),
      evenOutputChannels_(roundUpToEven(outputChannels)),
      coreLength_(frameSize - frontMargin_ - backMargin_),
      latency_(frontMargin_ + coreLength_ / 2),
      hop_(coreLength_ / 2),
      previousBlock_(inputChannels, hop_),
      spectrumRows_{CBuffer2D<float>(evenChannels_, frameSize),
                    CBuffer2D<float>(evenChannels_, frameSize)},
      frameStorage_(ringFrames * outputChannels, frameSize),
      window_(static_cast<std::size_t>(coreLength_)),
      fft_(frameSize)
{
    for (int j = 0; j < ringFrames; ++j) {
        frameRing_[j].resize(static_cast<std::size_t>(outputChannels));
        frameRead_[j].resize(static_cast<std::size_t>(outputChannels));
        for (int channel = 0; channel < outputChannels; ++channel)
            frameRing_[j][channel] = frameStorage_[j * outputChannels + channel];
    }
    pointReaders();
    fillWindow(windowSelector);
}

// Periodic windows (denominator coreLength), each value worked out in double and
// rounded once. The 1/frameSize factor keeps spectra independent of the frame size;
// the factors 0.5 (rectangular) and 1/1.08 (Hamming) make two halves one hop apart
// sum to 1/frameSize.
void FftFrameProcessor::fillWindow(int windowSelector)
{
    if (windowSelector < 0 || windowSelector > 3)
        return;
    for (int i = 0; i < coreLength_; ++i) {
        const double x = 6.283185307179586 * i / coreLength_;
        double value = 0.0;
        switch (windowSelector) {
        case 0:
            value = 0.5 / frameSize_;
            break;
        case 1:
            value = (0.5 - 0.5 * cosine(x)) / frameSize_;
            break;
        case 2:
            value = (0.54 - 0.46 * cosine(x)) / frameSize_ / 1.08;
            break;
        default:
            value = (0.42 - 0.5 * cosine(x) + 0.08 * cosine(12.566370614359172 * i / coreLength_))
                    / frameSize_;
            break;
        }
        window_[i] = static_cast<float>(value);
    }
}

void FftFrameProcessor::assembleFrame(const float* previous, const float* in, float* frame) const
{
    float* position = std::fill_n(frame, frontMargin_, 0.0f);
    for (int i = 0; i < hop_; ++i)
        position[i] = previous[i] * window_[i];
    position += hop_;
    for (int i = 0; i < hop_; ++i)
        position[i] = in[i] * window_[hop_ + i];
    position += hop_;
    // With an odd core the frame's last element is not written.
    std::fill_n(position, backMargin_, 0.0f);
}

int FftFrameProcessor::forward(float** in, float** re, float** im)
{
    for (int channel = 0; channel < inputChannels_; ++channel) {
        assembleFrame(previousBlock_[channel], in[channel], re[channel]);
        std::memcpy(previousBlock_[channel], in[channel], static_cast<std::size_t>(hop_) * sizeof(float));
    }
    for (int channel = 0; channel < inputChannels_; ++channel)
        fft_.realForward(re[channel], re[channel], im[channel]);
    return 0;
}

int FftFrameProcessor::inverse(float** out, float** re, float** im)
{
    // The newest frame is transformed straight into its place in the ring and left
    // in re as well: with an odd core the next forward reads re's last element,
    // which it never writes, and so takes this frame's last sample.
    for (int channel = 0; channel < outputChannels_; ++channel) {
        fft_.realInverse(re[channel], im[channel], frameRing_[0][channel]);
        std::copy_n(frameRing_[0][channel], frameSize_, re[channel]);
    }
    const float gain = static_cast<float>(frameSize_);
    for (int channel = 0; channel < outputChannels_; ++channel) {
        const float* read0 = frameRead_[0][channel];
        const float* read1 = frameRead_[1][channel];
        const float* read2 = frameRead_[2][channel];
        const float* read3 = frameRead_[3][channel];
        float* target = out[channel];
        for (int i = 0; i < hop_; ++i)
            target[i] = (read1[i] + read0[i] + read2[i] + read3[i]) * gain;
    }
    rotateRing();
    return 0;
}

void FftFrameProcessor::rotateRing()
{
    for (int channel = 0; channel < outputChannels_; ++channel) {
        float* oldest = frameRing_[3][channel];
        frameRing_[3][channel] = frameRing_[2][channel];
        frameRing_[2][channel] = frameRing_[1][channel];
        frameRing_[1][channel] = frameRing_[0][channel];
        frameRing_[0][channel] = oldest;
    }
    pointReaders();
}

void FftFrameProcessor::pointReaders()
{
    for (int j = 0; j < ringFrames; ++j)
        for (int channel = 0; channel < outputChannels_; ++channel)
            frameRead_[j][channel] = frameRing_[j][channel] + j * hop_;
}

void FftFrameProcessor::reset()
{
    previousBlock_.fill(0.0f);
    spectrumRows_[0].fill(0.0f);
    spectrumRows_[1].fill(0.0f);
    frameStorage_.fill(0.0f);
    pointReaders();
}

}  // namespace standardLib
