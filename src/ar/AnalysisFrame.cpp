#include "ar/AnalysisFrame.h"

#include <algorithm>

namespace {

// The windowed segment must lie inside the span: N up to 1024, and for the mode
// whose segment starts at the gap's length, that length within the span too.
bool fitsTheSpan(const AnalysisFrame& frame)
{
    const int n = frame.analysisLength;
    if (n < 0 || n > maxAnalysisLength) return false;
    const int offset = windowedSegmentOffset(frame.mode, n, frame.gapLength);
    return offset >= 0 && offset + n <= static_cast<int>(frame.span.size());
}

}  // namespace

void prepareAnalysis(AnalysisFrame& frame)
{
    // A negative length windows nothing and adds no noise, but the order is still set.
    if (frame.analysisLength < 0) {
        frame.modelOrder = std::min(2 * frame.gapLength, frame.maxOrder);
        return;
    }
    if (!fitsTheSpan(frame)) return;
    const std::uint32_t seed = noiseSeed(frame.seedSource);
    const std::uint32_t multiplier = noiseMultiplier(frame.multiplierSource);
    windowSpan(frame.mode, frame.analysisLength, frame.gapLength, frame.span.data(),
               HannPrecision::float64);
    frame.modelOrder = std::min(2 * frame.gapLength, frame.maxOrder);
    applyIntegerNoise(frame.span.data(), 2 * frame.analysisLength, seed, multiplier, +1.0f);
}
