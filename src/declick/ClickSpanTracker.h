// Turns a channel's stream of repair marks into the spans the repair rewrote.
//
// Feed the marks of each block an engine hands back (marks(channel) after process,
// aligned with its output). A run of 1s opened by a 1 and closed by the next 0 is one
// span, repaired when shorter than the repair's span limit; longer runs pass
// unrepaired and are not reported. Positions are turned into input samples by taking
// off the engine's latency. Nothing allocates; one thread at a time.
#pragma once

#include <algorithm>
#include <cstdint>

#include "crackle/ArCrackleRepair.h"
#include "declick/RepairedSpan.h"

class ClickSpanTracker {
public:
    ClickSpanTracker(int channel, int latency) : channel_(channel), latency_(latency) {}

    // Walks `count` marks of the next output block; calls onSpan(RepairedSpan) for
    // each repaired span that ends in it.
    template <typename OnSpan>
    void track(const int* marks, int count, OnSpan&& onSpan);

    void reset()
    {
        position_ = 0;
        open_ = false;
    }

private:
    int channel_;
    int latency_;
    std::int64_t position_ = 0;  // output position of marks[0]
    std::int64_t openedAt_ = 0;
    bool open_ = false;
};

template <typename OnSpan>
void ClickSpanTracker::track(const int* marks, int count, OnSpan&& onSpan)
{
    // Only 1 opens a span and only 0 closes one, so the walk jumps from one such
    // value to the next.
    const int* end = marks + count;
    for (const int* i = marks; i != end;) {
        i = std::find(i, end, open_ ? 0 : 1);
        if (i == end) break;
        const std::int64_t at = position_ + (i - marks);
        if (!open_) {
            openedAt_ = at;
        } else if (at - openedAt_ < ArCrackleRepair::maxSpanLength && openedAt_ >= latency_) {
            onSpan(RepairedSpan{channel_, openedAt_ - latency_, at - 1 - latency_});
        }
        open_ = !open_;
        ++i;
    }
    position_ += count;
}
