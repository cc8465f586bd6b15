// FftFrameProcessor: multichannel float audio, one hop per call, into spectra and
// back by windowed overlap-add. A frame is frontMargin zeros, two hops of input (the
// previous call's and this call's) under the analysis window, and backMargin zeros;
// the margins give spectral changes room to spread before they wrap. The output of
// a call is frameSize times the sum of the four frames that overlap its hop.
//
// Scaling: the window carries a factor 1/frameSize, so spectra do not depend on the
// frame size; the output undoes it. With unchanged spectra and default margins the
// output of call k is the input of call k - 2 (latency = frontMargin + hop samples)
// at unit gain for windows 0 (rectangular), 1 (Hann) and 2 (Hamming); window 3
// (Blackman) ripples with the position in the hop. frontMargin + backMargin must be
// at least frameSize / 2, or the last overlap term reads past its frame.
//
// forward writes frameSize floats to re[c] (the frame is assembled there) and
// frameSize / 2 + 1 bins to re[c] and im[c]; inverse reads re[c] and im[c], leaves
// the time-domain frame in re[c] and writes hop samples to out[c]. Every forward
// must be followed by exactly one inverse. Only the constructor allocates. One
// thread at a time.
#pragma once

#include "signal/CBuffer2D.h"
#include "signal/CFft.h"

#include <array>
#include <vector>

namespace standardLib {

class FftFrameProcessor {
public:
    // A margin of -1 means frameSize / 4. windowSelector 0..3; any other value
    // leaves the window unfilled (zero).
    FftFrameProcessor(int inputChannels, int outputChannels, int frameSize, int windowSelector,
                      int frontMargin = -1, int backMargin = -1);
    FftFrameProcessor(const FftFrameProcessor&) = delete;
    FftFrameProcessor& operator=(const FftFrameProcessor&) = delete;

    // hop samples per input channel from in[c]; spectra of the input channels to
    // re[c] / im[c]. Returns 0.
    int forward(float** in, float** re, float** im);
    // Spectra of the output channels from re[c] / im[c]; hop samples to out[c],
    // and the time-domain frame (frameSize floats) over re[c].
    // Returns 0.
    int inverse(float** out, float** re, float** im);
    // Back to the just-built state (the window and the transform stay).
    void reset();

    int frameSize() const noexcept { return frameSize_; }
    int inputChannels() const noexcept { return inputChannels_; }
    int outputChannels() const noexcept { return outputChannels_; }
    int frontMargin() const noexcept { return frontMargin_; }
    int backMargin() const noexcept { return backMargin_; }
    int evenInputChannels() const noexcept { return evenInputChannels_; }
    int evenChannels() const noexcept { return evenChannels_; }
    int evenOutputChannels() const noexcept { return evenOutputChannels_; }
    int coreLength() const noexcept { return coreLength_; }
    int latency() const noexcept { return latency_; }
    int hop() const noexcept { return hop_; }
    const std::vector<float>& window() const noexcept { return window_; }
    // Two owner-managed spectrum tables (0: real, 1: imaginary parts), evenChannels
    // rows of frameSize floats, zeroed at construction and by reset.
    CBuffer2D<float>& spectrumRows(int part) noexcept { return spectrumRows_[part]; }

private:
    static constexpr int ringFrames = 4;

    void fillWindow(int windowSelector);
    void assembleFrame(const float* previous, const float* in, float* frame) const;
    void pointReaders();
    void rotateRing();

    int frameSize_;
    int inputChannels_;
    int outputChannels_;
    int frontMargin_;
    int backMargin_;
    int evenInputChannels_;
    int evenChannels_;
    int evenOutputChannels_;
    int coreLength_;
    int latency_;
    int hop_;
    CBuffer2D<float> previousBlock_;
    std::array<CBuffer2D<float>, 2> spectrumRows_;
    CBuffer2D<float> frameStorage_;  // owns the ring's 4 * outputChannels frames
    // frameRing_[j][c]: frame j of channel c, newest in table 0; only pointers rotate.
    std::array<std::vector<float*>, ringFrames> frameRing_;
    // frameRead_[j][c] = frameRing_[j][c] + j * hop.
    std::array<std::vector<float*>, ringFrames> frameRead_;
    std::vector<float> window_;
    CFft<float> fft_;
};

}  // namespace standardLib
