// Writing integer PCM: every value lands on its nearest step, and values beyond the
// format's range are clipped, not wrapped.
#include "AudioFile.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace {

std::vector<int> writtenAs16Bit(const std::vector<double>& rawValues)
{
    testsupport::TempDir dir("ferrotip-audio-writer");
    const std::string path = dir / "out.wav";
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    {
        AudioWriter writer(path, info);
        writer.write(rawValues.data(), static_cast<std::int64_t>(rawValues.size()));
        writer.commit();
    }
    std::vector<int> steps;
    for (const int value : testsupport::readSoundFile<int>(path).samples) steps.push_back(value / 65536);
    return steps;
}

TEST(AudioWriter, RoundsIntegerSamplesToTheNearestStep)
{
    const std::vector<double> values{100.4, 100.6, -100.4, -100.6, 99.9999, -99.9999, 2.5, 3.5, -2.5};
    const std::vector<int> expected{100, 101, -100, -101, 100, -100, 2, 4, -2};
    EXPECT_EQ(writtenAs16Bit(values), expected);
}

TEST(AudioWriter, ClipsIntegerSamplesBeyondFullScale)
{
    const std::vector<double> values{32767.4, 32767.6, 40000.0, -32768.4, -32768.6, -40000.0};
    const std::vector<int> expected{32767, 32767, 32767, -32768, -32768, -32768};
    EXPECT_EQ(writtenAs16Bit(values), expected);
}

}  // namespace
