#include "declick/RepairedSpan.h"

#include <algorithm>
#include <tuple>

void mergeOverlappingSpans(std::vector<RepairedSpan>& spans)
{
    std::sort(spans.begin(), spans.end(), [](const RepairedSpan& a, const RepairedSpan& b) {
        return std::tie(a.channel, a.first, a.last) < std::tie(b.channel, b.first, b.last);
    });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < spans.size(); ++i) {
        if (kept > 0 && spans[kept - 1].channel == spans[i].channel && spans[i].first <= spans[kept - 1].last)
            spans[kept - 1].last = std::max(spans[kept - 1].last, spans[i].last);
        else
            spans[kept++] = spans[i];
    }
    spans.resize(kept);
    std::sort(spans.begin(), spans.end(), [](const RepairedSpan& a, const RepairedSpan& b) {
        return std::tie(a.first, a.channel) < std::tie(b.first, b.channel);
    });
}
