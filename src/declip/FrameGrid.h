// The frames both declippers solve: frames of `frameLength` samples every frameLength /
// overlap (overlap 4 or 2), on a grid fixed to absolute sample positions, so that a
// channel cut into pieces is restored with the same bits whatever the cut. Of the
// frames that overlap the stretch being restored, only those that hold a clipped
// sample are solved, and with overlap 4 only those whose central half holds one: every
// clipped sample lies in the central halves of two frames, while a frame that holds
// clipped samples only near its ends (where its window is below one half) would add
// little to them at the full cost of a frame. Positions outside the caller's window
// hold reliable zeros. The frames of a call are independent: SolvedFrames solves them
// on many threads at once, and the caller overlap-adds them in their order, which
// gives the same bits on any number of threads. Header only; nothing allocates but
// periodicHann() and SolvedFrames, which grows to the most frames of a call.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

#include "declip/ClipLevels.h"
#include "signal/SpreadOverThreads.h"

namespace frame_grid {

inline std::int64_t floorDivide(std::int64_t value, std::int64_t divisor)
{
    const std::int64_t quotient = value / divisor;
    return (value % divisor != 0 && value < 0) ? quotient - 1 : quotient;
}

// Whether window[first, end) holds a clipped sample.
inline bool holdsClipped(const float* window, std::int64_t length, std::int64_t first, std::int64_t end,
                         ClipLevels levels)
{
    for (std::int64_t i = std::max<std::int64_t>(first, 0); i < std::min(end, length); ++i)
        if (levels.sign(window[i]) != 0) return true;
    return false;
}

// A frame to be solved: it covers window positions [start, start + frameLength), of
// which [overlapFirst, overlapEnd) lie in the stretch being restored.
struct FrameSpan {
    std::int64_t start, overlapFirst, overlapEnd;
};

// The frames to be solved for a stretch, a slot of frameLength samples for each
// frame's solution, and an int the solution leaves.
template <typename Sample>
class SolvedFrames {
public:
    // Lists the frames to be solved for window positions [from, to), in ascending
    // order. window[0] is absolute sample `origin`.
    void find(int frameLength, int overlap, const float* window, std::int64_t length, std::int64_t origin,
              ClipLevels levels, std::int64_t from, std::int64_t to)
    {
        frameLength_ = frameLength;
        frames_.clear();
        const std::int64_t hop = frameLength / overlap, margin = overlap == 4 ? frameLength / 4 : 0;
        const std::int64_t firstFrame = floorDivide(origin + from - frameLength + 1, hop);
        const std::int64_t lastFrame = floorDivide(origin + to - 1, hop);
        for (std::int64_t index = firstFrame; index <= lastFrame; ++index) {
            const std::int64_t start = index * hop - origin;
            const std::int64_t overlapFirst = std::max(start, from);
            const std::int64_t overlapEnd = std::min(start + frameLength, to);
            if (!holdsClipped(window, length, overlapFirst, overlapEnd, levels) ||
                !holdsClipped(window, length, start + margin, start + frameLength - margin, levels))
                continue;
            frames_.push_back({start, overlapFirst, overlapEnd});
        }
        if (slots_.size() < frames_.size() * frameLength) slots_.resize(frames_.size() * frameLength);
        if (results_.size() < frames_.size()) results_.resize(frames_.size());
    }

    // result(index) = solve(index, thread, slot(index)) for every frame, on `threads`
    // threads (thread: 0 .. threads - 1, for scratch of its own).
    template <typename Solve>
    void solve(int threads, const Solve& solve)
    {
        spreadOverThreads(size(), threads,
                          [&](int index, int thread) { results_[index] = solve(index, thread, slot(index)); });
    }

    // visit(index, at, n) for each sample of each frame's overlap with the stretch
    // [from, ...), frame by frame in their order: `at` counts from `from`, n within the frame.
    template <typename Visit>
    void forEachOverlap(std::int64_t from, const Visit& visit) const
    {
        for (int index = 0; index < size(); ++index) {
            const FrameSpan& frame = frames_[index];
            for (std::int64_t i = frame.overlapFirst; i < frame.overlapEnd; ++i)
                visit(index, i - from, static_cast<int>(i - frame.start));
        }
    }

    int size() const { return static_cast<int>(frames_.size()); }
    const FrameSpan& operator[](int index) const { return frames_[index]; }
    Sample* slot(int index) { return slots_.data() + static_cast<std::size_t>(index) * frameLength_; }
    int result(int index) const { return results_[index]; }

private:
    int frameLength_ = 0;
    std::vector<FrameSpan> frames_;
    std::vector<Sample> slots_;
    std::vector<int> results_;
};

// Loads the frame at window[start ..] (positions outside the window hold reliable
// zeros), each sample times weight[n] (weight null: as it is), with its bounds: a
// reliable sample's value on both sides, a clipped one's on its inner side and an open
// outer side. Returns the number of clipped samples.
template <typename Sample>
int loadFrame(int frameLength, const float* window, std::int64_t length, std::int64_t start, ClipLevels levels,
              const float* weight, Sample* samples, float* lower, float* upper)
{
    int clipped = 0;
    for (int n = 0; n < frameLength; ++n) {
        const std::int64_t at = start + n;
        const float x = (at >= 0 && at < length) ? window[at] : 0.0f;
        const float value = weight ? weight[n] * x : x;
        const int sign = levels.sign(x);
        samples[n] = value;
        lower[n] = sign < 0 ? -ClipLevels::none : value;
        upper[n] = sign > 0 ? ClipLevels::none : value;
        clipped += sign != 0 ? 1 : 0;
    }
    return clipped;
}

// The power of two nearest `samples` in log, from `shortest` to `longest`: a frame
// length for a duration at a sample rate.
inline int nearestPowerOfTwo(double samples, int shortest, int longest)
{
    int length = shortest;
    // Step up while the duration lies above the geometric midpoint.
    while (length < longest && samples > length * 1.4142135623730951) length *= 2;
    return length;
}

// The periodic Hann window 0.5 - 0.5 cos(2 pi n / length).
std::vector<float> periodicHann(int length);

}  // namespace frame_grid
