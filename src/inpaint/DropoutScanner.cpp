#include "inpaint/DropoutScanner.h"

#include <algorithm>
#include <cmath>
#include <map>

DropoutScanner::DropoutScanner(int channels, const DropoutCriteria& criteria)
    : channels_(channels), criteria_(criteria), states(channels)
{
    for (ChannelState& s : states) s.history.assign(criteria.guard + criteria.minRun + 1, 0.0);
}

void DropoutScanner::push(const double* interleaved, std::int64_t frames)
{
    for (std::int64_t f = 0; f < frames; ++f, ++position)
        for (int c = 0; c < channels_; ++c) take(c, interleaved[f * channels_ + c]);
}

// Sum of squares of the samples at stream positions [from, from + count), all still in history.
double DropoutScanner::historyEnergy(const ChannelState& s, std::int64_t from, int count) const
{
    const std::int64_t size = static_cast<std::int64_t>(s.history.size());
    double energy = 0.0;
    for (std::int64_t t = from; t < from + count; ++t) {
        const double v = s.history[t % size];
        energy += v * v;
    }
    return energy;
}

int DropoutScanner::nearFrames() const { return std::max(1, criteria_.guard / 5); }

// Coarse steps (8-bit) hold a slowly moving signal at one value for milliseconds,
// and it leaves that value for the next step; a cut-out starts or ends with a jump.
bool DropoutScanner::enteredOrLeftByAJump(const ChannelState& s, double after) const
{
    constexpr double steps = 1.5;
    return criteria_.step == 0.0 ||
           std::max(std::fabs(s.before - s.value), std::fabs(after - s.value)) > steps * criteria_.step;
}

void DropoutScanner::endRun(ChannelState& s, double after)
{
    const std::int64_t length = position - s.runStart;
    if (length >= criteria_.minRun && length <= criteria_.maxRun && s.leftLoud &&
        std::fabs(s.value) < criteria_.clipLevel && enteredOrLeftByAJump(s, after))
        s.pending.push_back({s.runStart, position - 1, s.value, 0.0, 0.0, 0});
}

void DropoutScanner::take(int channel, double sample)
{
    ChannelState& s = states[channel];
    const double squaredFloor = criteria_.floor * criteria_.floor;
    const int near = nearFrames();
    // A new value ends the run before it, and is the first sample of that run's right side.
    if (position == 0 || sample != s.value) {
        if (position > 0) endRun(s, sample);
        s.before = s.value;
        s.value = sample;
        s.runStart = position;
        s.leftLoud = false;
    }
    for (Pending& p : s.pending) {
        p.rightEnergy += sample * sample;
        if (p.rightCount < near) p.nearEnergy += sample * sample;
        ++p.rightCount;
    }
    while (!s.pending.empty() && s.pending.front().rightCount == criteria_.guard) {
        const Pending& p = s.pending.front();
        if (rightLoud(p)) s.found.push_back({p.first, p.last, p.value});
        s.pending.erase(s.pending.begin());
    }
    s.highest = std::max(s.highest, sample);
    s.lowest = std::min(s.lowest, sample);
    const std::int64_t size = static_cast<std::int64_t>(s.history.size());
    s.history[position % size] = sample;
    // When the run reaches its shortest length, its left side is still in the history
    // (within a guard of the stream's start, what there is of it, the near frames at least).
    if (position - s.runStart + 1 == criteria_.minRun) {
        const int left = static_cast<int>(std::min<std::int64_t>(s.runStart, criteria_.guard));
        s.leftLoud = left >= near && historyEnergy(s, s.runStart - left, left) >= squaredFloor * left &&
                     historyEnergy(s, s.runStart - near, near) >= squaredFloor * near;
    }
}

// Whether a pending run's right side, guard frames or fewer at the stream's end, has sound.
bool DropoutScanner::rightLoud(const Pending& p) const
{
    const double squaredFloor = criteria_.floor * criteria_.floor;
    const int near = nearFrames();
    return p.rightCount >= near && p.rightEnergy >= squaredFloor * p.rightCount && p.nearEnergy >= squaredFloor * near;
}

// A value held at the channel's peak of its sign is a clip level, wherever it lies.
bool DropoutScanner::clipped(const ChannelState& s, double value) const
{
    constexpr double nearPeak = 0.99;
    return value > 0.0 ? value >= nearPeak * s.highest : value < 0.0 && value <= nearPeak * s.lowest;
}

// The channel's dropouts: runs that touch one another (a stretch of several held
// values, such as a stepped or buzzing replacement) are one dropout, and a chain
// longer than maxRun is sound, not a dropout (a square wave of a synthesizer holds
// each half cycle).
std::vector<Dropout> DropoutScanner::joinedRuns(int channel) const
{
    std::vector<HeldRun> held;
    for (const HeldRun& r : states[channel].found)
        if (!clipped(states[channel], r.value)) held.push_back(r);
    std::sort(held.begin(), held.end(), [](const HeldRun& a, const HeldRun& b) { return a.first < b.first; });
    std::vector<Dropout> joined;
    for (std::size_t i = 0; i < held.size();) {
        std::size_t end = i + 1;
        while (end < held.size() && held[end].first == held[end - 1].last + 1) ++end;
        if (held[end - 1].last - held[i].first + 1 <= criteria_.maxRun)
            joined.push_back({channel, held[i].first, held[end - 1].last});
        i = end;
    }
    return joined;
}

std::vector<Dropout> DropoutScanner::finish()
{
    // A run still open touches the end and does not count; a pending one is judged by
    // what there is of its right side.
    for (ChannelState& s : states) {
        for (const Pending& p : s.pending)
            if (rightLoud(p)) s.found.push_back({p.first, p.last, p.value});
        s.pending.clear();
    }
    std::vector<std::vector<Dropout>> runs(states.size());
    std::map<std::pair<std::int64_t, std::int64_t>, int> channelsWith;
    for (int c = 0; c < channels_; ++c)
        for (const Dropout& d : joinedRuns(c)) {
            runs[c].push_back(d);
            ++channelsWith[{d.first, d.last}];
        }
    std::vector<Dropout> out;
    for (const auto& [span, count] : channelsWith)
        if (count == channels_ && channels_ > 1) out.push_back({Dropout::allChannels, span.first, span.second});
    for (const auto& channelRuns : runs)
        for (const Dropout& d : channelRuns)
            if (!(channels_ > 1 && channelsWith[{d.first, d.last}] == channels_)) out.push_back(d);
    std::stable_sort(out.begin(), out.end(), [](const Dropout& a, const Dropout& b) {
        return a.first != b.first ? a.first < b.first : a.channel < b.channel;
    });
    return out;
}
