// Finds where the sound around a hole repeats: the shift whose borders (`border`
// samples before and after a hole of the same length) best match the hole's own
// borders by normalised correlation over all channels, seconds away if need be (music
// repeats its beats and bars). A coarse search on the channels' sum in box sums of
// 2 `hop` samples every `hop` (the similarity search of long gaps, PatternSearch, on
// those blocks) lists the likeliest shifts; the best of them is then refined sample by
// sample at the full rate, where only a few hundred correlations remain to be summed.
//
// The constructor allocates for segments up to maxLength samples and a hole with its
// borders up to maxSpan samples; find never allocates.
// Double arithmetic in plain loops and the signal library's transform, which the
// coarse pass takes in single precision (its scores only pick the shifts to refine;
// the table's fills came back the same): the same bits on every instruction-set path.
// One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/PatternSearch.h"
#include "signal/KernelPath.h"

class RepeatSearch {
public:
    struct Match {
        int source = 0;            // the repeat's first sample in place of the hole's
        double gain = 0.0;         // its least-squares gain on the borders
        double correlation = 0.0;  // the borders' normalised correlation; 0: none found
    };

    RepeatSearch(int maxLength, int hop, int maxSpan);
    RepeatSearch(int maxLength, int hop) : RepeatSearch(maxLength, hop, maxLength) {}

    // The best repeat within channels[c][from .. to) of the hole [hole, hole + length)
    // with its borders; the repeat and its borders never overlap the hole. The hole's
    // samples are never read (the caller's audio, as it came, may hold anything there).
    Match find(const float* const* channels, int channelCount, int from, int to, int hole, int length, int border);

private:
    static constexpr int shortlist = 4;
    struct Coarse {
        int shifts[shortlist];
        int count;
    };
    void addHalfBlocks(const float* x, int from, int count, int hole, int length);
    Coarse coarseShifts(const float* const* channels, int channelCount, int from, int to, int hole, int length,
                        int border);
    Match refine(const float* const* channels, int channelCount, int from, int to, int hole, int length, int border,
                 int shift, double templateEnergy) const;

    int maxLength_;
    int hop_;
    std::unique_ptr<double[]> blocks;  // maxLength / hop: the channels' sum in boxes
    static constexpr int stretch = 512;  // scores
    std::unique_ptr<int[]> stretchBest;  // each stretch's first highest score, or -1
    PatternSearch blockSearch;         // over the blocks
    kernel_paths::Path path = kernel_paths::fastestPath();
    // The border sums of each shift a refinement tries: 2 hop + 1.
    std::unique_ptr<double[]> product, energy;
    void borderSumsOf(const float* const* channels, int channelCount, int hole, int length, int border, int first,
                      int count, int at) const;
};
