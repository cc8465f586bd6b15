// A run of samples the crackle repair rewrote: channel (from 0), first and last
// sample (inclusive) counted in the input stream. Plain data.
#pragma once

#include <cstdint>
#include <vector>

struct RepairedSpan {
    int channel = 0;
    std::int64_t first = 0;
    std::int64_t last = 0;
    std::int64_t length() const { return last - first + 1; }
    bool operator==(const RepairedSpan&) const = default;
};

// Sorts spans by first sample (then channel) and joins those of a channel that
// overlap, as the spans of chained passes may. Reorders in place; no allocation.
void mergeOverlappingSpans(std::vector<RepairedSpan>& spans);
