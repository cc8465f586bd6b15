// The largest sample magnitude the crackle engines take. They square spectra of
// blocks of up to 65536 windowed samples (scaled by 1/2048) in float, and sum such
// squares over bins: samples up to 1e15 keep every square and sum far below
// FLT_MAX (3.4e38); much louder ones (music peaking near 5e20, or one sample of
// 1e23) overflow to infinity and come out as NaN. Full scale is 1, so no
// recording reaches this; a float file can hold anything.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>

inline constexpr float largestDeclickSample = 1e15f;

struct SampleOutOfRange {
    int channel = 0;
    std::int64_t frame = 0;
    float value = 0.0f;
};

// The first sample of rows[c][0, frames) beyond ±largestDeclickSample, channel by
// channel; NaN is not judged here.
std::optional<SampleOutOfRange> firstSampleOutOfRange(const float* const* rows, int channels, std::int64_t frames);

// Puts samples beyond ±largestDeclickSample at that limit, in place; returns how many.
std::int64_t clampToDeclickRange(float* const* rows, int channels, std::int64_t frames);

// What a whole-recording run throws for a sample out of range (frame counted from
// the recording's start, channel from 0).
class SampleOutOfRangeError : public std::range_error {
public:
    explicit SampleOutOfRangeError(const SampleOutOfRange& sample);
    const SampleOutOfRange& sample() const { return sample_; }

private:
    SampleOutOfRange sample_;
};
