// Finds digital dropouts in a stream of interleaved frames: runs of one repeated value
// (exact zeros, or a held sample) that last minRun to maxRun frames, with sound on
// both sides: the rms of the `guard` frames before the run and of the `guard` frames
// after it at or above `floor` (linear, in the samples' own scale), and so is the rms
// of the guard / 5 frames right next to it on each side, which tells a fade to zero
// (quiet just before the run) from sound cut off. Within a guard of the stream's start
// or end a side is judged by what there is of it, at least those guard / 5 frames
// (a gap filler told where the recording ends mends such a run too). Runs that touch
// the stream's start or end, runs longer than maxRun (silence between tracks), runs
// after a fade (quiet before them) and runs held at or above `clipLevel`, or within 1%
// of the channel's peak of their sign (clipping, below full scale too, not a dropout),
// are not dropouts. Runs that touch one another are one dropout, and no dropout when
// together longer than maxRun (the half cycles of a square wave).
//
// Frames go in by push() in blocks of any size; the same dropouts come out whatever
// the blocks. finish() also judges the runs still waiting for their right side. Per channel; a dropout found with the
// same bounds in every channel is reported once for all of them. The constructor
// allocates; push stores each dropout found (amortised growth of the list). One
// thread at a time.
#pragma once

#include <cstdint>
#include <vector>

struct Dropout {
    static constexpr int allChannels = -1;
    int channel;          // 0-based, or allChannels
    std::int64_t first;   // first frame of the run
    std::int64_t last;    // last frame of the run (inclusive)
};

struct DropoutCriteria {
    int minRun;        // frames
    int maxRun;        // frames
    int guard;         // frames on each side whose rms must reach the floor
    double floor;      // rms floor, in the samples' scale
    double clipLevel;  // held values at or above this magnitude are clipping
    double step = 0.0; // the quantiser's step in the samples' scale (0: as fine as floats)
};

class DropoutScanner {
public:
    DropoutScanner(int channels, const DropoutCriteria& criteria);

    void push(const double* interleaved, std::int64_t frames);
    // The dropouts found, sorted by first frame.
    std::vector<Dropout> finish();

private:
    struct Pending {
        std::int64_t first, last;
        double value;  // the value held
        double rightEnergy, nearEnergy;
        int rightCount;
    };
    struct HeldRun {
        std::int64_t first, last;
        double value;
    };
    struct ChannelState {
        std::vector<double> history;  // last guard + minRun samples, circular
        double value = 0.0;
        double before = 0.0;          // the sample before the run
        std::int64_t runStart = 0;
        bool leftLoud = false;        // decided when the run reaches minRun
        std::vector<Pending> pending; // runs waiting for their right side
        std::vector<HeldRun> found;
        double highest = 0.0, lowest = 0.0;  // the channel's peaks of each sign
    };
    bool clipped(const ChannelState& s, double value) const;
    std::vector<Dropout> joinedRuns(int channel) const;
    void take(int channel, double sample);
    void endRun(ChannelState& s, double after);
    bool enteredOrLeftByAJump(const ChannelState& s, double after) const;
    bool rightLoud(const Pending& p) const;
    int nearFrames() const;
    double historyEnergy(const ChannelState& s, std::int64_t from, int count) const;

    int channels_;
    DropoutCriteria criteria_;
    std::int64_t position = 0;
    std::vector<ChannelState> states;
};
