#include "module/MethodReach.h"

#include <algorithm>

#include "ar/AnalysisSegment.h"
#include "ar/LsarInterp.h"
#include "module/Dispatch.h"

namespace {

// The click methods read N = min(contextLength, 1024) samples on each side of the
// region's first sample (that sample even when N is 0) and, for a region they
// accept, m = min(2 * length, largest order) on each side of the region.
MethodReach arReach(const MethodCounts& counts, int length)
{
    const int n = std::min(counts.contextLength, maxAnalysisLength);
    MethodReach reach{n, std::max(n, 1)};
    if (length <= counts.maxGapSamples) {
        const int order = std::min(2 * length, LsarInterp::largestOrderFor(counts.maxGapSamples));
        reach.before = std::max(reach.before, order);
        reach.after = std::max(reach.after, length + order);
    }
    return reach;
}

// The window lengths of one search side, as the replacement derives them from the
// context length D (its notion of the array's length) and the region's place.
int leftWindowLength(int start, int length, int contextLength)
{
    return start - waveformTemplateLength >= contextLength ? contextLength - length
                                                           : start - waveformTemplateLength;
}

int rightWindowLength(int start, int length, int contextLength)
{
    return contextLength - start - length - 1;
}

// Largest lag a side can report: the last candidate, or the template length when the
// window has no candidates.
int largestLag(int windowLength)
{
    return std::max(waveformTemplateLength, windowLength - waveformTemplateLength - 1);
}

// Waveform replacement with start == the row's left context (at least the template).
// Everything it touches lies in [0, end): the search windows start at index 0 or
// later, and the replacement source src = lag + 1000 reaches back at most F - 1
// (F <= 500) for its left crossfade. The end is the furthest of the writes (to
// start + length + F - 2), the right window, and src + length + F - 1 read by the
// right crossfade for the largest lag a searched side can report.
MethodReach waveformReach(int method, const MethodCounts& counts, int length)
{
    if (length > counts.maxGapSamples) return {0, 0};  // refused before anything is read
    const int start =
        std::max(methodRow(method).contextBeforeMs * counts.samplesPerMs, waveformTemplateLength);
    const int fade = waveformCrossfade(length);
    const int side = waveformSearchSide(method);

    int end = start + length + fade - 1;
    int lag = waveformTemplateLength;  // a side's fallback; a bestLag of 0 lies below it
    if (side != 2) lag = std::max(lag, largestLag(leftWindowLength(start, length, counts.contextLength)));
    if (side != 1) {
        const int window = rightWindowLength(start, length, counts.contextLength);
        end = std::max(end, start + length + std::max(window, 0));
        lag = std::max(lag, largestLag(window));
    }
    end = std::max(end, lag + waveformTemplateLength + length + fade);
    return {start, end - start};
}

}  // namespace

MethodReach methodReach(int method, const MethodCounts& counts, int length)
{
    if (method == 0) return {1, length + 1};
    if (method <= 2) return arReach(counts, length);
    return waveformReach(method, counts, length);
}
