// Clip levels of one channel and the test that marks a sample as clipped.
//
// Levels are magnitudes in the samples' own scale (full scale 1 for the library's
// floats), one per polarity: a sample is clipped when x >= positive or x <= -negative.
// A level of +infinity means that polarity is not clipped. Plain value type.
#pragma once

#include <limits>

struct ClipLevels {
    static constexpr float none = std::numeric_limits<float>::infinity();
    float positive = none;
    float negative = none;

    static ClipLevels symmetric(float level) { return {level, level}; }
    bool any() const { return positive != none || negative != none; }
    // +1 for a sample clipped at the positive level, -1 at the negative one, 0 for a reliable one.
    int sign(float x) const { return x >= positive ? 1 : (x <= -negative ? -1 : 0); }
};
