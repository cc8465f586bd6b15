// A small frame chain for spectral work around a gap: plan the frames, transform one
// windowed frame, split its spectrum at a power floor, and transform a spectrum back.
//
// Frames are at most 2048 samples (a packed real transform, see SplitRadixFft.h); the
// window spans two hops of at most 512 samples each, zero-padded to the frame size.
// Spectra hold bins 0 .. frameSize/2; bins 0 and frameSize/2 have no imaginary part.
// No scaling: inverseFrame of forwardFrame's spectrum is frameSize times the frame.
// A frame size that is not a power of two ends the process (exit status 1).
// No allocation; works on the caller's records only; any thread.
#pragma once

#include <array>
#include <cstdint>

inline constexpr int maxFrameSize = 2048;
inline constexpr int frameWindowLength = 1024;
inline constexpr int maxFrameHop = frameWindowLength / 2;
inline constexpr int maxSpectralBins = maxFrameSize / 2 + 1;

// Frames of frameLength with a step of hop = frameLength - overlap (never zero), laid
// over the gap widened to d (frameLength doubled until it reaches gapLength) and two
// frames of margin on each side. Integer divisions truncate toward zero. A frame
// length below 1 that is also below gapLength (its doubling would never end), a hop
// of zero, or a plan whose counts would not fit 32 bits leaves the outputs untouched.
struct FramePlan {
    // input
    std::int32_t position = 0;
    std::int32_t gapLength = 0;
    std::int32_t frameLength = 0;
    std::int32_t overlap = 0;
    // output
    std::int32_t gapEnd = 0;         // last gap sample
    std::int32_t spanStart = 0;      // position - 2 frameLength
    std::int32_t spanEnd = 0;        // position + d + 2 frameLength
    std::int32_t spanLength = 0;     // d + 4 frameLength
    std::int32_t frameCount = 0;     // (spanLength - overlap) / hop
    std::int32_t firstGapFrame = 0;  // (2 frameLength - overlap) / hop
    std::int32_t lastGapFrame = 0;   // (d + 2 frameLength) / hop - 1
    std::int32_t gapFrameCount = 0;  // lastGapFrame + 1 - firstGapFrame
};

// The spectrum of one frame and what splitSpectrum moves out of it.
struct SpectralFrame {
    float floor = 0.0f;  // power floor of splitSpectrum
    std::int32_t frameSize = 0;
    std::array<float, maxSpectralBins> spectrumRe{};
    std::array<float, maxSpectralBins> spectrumIm{};
    std::array<float, maxSpectralBins> restRe{};
    std::array<float, maxSpectralBins> restIm{};
};

// One step of the forward chain: the block before and the current block (hop samples
// each) under the two halves of the window.
struct FrameBlock {
    const float* input = nullptr;  // the current block, hop samples
    std::array<float, frameWindowLength> window{};
    std::array<float, maxFrameSize> transform{};
    std::int32_t frameSize = 0;
    std::int32_t hop = 0;
    std::int32_t leadZeros = 0;
    std::int32_t tailZeros = 0;
    std::array<float, maxFrameHop> previous{};  // the block before
    SpectralFrame spectrum;
};

void planFrames(FramePlan& plan);

// transform = [leadZeros zeros | previous * window[0, hop) | input * window[hop, 2 hop) |
// tailZeros zeros], then previous = input, then the forward transform of frameSize
// samples unpacked into spectrum's bins (its frameSize and floor are left as they are).
void forwardFrame(FrameBlock& block);

// For each bin, g = min(ratio, 1) with ratio = max(p - floor, 0) / (max(p - 1e-11, 0)
// + 1e-11) and p the bin's power, all in float: spectrum keeps g of the bin and rest
// takes 1 - g. g is exact only on the float grid: 1 - (1 - ratio) loses ratio below
// about 2^-25 (g = 0), and the two parts sum to the input exactly only for g of 0 or 1.
void splitSpectrum(SpectralFrame& frame);

// Packs re[0 .. frameSize/2] and im[1 .. frameSize/2 - 1] (the imaginary parts of bins
// 0 and frameSize/2 are dropped) into output[0 .. frameSize-1] and runs inverseRealFft.
void inverseFrame(const float* spectrumRe, const float* spectrumIm, int frameSize,
                  float* output);
