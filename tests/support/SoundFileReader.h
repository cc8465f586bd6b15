// Reads a whole sound file through libsndfile, for tests that check what the
// command wrote: float samples in libsndfile's normalised scale, or int samples in
// the full 32-bit integer scale (exact for PCM).
#pragma once

#include <sndfile.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

namespace testsupport {

template <typename Sample>
struct SoundFile {
    SF_INFO info{};
    std::vector<Sample> samples;  // interleaved
};

template <typename Sample>
SoundFile<Sample> readSoundFile(const std::string& path)
{
    static_assert(std::is_same_v<Sample, float> || std::is_same_v<Sample, int>);
    SoundFile<Sample> audio;
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &audio.info);
    EXPECT_NE(file, nullptr) << path;
    if (!file) return audio;
    audio.samples.resize(audio.info.frames * audio.info.channels);
    if constexpr (std::is_same_v<Sample, float>)
        sf_readf_float(file, audio.samples.data(), audio.info.frames);
    else
        sf_readf_int(file, audio.samples.data(), audio.info.frames);
    sf_close(file);
    return audio;
}

}  // namespace testsupport
