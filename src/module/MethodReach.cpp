#include "module/MethodReach.h"

#include <algorithm>

#include "ar/AnalysisSegment.h"
#include "ar/LsarInterp.h"

MethodReach methodReach(int method, const MethodCounts& counts, int length)
{
    if (method == 0) return {1, length + 1};
    if (method <= 2) {
        const int n = std::min(counts.contextLength, maxAnalysisLength);
        const int order = std::max(LsarInterp::largestOrderFor(counts.maxGapSamples), 0);
        return {n, std::max(n, length + order)};
    }
    const MethodDescription& row = methodRow(method);
    const int before = row.contextBeforeMs * counts.samplesPerMs;
    return {before, counts.contextLength - before};
}
