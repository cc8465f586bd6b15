// A run of samples the crackle repair rewrote: channel (from 0), first and last
// sample (inclusive) counted in the input stream. Plain data.
#pragma once

#include <cstdint>

struct RepairedSpan {
    int channel = 0;
    std::int64_t first = 0;
    std::int64_t last = 0;
    std::int64_t length() const { return last - first + 1; }
};
