// Turns a channel's stream of repair marks into the spans the repair rewrote.
//
// Feed the marks of each block an engine hands back (marks(channel) after process,
// aligned with its output). A run of 1s opened by a 1 and closed by the next 0 is one
// span, repaired when shorter than the repair's span limit; longer runs pass
// unrepaired and are not reported. Positions are turned into input samples by taking
// off the engine's latency. Nothing allocates; one thread at a time.
#pragma once

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
    for (int i = 0; i < count; ++i) {
        if (!open_ && marks[i] == 1) {
            open_ = true;
            openedAt_ = position_ + i;
        } else if (open_ && marks[i] == 0) {
            open_ = false;
            const std::int64_t end = position_ + i;
            if (end - openedAt_ < ArCrackleRepair::maxSpanLength && openedAt_ >= latency_)
                onSpan(RepairedSpan{channel_, openedAt_ - latency_, end - 1 - latency_});
        }
    }
    position_ += count;
}
