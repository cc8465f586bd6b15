// A third restoration of one channel's clipped samples, by social sparsity
// (SocialSparsitySolver) in blocks of about 0.74 s every half block on a grid fixed to
// absolute sample positions (FrameGrid). Only blocks with between fewestShare and
// mostShare of their samples clipped are solved: below, a block costs as much for the
// few samples it would restore; above, too few reliable samples are left to place the
// partials (measured below). The restoration joins the
// others with a share of `weight` where every block that holds a clipped sample was
// solved, less where only some were: each block counts by its squared Hann window.
//
// Over 36 excerpts of 30 s (music at 5-15 dB, dialogue at 7 dB, speech and voices at
// 44.1 kHz at 3-10 dB) a share of 0.3 added 0.67 dB to the improvement in SDR on
// average (voices 0.8-1.2 dB, music 0.5-0.6), for 1.6 times the time; a share of 0.5
// added 0.05 dB less, losing 1 dB on speech at 10 dB. Over 26 more (speech of mixed
// rates at 3-10 dB, dialogue at 3-15 dB, music at 3 and 20 dB, voices at 15-20 dB) it
// added 0.47 dB, and lowered one excerpt, by 0.13 dB. Solving blocks up to half
// clipped only gave 0.03 dB less on the first set, but 0.1-0.5 dB less on 5 s excerpts
// clipped to 3 dB. Where a channel is clipped on about half its samples (at 1 dB),
// the restoration lowered dialogue and speech by 0.2-0.5 dB: ChannelFinisher leaves it
// out there (channelFactor).
//
// Same cutting contract as Declipper: restoring [from, to) of a window needs context()
// samples on each side and gives the same bits whatever the cut, and on any number of
// threads. A block that straddles the end of one call's stretch is needed by the next
// call too: the last solved block of each of the `remembered` latest calls is kept and
// reused when a block comes again with the same samples and levels (a streaming caller
// that restores C channels in turn remembers C). The constructor allocates; restore()
// does not beyond the first call with a longer stretch (but for the helper threads it
// starts). One thread at a time per object.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "declip/ClipLevels.h"
#include "declip/FrameGrid.h"
#include "declip/SocialSparsitySolver.h"

class SocialDeclipper {
public:
    struct Settings {
        SocialSparsitySolver::Settings solver;
        float fewestShare = 0.05f;  // of a block's samples clipped
        float mostShare = 0.7f;
        float weight = 0.3f;        // 0: not used
        // The share of the restoration falls from full to none as the channel's share
        // of clipped samples rises from fullUpTo to noneFrom.
        double fullUpTo = 0.4, noneFrom = 0.5;

        // Blocks of the power of two nearest 0.74 s, frames of the one nearest 46 ms;
        // below 16 kHz not used.
        static Settings forSampleRate(int sampleRate);
    };

    // The restored sample with `share` of the social one (NaN: none) mixed in. Both lie
    // at or beyond the level with the run's sign, so the blend does too.
    static float blended(float restored, float social, float share)
    {
        if (share == 0.0f || social != social) return restored;
        return restored + share * (social - restored);
    }

    explicit SocialDeclipper(const Settings& settings, int threads = 1, int remembered = 1);
    ~SocialDeclipper();

    // window: `length` samples of one channel; window[0] is absolute sample `origin`.
    // For i in [from, to) where the sample is clipped at `levels`, writes out[i - from]
    // (the restoration, NaN where no block was solved) and share[i - from] (its share
    // in the output); elsewhere window[i] bit for bit and 0. Returns the blocks solved.
    std::int64_t restore(const float* window, std::int64_t length, std::int64_t origin, ClipLevels levels,
                         std::int64_t from, std::int64_t to, float* out, float* share);

    bool used() const { return weight_ > 0.0f; }

    // What the shares restore() gives are multiplied by in a channel of which
    // `clippedShare` of the samples are clipped.
    float channelFactor(double clippedShare) const
    {
        return static_cast<float>(std::clamp((noneFrom_ - clippedShare) / (noneFrom_ - fullUpTo_), 0.0, 1.0));
    }
    int blockLength() const { return blockLength_; }
    int context() const { return blockLength(); }

private:
    struct Worker;  // one thread's solver and bounds
    struct Remembered {  // a solved block, its samples as clipped and its levels
        std::vector<float> input, output;
        ClipLevels levels;
        bool valid = false;
    };

    // A remembered block with these samples and levels, or null.
    const Remembered* recall(const float* samples, ClipLevels levels) const;
    void remember(const float* window, std::int64_t length, ClipLevels levels, int index);

    int blockLength_;
    float fewestShare_, mostShare_, weight_;
    double fullUpTo_, noneFrom_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<float> hann_;
    frame_grid::SolvedFrames<float> blocks_;  // their restorations, and whether each was solved
    std::vector<double> sum_, solvedWeight_, weightSum_;
    std::vector<Remembered> remembered_;
    std::size_t nextRemembered_ = 0;
};
