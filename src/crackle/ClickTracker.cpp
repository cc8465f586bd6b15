#include "crackle/ClickTracker.h"

ClickTracker::ClickTracker(int settleLimit) : settleLimit_(settleLimit) {}

void ClickTracker::reset()
{
    newest_ = 0;
    settleCount_ = 0;
    runState_ = 0;
    diffs_.fill(0.0f);
    flags_.fill(0);
}

void ClickTracker::judgeRun(const float* values, int count, float sensitivity, float level,
                            int* flagsOut)
{
    // The same product as judge's trigger test, formed once.
    const float threshold = sensitivity * level;
    constexpr int ringMask = ringSize - 1;
    int k = 0;
    while (k < count) {
        int newest = newest_;
        if (runState_ == 0) {
            // Idle: each value only enters the history, until one crosses the threshold.
            for (; k < count; ++k) {
                const float d = values[k];
                newest = (newest + ringMask) & ringMask;
                diffs_[newest] = d;
                flags_[newest] = 0;
                if (d > threshold) break;
                flagsOut[k] = flags_[(newest + historyLength - 1) & ringMask];
            }
            newest_ = newest;
            if (k == count) return;
            trigger(sensitivity, level);
        } else {
            const float d = values[k];
            newest = (newest + ringMask) & ringMask;
            newest_ = newest;
            diffs_[newest] = d;
            flags_[newest] = 0;
            extendRun(d, sensitivity, level);
        }
        flagsOut[k] = flags_[(newest + historyLength - 1) & ringMask];
        ++k;
    }
}

void ClickTracker::trigger(float sensitivity, float level)
{
    // The full threshold misses a click's rising front; walk back over values
    // above 70 % of it, bridging dips, until three successive misses.
    flags_[slot(0)] = 1;
    const double walkThreshold = (static_cast<double>(sensitivity) * 0.7) * static_cast<double>(level);
    int misses = 3;
    int filled = 0;
    int j = 1;
    for (; j < historyLength; ++j) {
        if (static_cast<double>(diffs_[slot(j)]) > walkThreshold) {
            misses = 3;
            setFlags(filled + 1, j);
            filled = j;
        } else if (--misses == 0) {
            break;
        }
    }
    // Already set on every path; kept as the walk's closing write.
    flags_[slot(j - 3)] = 1;
    runState_ = 1;
}

void ClickTracker::extendRun(float d, float sensitivity, float level)
{
    // A strong hit restarts the settle count, a weak one only extends the run;
    // both join the hit to the run across the quiet samples since the last one.
    int s = settleCount_;
    if (d > sensitivity * level) {
        setFlags(0, s);
        s = 0;
    } else if (static_cast<double>(d) > static_cast<double>(sensitivity) * 0.5 * static_cast<double>(level)) {
        setFlags(0, s);
        ++s;
    } else {
        ++s;
    }
    if (s == settleLimit_) {
        s = 0;
        runState_ = 0;
    }
    settleCount_ = s;
}

void ClickTracker::setFlags(int first, int last)
{
    for (int j = first; j <= last; ++j) flags_[slot(j)] = 1;
}
