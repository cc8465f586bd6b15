#include "ar/AnalysisFrame.h"

#include <algorithm>

void prepareAnalysis(AnalysisFrame& frame)
{
    const std::uint32_t seed = noiseSeed(frame.seedSource);
    const std::uint32_t multiplier = noiseMultiplier(frame.multiplierSource);
    windowSpan(frame.mode, frame.analysisLength, frame.gapLength, frame.span.data(),
               HannPrecision::float64);
    frame.modelOrder = std::min(2 * frame.gapLength, frame.maxOrder);
    applyIntegerNoise(frame.span.data(), 2 * frame.analysisLength, seed, multiplier, +1.0f);
}
