// Runs `ferrotip declick` as a user would and checks the file it writes.
#include <sndfile.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "crackle/CrackleTestSignals.h"
#include "support/CommandRunner.h"
#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

using testsupport::ferrotip;
using Outcome = testsupport::CommandOutcome;

using Audio = testsupport::SoundFile<float>;

void writeAudio(const std::string& path, const cracklefixture::Channels& channels, int format)
{
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = static_cast<int>(channels.size());
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    const size_t frames = channels[0].size();
    std::vector<float> data(frames * channels.size());
    for (size_t t = 0; t < frames; ++t)
        for (size_t c = 0; c < channels.size(); ++c) data[t * channels.size() + c] = channels[c][t];
    sf_writef_float(file, data.data(), static_cast<sf_count_t>(frames));
    sf_close(file);
}

class DeclickCommand : public testing::Test {
protected:
    void SetUp() override
    {
        // Music with single-sample clicks (below the spectral floor, so wholly in the
        // residual path), a length that is no multiple of any block size.
        clean = cracklefixture::musicLike(2, 3 * 44100 + 123, 77);
        for (auto& c : clean)
            for (float& v : c) v *= 0.5f;
        clicked = clean;
        for (int at = 12000; at < 3 * 44100; at += 4321) clicked[at % 2][at] += 0.4f;
        writeAudio(path("in.wav"), clicked, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    }
    std::string path(const std::string& name) const { return scratch / name; }

    double errorAgainstClean(const Audio& audio) const
    {
        double sum = 0.0;
        for (size_t t = 0; t < clean[0].size(); ++t)
            for (int c = 0; c < 2; ++c) {
                const double e = double(audio.samples[t * 2 + c]) - clean[c][t];
                sum += e * e;
            }
        return sum;
    }

    testsupport::TempDir scratch{"ferrotip-declick"};
    cracklefixture::Channels clean;
    cracklefixture::Channels clicked;
};

TEST_F(DeclickCommand, BypassWritesTheInputAlignedAndOfTheSameLengthForEveryBlockSize)
{
    const Audio input = testsupport::readSoundFile<float>(path("in.wav"));
    for (const char* block : {"64", "1000", "4096"}) {
        SCOPED_TRACE(block);
        const auto outcome = ferrotip(std::string("declick --listen bypass --block ") + block + " " +
                                      path("in.wav") + " " + path("out.wav"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        const Audio output = testsupport::readSoundFile<float>(path("out.wav"));
        EXPECT_EQ(output.info.frames, input.info.frames);
        EXPECT_EQ(output.info.format, input.info.format);
        EXPECT_EQ(output.samples, input.samples);
    }
}

TEST_F(DeclickCommand, BothEnginesBringTheFileCloserToTheClean)
{
    const double before = errorAgainstClean(testsupport::readSoundFile<float>(path("in.wav")));
    for (const char* engine : {"standard", "prediction"}) {
        SCOPED_TRACE(engine);
        const auto outcome = ferrotip(std::string("declick --engine ") + engine + " " + path("in.wav") + " " +
                                      path("out.wav"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        EXPECT_NE(outcome.output.find("real time"), std::string::npos) << outcome.output;
        const double after = errorAgainstClean(testsupport::readSoundFile<float>(path("out.wav")));
        // Better than 6 dB: only an output aligned with the input can be (a shift of
        // one sample alone would leave it farther from the clean signal than the input).
        EXPECT_LT(after, 0.25 * before);
    }
}

// 16-bit samples of `channels`, interleaved.
std::vector<short> quantised(const cracklefixture::Channels& channels)
{
    std::vector<short> values;
    for (size_t t = 0; t < channels[0].size(); ++t)
        for (const auto& channel : channels)
            values.push_back(static_cast<short>(std::lrint(std::clamp(channel[t] * 32768.0f, -32768.0f, 32767.0f))));
    return values;
}

template <typename Sample>
void writeFrames(const std::string& path, const std::vector<Sample>& interleaved, int format)
{
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    if constexpr (std::is_same_v<Sample, float>) sf_writef_float(file, interleaved.data(), interleaved.size() / 2);
    else sf_writef_int(file, interleaved.data(), interleaved.size() / 2);
    sf_close(file);
}

TEST_F(DeclickCommand, SixteenBitThirtyTwoBitAndFloatFilesOfTheSameSamplesRepairTheSameSpans)
{
    // 16-bit PCM and float files are read as floats, 32-bit PCM as doubles in its own
    // scale: the engines see the same samples each way, so they repair the same spans.
    const std::vector<short> samples = quantised(clicked);
    std::vector<int> wide;
    std::vector<float> unit;
    for (short value : samples) {
        wide.push_back(value * 65536);
        unit.push_back(static_cast<float>(value) / 32768.0f);
    }
    writeFrames(path("16.wav"), wide, SF_FORMAT_PCM_16);
    writeFrames(path("32.wav"), wide, SF_FORMAT_PCM_32);
    writeFrames(path("float.wav"), unit, SF_FORMAT_FLOAT);
    std::vector<std::string> reports;
    for (const std::string name : {"16", "32", "float"}) {
        const auto outcome = ferrotip("declick -q --report " + path(name + ".csv") + " " + path(name + ".wav") + " " +
                                      path(name + "-out.wav"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        std::ifstream report(path(name + ".csv"));
        reports.emplace_back(std::istreambuf_iterator<char>(report), std::istreambuf_iterator<char>());
    }
    EXPECT_GT(std::count(reports[0].begin(), reports[0].end(), '\n'), 10) << reports[0];
    EXPECT_EQ(reports[1], reports[0]);
    EXPECT_EQ(reports[2], reports[0]);
}

TEST_F(DeclickCommand, DifferenceWritesTheRemovedClicksInverted)
{
    const auto outcome = ferrotip("declick --listen difference " + path("in.wav") + " " + path("out.wav"));
    ASSERT_EQ(outcome.status, 0) << outcome.output;
    const Audio output = testsupport::readSoundFile<float>(path("out.wav"));
    const int at = 12000 + 4321;  // a click on channel 1
    EXPECT_NEAR(output.samples[at * 2 + 1], -0.4f, 0.1f);
}

// The difference is the whole repair's: the engines', the refill's and the fills'
// after them, exactly the repaired output less the input.
TEST_F(DeclickCommand, DifferenceIsTheRepairedOutputLessTheInput)
{
    for (const char* preset : {"auto", "crackle"}) {
        SCOPED_TRACE(preset);
        const std::string arguments = std::string(" -q --preset ") + preset + " " + path("in.wav") + " ";
        ASSERT_EQ(ferrotip("declick" + arguments + path("repaired.wav")).status, 0);
        ASSERT_EQ(ferrotip("declick --listen difference" + arguments + path("removed.wav")).status, 0);
        const auto input = testsupport::readSoundFile<float>(path("in.wav")).samples;
        const auto repaired = testsupport::readSoundFile<float>(path("repaired.wav")).samples;
        const auto removed = testsupport::readSoundFile<float>(path("removed.wav")).samples;
        ASSERT_EQ(removed.size(), input.size());
        std::size_t differing = 0;
        for (std::size_t i = 0; i < input.size(); ++i) differing += removed[i] != repaired[i] - input[i] ? 1 : 0;
        EXPECT_EQ(differing, 0u);
    }
}

TEST_F(DeclickCommand, RefusesToOverwriteItsInput)
{
    const auto before = testsupport::readSoundFile<float>(path("in.wav")).samples;
    const auto outcome = ferrotip("declick " + path("in.wav") + " " + path("in.wav"));
    EXPECT_NE(outcome.status, 0);
    EXPECT_NE(outcome.output.find("is the input file"), std::string::npos) << outcome.output;
    EXPECT_EQ(testsupport::readSoundFile<float>(path("in.wav")).samples, before);
}

TEST_F(DeclickCommand, BadArgumentsNameTheArgumentAndWriteNothing)
{
    const std::pair<const char*, const char*> cases[] = {
        {"--block 10", "--block"},
        {"--engine fast", "--engine"},
        {"--listen loud", "--listen"},
        {"--sensitivity 0", "--sensitivity"},
        {"--floor -1", "--floor"},
    };
    for (const auto& [arguments, named] : cases) {
        SCOPED_TRACE(arguments);
        const auto outcome = ferrotip(std::string("declick ") + arguments + " " + path("in.wav") + " " + path("out.wav"));
        EXPECT_NE(outcome.status, 0);
        EXPECT_NE(outcome.output.find(named), std::string::npos) << outcome.output;
        EXPECT_FALSE(fs::exists(path("out.wav")));
    }
    const auto missing = ferrotip("declick " + path("none.wav") + " " + path("out.wav"));
    EXPECT_NE(missing.status, 0);
    EXPECT_NE(missing.output.find("no such file"), std::string::npos) << missing.output;
    EXPECT_FALSE(fs::exists(path("out.wav")));
}

}  // namespace
