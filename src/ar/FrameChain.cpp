#include "ar/FrameChain.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "ar/SplitRadixFft.h"

namespace {

// Power below this counts as nothing; it also keeps the ratio's divisor above zero.
constexpr float powerEpsilon = 1e-11f;

// max(x, 0) without a branch, exact for finite x.
float positivePart(float x)
{
    return (std::fabs(x) + x) * 0.5f;
}

// Writes the spectrum entries only: the record's frameSize and floor are the caller's.
void unpackSpectrum(const float* packed, int n, SpectralFrame& frame)
{
    frame.spectrumRe[0] = packed[0];
    frame.spectrumIm[0] = 0.0f;
    frame.spectrumRe[n / 2] = packed[n / 2];
    frame.spectrumIm[n / 2] = 0.0f;
    for (int k = 1; k < n / 2; ++k) {
        frame.spectrumRe[k] = packed[k];
        frame.spectrumIm[k] = packed[n - k];
    }
}

// Share of bin power above the floor, capped at 1.
float keptShare(float power, float floor)
{
    const float above = positivePart(power - floor);
    const float present = positivePart(power - powerEpsilon);
    const float ratio = above / (present + powerEpsilon);
    return 1.0f - positivePart(1.0f - ratio);
}

}  // namespace

namespace {

bool fitsInt32(std::int64_t value) { return value >= INT32_MIN && value <= INT32_MAX; }

// A widening that ends (the frame doubles until it reaches the gap's length, which a
// frame of no length never does unless it is there already), a step other than
// zero, and every count of the plan within 32 bits.
bool plannable(const FramePlan& plan)
{
    const std::int64_t frame = plan.frameLength;
    const std::int64_t hop = frame - plan.overlap;
    if ((frame < 1 && frame < plan.gapLength) || hop == 0 || !fitsInt32(hop)) return false;
    std::int64_t reach = frame;
    while (reach < plan.gapLength) reach *= 2;
    const std::int64_t position = plan.position;
    for (const std::int64_t value :
         {position + plan.gapLength - 1, position - 2 * frame, position + reach + 2 * frame,
          reach + 4 * frame, (reach + 4 * frame - plan.overlap) / hop,
          (2 * frame - plan.overlap) / hop, (reach + 2 * frame) / hop})
        if (!fitsInt32(value)) return false;
    return true;
}

}  // namespace

void planFrames(FramePlan& plan)
{
    if (!plannable(plan)) return;
    const int frame = plan.frameLength;
    const int hop = frame - plan.overlap;
    plan.gapEnd = plan.position + plan.gapLength - 1;
    plan.spanStart = plan.position - 2 * frame;
    int reach = frame;
    while (reach < plan.gapLength) reach *= 2;
    plan.spanEnd = plan.position + reach + 2 * frame;
    plan.spanLength = reach + 4 * frame;
    plan.frameCount = (plan.spanLength - plan.overlap) / hop;
    plan.firstGapFrame = (2 * frame - plan.overlap) / hop;
    const int gapFramesEnd = (reach + 2 * frame) / hop;
    plan.lastGapFrame = gapFramesEnd - 1;
    plan.gapFrameCount = gapFramesEnd - plan.firstGapFrame;
}

void forwardFrame(FrameBlock& block)
{
    const int hop = block.hop;
    float* out = std::fill_n(block.transform.data(), block.leadZeros, 0.0f);
    for (int i = 0; i < hop; ++i) *out++ = block.previous[i] * block.window[i];
    for (int i = 0; i < hop; ++i) *out++ = block.input[i] * block.window[hop + i];
    std::fill_n(out, block.tailZeros, 0.0f);
    std::copy_n(block.input, hop, block.previous.data());
    forwardRealFft(block.transform.data(), block.frameSize);
    unpackSpectrum(block.transform.data(), block.frameSize, block.spectrum);
}

void splitSpectrum(SpectralFrame& frame)
{
    for (int k = 0; k <= frame.frameSize / 2; ++k) {
        const float re = frame.spectrumRe[k];
        const float im = frame.spectrumIm[k];
        const float g = keptShare(re * re + im * im, frame.floor);
        frame.spectrumRe[k] = re * g;
        frame.spectrumIm[k] = im * g;
        frame.restRe[k] = re * (1.0f - g);
        frame.restIm[k] = im * (1.0f - g);
    }
}

void inverseFrame(const float* spectrumRe, const float* spectrumIm, int frameSize,
                  float* output)
{
    const int n = frameSize;
    if (isTransformSize(n)) {
        output[0] = spectrumRe[0];
        output[n / 2] = spectrumRe[n / 2];
        for (int k = 1; k < n / 2; ++k) {
            output[k] = spectrumRe[k];
            output[n - k] = spectrumIm[k];
        }
    }
    inverseRealFft(output, n);
}
