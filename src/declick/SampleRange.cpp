#include "declick/SampleRange.h"

#include <cmath>
#include <cstdio>
#include <string>

namespace {

bool outOfRange(float sample) { return std::fabs(sample) > largestDeclickSample; }

std::string describe(const SampleOutOfRange& sample)
{
    char text[160];
    std::snprintf(text, sizeof text, "a sample of %g at channel %d, frame %lld is beyond what declick takes (magnitude %g)",
                  static_cast<double>(sample.value), sample.channel, static_cast<long long>(sample.frame),
                  static_cast<double>(largestDeclickSample));
    return text;
}

// A branch-free count, which vectorises: the common case finds none and stops there.
std::int64_t countOutOfRange(const float* row, std::int64_t frames)
{
    std::int64_t count = 0;
    for (std::int64_t i = 0; i < frames; ++i) count += outOfRange(row[i]) ? 1 : 0;
    return count;
}

}  // namespace

std::optional<SampleOutOfRange> firstSampleOutOfRange(const float* const* rows, int channels, std::int64_t frames)
{
    for (int c = 0; c < channels; ++c) {
        if (countOutOfRange(rows[c], frames) == 0) continue;
        for (std::int64_t i = 0; i < frames; ++i)
            if (outOfRange(rows[c][i])) return SampleOutOfRange{c, i, rows[c][i]};
    }
    return std::nullopt;
}

std::int64_t clampToDeclickRange(float* const* rows, int channels, std::int64_t frames)
{
    std::int64_t clamped = 0;
    for (int c = 0; c < channels; ++c) {
        const std::int64_t count = countOutOfRange(rows[c], frames);
        if (count == 0) continue;
        for (std::int64_t i = 0; i < frames; ++i)
            if (outOfRange(rows[c][i])) rows[c][i] = std::copysign(largestDeclickSample, rows[c][i]);
        clamped += count;
    }
    return clamped;
}

SampleOutOfRangeError::SampleOutOfRangeError(const SampleOutOfRange& sample)
    : std::range_error(describe(sample)), sample_(sample)
{
}
