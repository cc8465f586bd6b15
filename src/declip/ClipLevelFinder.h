// Finds where a channel was clipped, from the samples alone, in one streaming pass.
//
// Clipping piles samples up at one magnitude: a spike in the histogram of |x| at
// the top of its range, wherever the level sits (full scale or below). A lossy
// codec applied after clipping spreads that spike into a narrow hump, mostly just
// below and above the level, and overshoots it by up to some 60% in a few samples,
// so the finder looks for a hump: from the highest sample down to half an octave
// below all but the highest thousandth, the densest band, about 1% wide (a step
// wide where the samples are coarsely quantised, as 8-bit, mu-law and A-law are),
// must hold enough samples and four times the density just below the hump, or
// about 16% below it where one value holds the hump or samples lie above it (a
// codec's overshoot; the crest of a steady tone piles up samples too, but has
// nothing above; a hump with samples above it is weighed against the density under
// its lower edge). The level is the lower edge of that hump, where its flank no
// longer stands out of the music's own density under it, so codec ripple at the
// plateau counts as clipped.
// A periodic signal piles up at its crest too, in the few values its cycle
// repeats, each as heavy as the crest's: a pile counts only if it holds far more
// than any of the four values just below it (four times where one value holds it,
// sixteen times a spread hump), and some value must lie within an octave below it.
// Each polarity is judged on its own (asymmetric clipping, DC offsets).
//
// Histogram: 2048 bins per octave of |x| from 2^-24 up to 2^24, built with frexp, so
// the same samples give the same levels on every platform. A polarity with samples
// beyond 2^24 is not judged (taken as unclipped): its pile could lie beyond the
// bins. The constructor allocates; add() and levels() do not. One object per
// channel, one thread at a time.
#pragma once

#include <cstdint>
#include <vector>

#include "declip/ClipLevels.h"

class ClipLevelFinder {
public:
    ClipLevelFinder();

    // Adds `count` samples (any scale; one channel).
    void add(const float* samples, std::int64_t count);
    ClipLevels levels() const;
    void reset();

    static constexpr int binsPerOctave = 2048;

private:
    struct Polarity {
        std::vector<std::uint32_t> histogram;
        std::int64_t count = 0;
        std::int64_t beyondRange = 0;  // samples at 2^24 or more, which no bin holds
    };
    static int binOf(float magnitude);
    static float lowerEdge(int bin);
    static float levelOf(const Polarity& polarity);

    Polarity positive_, negative_;
};
