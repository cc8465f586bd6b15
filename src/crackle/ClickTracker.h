// Per-channel click tracker: judges one statistic value per sample against a
// threshold relative to the hop's level and emits one mark per sample, 29
// samples late, so that a decision can still mark the samples before it.
//
// Thresholds (all strict): trigger d > sensitivity * level (float); walk-back
// d > (sensitivity * 0.7) * level (double); weak hit d > sensitivity * 0.5 * level
// (double). A trigger reaches back over up to 29 older values above the walk-back
// threshold and stops at three successive misses; an active run ends after
// settleLimit samples without a strong hit.
//
// Units: the statistic and the level share any unit. No allocation; one thread.
#pragma once

#include <array>

class ClickTracker {
public:
    static constexpr int historyLength = 30;

    explicit ClickTracker(int settleLimit);

    // Idle state, empty history.
    void reset();

    // Judges statistic value d and returns the flag that leaves the history:
    // the flag of the sample 29 places before this one. Inline: it runs per sample.
    int judge(float d, float sensitivity, float level)
    {
        // Shifting the history is moving the newest index one slot back.
        newest_ = (newest_ + ringSize - 1) & (ringSize - 1);
        diffs_[slot(0)] = d;
        flags_[slot(0)] = 0;
        if (runState_ == 0) {
            if (d > sensitivity * level) trigger(sensitivity, level);
        } else {
            extendRun(d, sensitivity, level);
        }
        return flags_[slot(historyLength - 1)];
    }

    // Judges values[0 .. count) in order and writes each returned flag to
    // flagsOut[0 .. count): the same as count calls of judge, with the idle
    // stretches (no run, no trigger) in a tight loop. flagsOut must not be
    // inside the tracker.
    void judgeRun(const float* values, int count, float sensitivity, float level, int* flagsOut);

    bool active() const { return runState_ != 0; }
    int settleCount() const { return settleCount_; }
    // j = 0 is the newest sample, historyLength - 1 the oldest.
    float diffAt(int j) const { return diffs_[slot(j)]; }
    int flagAt(int j) const { return flags_[slot(j)]; }

private:
    // A ring of 32 holds the 30-entry history; entry j lives at (newest + j) % 32.
    static constexpr int ringSize = 32;
    int slot(int j) const { return (newest_ + j) & (ringSize - 1); }

    void trigger(float sensitivity, float level);
    void extendRun(float d, float sensitivity, float level);
    void setFlags(int first, int last);

    int settleLimit_;
    int newest_ = 0;
    int settleCount_ = 0;
    int runState_ = 0;
    std::array<float, ringSize> diffs_{};
    std::array<int, ringSize> flags_{};
};
