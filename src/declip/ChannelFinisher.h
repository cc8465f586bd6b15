// Finishes one channel's restoration once all of it has been seen: the sparse
// restoration's excess over the clip levels calibrated (ExcessScale), and the
// autoregressive fill mixed in by the share the channel's clipping calls for
// (ArDeclipper::weightFor; none in heavily clipped channels).
//
// Feed every sample of the channel in order (as clipped, and as the sparse restoration
// gave it), then finish(); finished() then maps each restored sample, with the fill's
// at the same place, to the output. A sample that is not clipped comes back bit for
// bit. Plain value type; nothing allocates.
#pragma once

#include <cstdint>

#include "declip/ArDeclipper.h"
#include "declip/ClipLevels.h"
#include "declip/ExcessScale.h"

class ChannelFinisher {
public:
    explicit ChannelFinisher(ClipLevels levels) : levels_(levels), scale_(levels) {}

    void add(float input, float sparse)
    {
        scale_.add(input, sparse);
        ++samples_;
        clipped_ += levels_.sign(input) != 0 ? 1 : 0;
    }

    void finish(const ArDeclipper& fill)
    {
        scale_.finish();
        fillWeight_ = fill.weightFor(samples_ > 0 ? static_cast<double>(clipped_) / samples_ : 0.0);
    }

    // sparse: the sparse restoration of a sample; autoregressive: the fill there (NaN: none).
    float finished(float sparse, float autoregressive) const
    {
        if (levels_.sign(sparse) == 0) return sparse;
        return ArDeclipper::blended(scale_.scaled(sparse), autoregressive, fillWeight_);
    }

    float fillWeight() const { return fillWeight_; }

private:
    ClipLevels levels_;
    ExcessScale scale_;
    std::int64_t samples_ = 0, clipped_ = 0;
    float fillWeight_ = 0.0f;
};
