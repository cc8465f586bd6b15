// The analysis preparation of the least-squares AR repair, in record form.
//
// The caller fills span with samples[start - N .. start + N - 1] (N = analysisLength,
// at most 1024) and the two seed sources; prepareAnalysis then windows the segment of
// the mode over span[0 .. N-1], sets modelOrder and adds the integer noise over all
// 2N entries. The noise is not taken out again. Unlike LsarInterp, the Hann window of
// modes 1 and 2 is computed wholly in 64-bit and narrowed once.
// A negative analysisLength only sets modelOrder; one above 1024, or a gap length
// that would put mode 3's segment outside the span, leaves the whole record untouched.
// No allocation; works on the caller's record only.
#pragma once

#include <array>
#include <cstdint>

#include "ar/AnalysisSegment.h"

struct AnalysisFrame {
    std::array<std::int32_t, 3> seedSlots{};  // the first three seed slots; not read here
    std::int32_t seedSource = 0;              // seed = seedSource * 1000.0, truncated
    std::int32_t multiplierSource = 0;        // multiplier = multiplierSource * 10000.0
    std::int32_t modelOrder = 0;
    std::int32_t analysisLength = 0;
    std::array<float, 2 * maxAnalysisLength> span{};
    std::int32_t maxOrder = 0;
    std::int32_t gapLength = 0;
    std::int32_t maxGap = 0;
    std::int32_t mode = 0;
};

void prepareAnalysis(AnalysisFrame& frame);
