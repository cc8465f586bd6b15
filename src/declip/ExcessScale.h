// Calibrates how far a restoration carries clipped samples beyond the clip level,
// from the recording's own amplitude distribution.
//
// Clipping cuts off the tail of the magnitudes above the level, but the tail's scale
// still shows just below it: where the tail falls off exponentially, the mean excess
// of the samples beyond the level is P(beyond) / f(level), f the density of the
// magnitudes just below the level (the same ratio holds closely for a Gaussian tail).
// Sparsity in long frames restores light clipping of speech with crests 1.3-2 times
// too tall; each polarity's restored excess over its level is scaled down so that its
// mean meets that estimate (the mean of its own and of both polarities' pooled), and
// never up. A channel clipped on more than heavyShare of its samples is left as
// restored: its level lies in the bulk of the distribution, where the tail tells nothing.
//
// Feed every sample of one channel in order (input as clipped, and as restored), then
// finish(); scaled() then maps each restored clipped sample to its calibrated value,
// still at or beyond the level with the run's sign. Floats in, double sums in sample
// order: the same factors whatever the chunking. Plain value type; nothing allocates.
#pragma once

#include <cstdint>

#include "declip/ClipLevels.h"

class ExcessScale {
public:
    static constexpr float heavyShare = 0.4f;  // of a channel's samples clipped
    static constexpr float bandWidth = 0.05f;  // the density is measured in [level (1 - bandWidth), level)
    // Fewer samples than this in a band (one polarity's, or both pooled) tell nothing:
    // a few crests that happen to peak just under the level would otherwise pass for
    // the tail (with 100 such samples, 4 s of speech at 15 dB lost 4.8 dB).
    static constexpr std::int64_t minimumBand = 200;

    explicit ExcessScale(ClipLevels levels);

    void add(float input, float restored);
    void finish();

    // The share of the samples added that were clipped (0 before any).
    double clippedShare() const
    {
        return samples_ > 0 ? static_cast<double>(positive_.clipped + negative_.clipped) / samples_ : 0.0;
    }
    // The factor on the restored excess of one polarity (sign +1 or -1), in (0, 1].
    float factor(int sign) const { return polarity(sign).factor; }
    // A restored sample, calibrated where it lies at or beyond a level; any other as it is.
    float scaled(float restored) const;

private:
    struct Polarity {
        float level = ClipLevels::none;
        std::int64_t clipped = 0, below = 0;  // samples beyond the level, and just below it
        double excess = 0.0;                  // restored excess over the level, summed
        float factor = 1.0f;
    };
    Polarity& polarity(int sign) { return sign > 0 ? positive_ : negative_; }
    const Polarity& polarity(int sign) const { return sign > 0 ? positive_ : negative_; }
    static float calibrated(const Polarity& p, float magnitude) { return p.level + p.factor * (magnitude - p.level); }

    ClipLevels levels_;
    Polarity positive_, negative_;
    std::int64_t samples_ = 0;
};
