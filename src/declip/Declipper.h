// Restores the clipped samples of one channel over any stretch of it, frame by
// frame: Hann frames of N samples (about 0.15 s) every N/4 samples on a grid fixed to
// absolute sample positions (FrameGrid), and only the frames that hold a clipped sample are
// solved (FrameDeclipper); the others cost nothing. Heavily clipped frames (more
// than Settings::heavyShare clipped) are solved in the oversampled DFT of the
// settings, and those with more than Settings::heaviestShare clipped in one
// oversampled Settings::heaviestRedundancy times; the others in the plain DFT of
// the frame, which restores them about as well at half the cost or less. A
// clipped sample's value is the overlap-add of its frames' solutions divided by
// the sum of their windows, then projected once more onto the consistent set (at
// or beyond the clip level, with the run's sign). Reliable samples are never
// changed: the restored signal meets them without a crossfade (the limit of the
// crossfade of Zaviska, Rajmic and Mokry, "Audio declipping performance
// enhancement via crossfading", Signal Processing 2022, which keeps the reliable
// samples exactly).
//
// Because the grid is absolute and a frame's solution depends only on its own
// samples, a caller may cut a long channel into pieces: restoring [from, to) of a
// window needs context() samples of the channel on each side of it (samples beyond
// the window count as reliable zeros, as at a file's ends), and then gives the same
// bits whatever the cut. The frames of a call are solved on as many threads as asked,
// and overlap-added in their order afterwards: the same bits on any number of threads.
// The constructor allocates; restore() does not beyond the first call with a larger
// stretch (but for the helper threads it starts). One thread at a time per object.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "declip/ClipLevels.h"
#include "declip/FrameDeclipper.h"
#include "declip/FrameGrid.h"

class Declipper {
public:
    struct Stats {
        std::int64_t framesSolved = 0;
        std::int64_t iterations = 0;
    };

    // threads: how many threads solve the frames of a call (the caller's among them).
    explicit Declipper(const FrameDeclipper::Settings& settings, int threads = 1);
    ~Declipper();

    // window: `length` samples of one channel; window[0] is absolute sample `origin`.
    // Writes out[i - from] for i in [from, to): the restored sample where it is
    // clipped at `levels`, window[i] bit for bit otherwise.
    Stats restore(const float* window, std::int64_t length, std::int64_t origin, ClipLevels levels,
                  std::int64_t from, std::int64_t to, float* out);

    int frameLength() const { return frameLength_; }
    int hop() const { return frameLength() / 4; }
    int context() const { return frameLength(); }

private:
    struct Worker;  // one thread's solvers and bounds

    int frameLength_;
    std::vector<std::unique_ptr<Worker>> workers_;
    std::vector<float> hann_;
    frame_grid::SolvedFrames<float> frames_;  // their solutions, and the iterations each took
    std::vector<double> sum_, weight_;
};
