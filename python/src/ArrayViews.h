// Reading Python arguments for the bindings: sample arrays used in place, and the
// values that the command line takes as text.
//
// Sample arrays must be float32 in native byte order, shaped (channels, frames) or
// (frames,). They are read where they lie, through their strides, and never copied
// first; any other dtype is refused rather than rounded behind the caller's back.
// An AudioView only borrows: the array it came from must outlive it. Reading a view
// needs no GIL.
#pragma once

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ferrotip_python {

struct AudioView {
    const char* base = nullptr;
    std::int64_t channels = 0;
    std::int64_t frames = 0;
    std::int64_t channelStride = 0;  // bytes
    std::int64_t frameStride = 0;    // bytes
    std::vector<pybind11::ssize_t> shape;  // the array's own shape, 1 or 2 dimensions

    // Frames [first, end) of channel `channel` into out[0, end - first).
    void copyFrames(std::int64_t channel, std::int64_t first, std::int64_t end, float* out) const;
};

// The most channels any function takes; above maxChannelsWithoutFrames channels
// a whole recording must hold at least as many frames as channels, since audio
// shaped (frames, channels) would otherwise pass for thousands of channels.
constexpr std::int64_t maxChannels = 4096;
constexpr std::int64_t maxChannelsWithoutFrames = 64;

// A whole recording. Throws TypeError for a non-float32 array, ValueError for a
// wrong shape, no channels, channels beyond the limits above or a value that is
// not finite.
AudioView audioView(const pybind11::handle& array, const char* name);

// A block of a stream whose channel count is known: any number of frames, but
// exactly `channels` channels (else ValueError); otherwise as audioView.
AudioView blockView(const pybind11::handle& array, const char* name, std::int64_t channels);

// Checks a one-dimensional float32 array of samples (any length, any stride).
AudioView sampleView(const pybind11::handle& array, const char* name);

// The name of a value's type, for messages ("str", "float32").
std::string typeName(const pybind11::handle& value);

// True for what Python takes as a number (numpy's scalars too), but not a bool or a str.
bool isNumber(const pybind11::handle& value);

// An int (or numpy integer) as decimal text, or a str as it is: the forms the
// command line parses. Throws TypeError naming the argument for anything else.
std::string argumentText(const pybind11::handle& value, const char* name, const char* forms);

// A Python integer within [low, high]; TypeError or ValueError naming the argument.
std::int64_t integerArgument(const pybind11::handle& value, const char* name, std::int64_t low,
                             std::int64_t high);

}  // namespace ferrotip_python
