// Restores the clipped samples of one channel by autoregressive interpolation, frame
// by frame (BoundedArFill): Hann frames every half frame on a grid fixed to absolute
// sample positions (FrameGrid), solved where they hold a clipped sample and at most
// maxShare of their samples are clipped (beyond that the frame's own model says little
// about its crests). Every clipped sample lies in two frames; with frames every quarter
// frame instead (four), the blend below gained 0.06 dB more on average over 62
// excerpts, for a third more of the fill's time. A clipped sample's value is the
// overlap-add of its frames' fills, weighted by the window's square, projected onto
// its bound; a clipped sample that no solved frame covers gets NaN, for the caller to
// restore otherwise.
//
// Alone this fill restores less than the sparse one (Declipper) almost everywhere;
// it errs the other way (crests too low where the sparse one makes them too tall), and
// a share of it in the sparse restoration (blended()) gains where the file is lightly
// clipped.
//
// Same cutting contract as Declipper: restoring [from, to) of a window needs
// context() samples on each side and gives the same bits whatever the cut, and on any
// number of threads. The constructor allocates; restore() does not beyond the first
// call with a longer stretch (but for the helper threads it starts). One thread at a
// time per object.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include "declip/BoundedArFill.h"
#include "declip/ClipLevels.h"
#include "declip/FrameGrid.h"

class ArDeclipper {
public:
    struct Settings {
        int frameLength = 4096;
        int order = 64;
        float maxShare = 0.4f;  // of a frame's samples clipped
        // The fill's share in the restoration of a lightly clipped channel (up to
        // lightShare of its samples clipped), falling linearly to none at twice that;
        // 0: the fill is not used.
        float weight = 0.25f;
        double lightShare = 0.08;

        // Frames of 4096 samples and order 64 (8192 and 128 above 64 kHz). Below
        // 16 kHz no fill: on 8 kHz words the blend lost as often as it gained.
        static Settings forSampleRate(int sampleRate);
    };

    // The share of the fill in the restoration of a channel of which `clippedShare`
    // of the samples are clipped: none in heavily clipped channels, where the sparse
    // restoration alone is better.
    float weightFor(double clippedShare) const
    {
        const double falling = std::clamp(2.0 - clippedShare / lightShare_, 0.0, 1.0);
        return static_cast<float>(weight_ * falling);
    }
    bool used() const { return weight_ > 0.0f; }

    // The restored sample: the sparse one with `arWeight` of the autoregressive one
    // (which may be NaN: none) mixed in. Both lie at or beyond the level with the
    // run's sign, so the blend does too.
    static float blended(float sparse, float autoregressive, float arWeight)
    {
        if (arWeight == 0.0f || autoregressive != autoregressive) return sparse;
        return (1.0f - arWeight) * sparse + arWeight * autoregressive;
    }

    // threads: how many threads solve the frames of a call (the caller's among them).
    explicit ArDeclipper(const Settings& settings, int threads = 1);
    ~ArDeclipper();

    // window: `length` samples of one channel; window[0] is absolute sample `origin`.
    // Writes out[i - from] for i in [from, to): the fill where it is clipped at
    // `levels` (NaN where no frame was solved), window[i] bit for bit otherwise.
    // Returns the frames solved.
    std::int64_t restore(const float* window, std::int64_t length, std::int64_t origin, ClipLevels levels,
                         std::int64_t from, std::int64_t to, float* out);

    int frameLength() const { return frameLength_; }
    int context() const { return frameLength(); }

private:
    struct Worker;  // one thread's fill and bounds

    int frameLength_;
    float maxShare_, weight_;
    double lightShare_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<float> hann_;
    frame_grid::SolvedFrames<double> frames_;  // their fills, and whether each was filled
    std::vector<double> sum_, windowSum_;
};
