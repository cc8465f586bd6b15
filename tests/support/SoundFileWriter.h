// Writes interleaved samples to a sound file through libsndfile, for tests that
// prepare a command's input: short samples in the 16-bit scale, float samples in
// libsndfile's normalised scale (libsndfile converts to `format`'s subtype).
#pragma once

#include <sndfile.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace testsupport {

template <typename Sample>
void writeSoundFile(const std::string& path, const std::vector<Sample>& interleaved, int channels, int rate,
                    int format)
{
    static_assert(std::is_same_v<Sample, short> || std::is_same_v<Sample, float>);
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << path << ": " << sf_strerror(nullptr);
    const auto frames = static_cast<sf_count_t>(interleaved.size() / channels);
    if constexpr (std::is_same_v<Sample, short>)
        sf_writef_short(file, interleaved.data(), frames);
    else
        sf_writef_float(file, interleaved.data(), frames);
    sf_close(file);
}

}  // namespace testsupport
