// `ferrotip declick` beyond the engine itself: presets, per-channel engines and
// threads, the click report, argument checks and an exact bypass.
#include <sndfile.h>
#include <stdlib.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "SpanList.h"
#include "support/SoundFileWriter.h"
#include "support/CommandRunner.h"
#include "support/SoundFileReader.h"
#include "support/TempDir.h"

namespace fs = std::filesystem;

namespace {

using testsupport::ferrotip;

// Integer-only stereo test audio (the same bits on every platform): two triangle
// waves, a little generator noise and a click every 3001 samples on alternate channels.
std::vector<int> portableClickedAudio(int frames)
{
    std::vector<int> samples(static_cast<std::size_t>(frames) * 2);
    std::uint32_t state = 12345;
    for (int t = 0; t < frames; ++t) {
        for (int c = 0; c < 2; ++c) {
            const int period = c == 0 ? 200 : 331;
            const int phase = t % period;
            const int triangle = (phase < period / 2 ? phase : period - phase) * 4 * 3000 / period - 3000;
            const int slow = ((t / 7) % 1000 < 500 ? (t / 7) % 1000 : 1000 - (t / 7) % 1000) * 8 - 2000;
            state = state * 1664525u + 1013904223u;
            const int noise = static_cast<int>(state >> 24) - 128;
            int value = triangle + slow + noise;
            if (t % 3001 == 1500 && (t / 3001) % 2 == c) value += (t % 2 ? 9000 : -9000);
            samples[static_cast<std::size_t>(t) * 2 + c] = value;
        }
    }
    return samples;
}

void writeIntWav(const std::string& path, const std::vector<int>& samples, int format)
{
    testsupport::writeSoundFile(path, std::vector<short>(samples.begin(), samples.end()), 2, 44100, format);
}

// FNV-1a over the bytes of the file's float samples.
std::uint64_t digestOf(const std::string& path)
{
    const auto audio = testsupport::readSoundFile<float>(path);
    std::uint64_t hash = 1469598103934665603ull;
    const auto* bytes = reinterpret_cast<const unsigned char*>(audio.samples.data());
    for (std::size_t i = 0; i < audio.samples.size() * sizeof(float); ++i) hash = (hash ^ bytes[i]) * 1099511628211ull;
    return hash;
}

std::vector<double> readDoubles(const std::string& path)
{
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    EXPECT_NE(file, nullptr) << path;
    if (!file) return {};
    std::vector<double> samples(static_cast<std::size_t>(info.frames) * info.channels);
    sf_command(file, SFC_SET_SCALE_INT_FLOAT_WRITE, nullptr, SF_FALSE);
    sf_command(file, SFC_SET_NORM_DOUBLE, nullptr, SF_FALSE);
    sf_readf_double(file, samples.data(), info.frames);
    sf_close(file);
    return samples;
}

class DeclickOptions : public testing::Test {
protected:
    void SetUp() override
    {
        writeIntWav(path("in.wav"), portableClickedAudio(2 * 44100 + 77), SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    }
    std::string path(const std::string& name) const { return dir / name; }
    std::string run(const std::string& arguments, const std::string& out = "out.wav")
    {
        return runOn("in.wav", arguments, out);
    }
    std::string runOn(const std::string& in, const std::string& arguments, const std::string& out)
    {
        const auto outcome = ferrotip("declick -q " + arguments + " " + path(in) + " " + path(out));
        EXPECT_EQ(outcome.status, 0) << arguments << "\n" << outcome.output;
        return outcome.output;
    }

    testsupport::TempDir dir{"ferrotip-declick-options"};
};

TEST_F(DeclickOptions, OneSharedEngineWithExplicitSettingsKeepsTheEarlierOutputBitForBit)
{
    // Digests of the output of the single multichannel engine as it was before
    // presets and per-channel engines existed, from a float copy of the input, whose
    // output holds the engine's samples as they are.
    const std::pair<const char*, std::uint64_t> pinned[] = {
        {"standard", 0xd1a4326463afbfbcull},
        {"prediction", 0x8eab224abc7aeb40ull},
    };
    std::vector<float> normalised;
    for (const int value : portableClickedAudio(2 * 44100 + 77)) normalised.push_back(value / 32768.0f);
    testsupport::writeSoundFile(path("in-float.wav"), normalised, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    for (const auto& [engine, digest] : pinned) {
        SCOPED_TRACE(engine);
        const std::string settings = std::string(" --engine ") + engine + " --block 1024 --sensitivity 3 --floor 1e-7";
        for (const char* jobs : {"1", "2"}) {
            runOn("in-float.wav", std::string("--shared-engine --jobs ") + jobs + settings, "out-float.wav");
            EXPECT_EQ(digestOf(path("out-float.wav")), digest);
        }
        // The 16-bit input gives the same samples, each rounded to the nearest step.
        run("--shared-engine" + settings);
        const auto exact = testsupport::readSoundFile<float>(path("out-float.wav")).samples;
        const auto stored = testsupport::readSoundFile<float>(path("out.wav")).samples;
        ASSERT_EQ(stored.size(), exact.size());
        std::size_t misrounded = 0;
        for (std::size_t i = 0; i < exact.size(); ++i) {
            const double step = std::clamp(std::nearbyint(exact[i] * 32768.0), -32768.0, 32767.0);
            misrounded += stored[i] != static_cast<float>(step / 32768.0) ? 1 : 0;
        }
        EXPECT_EQ(misrounded, 0u);
    }
}

// A stereo excerpt that starts and stops mid-sound: two tones, a slow one and a
// little generator noise, at about -9 dBFS from its first frame to its last.
std::vector<float> excerptCutMidSound(int frames)
{
    std::vector<float> samples(static_cast<std::size_t>(frames) * 2);
    std::uint32_t state = 99;
    for (int t = 0; t < frames; ++t)
        for (int c = 0; c < 2; ++c) {
            state = state * 1664525u + 1013904223u;
            const double noise = (static_cast<double>(state >> 8) / (1 << 24) - 0.5) * 2e-3;
            samples[static_cast<std::size_t>(t) * 2 + c] = static_cast<float>(
                0.3 * std::cos(2.0 * M_PI * (c == 0 ? 440.0 : 587.0) * t / 44100.0) +
                0.2 * std::sin(2.0 * M_PI * 97.0 * t / 44100.0 + 1.0 + c) + noise);
        }
    return samples;
}

TEST_F(DeclickOptions, AnExcerptCutMidSoundKeepsItsFirstAndLastSamples)
{
    constexpr int frames = 44100;
    constexpr int edge = 64;
    const std::vector<float> excerpt = excerptCutMidSound(frames);
    testsupport::writeSoundFile(path("cut.wav"), excerpt, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    // The largest change to the first and last `edge` frames.
    const auto edgeChange = [&](const std::string& name) {
        const auto output = testsupport::readSoundFile<float>(path(name)).samples;
        EXPECT_EQ(output.size(), excerpt.size());
        double largest = 0.0;
        for (std::size_t i = 0; i < std::min(output.size(), excerpt.size()); ++i)
            if (i < 2 * edge || i >= excerpt.size() - 2 * edge)
                largest = std::max(largest, static_cast<double>(std::fabs(output[i] - excerpt[i])));
        return largest;
    };
    for (const char* preset : {"auto", "gentle", "clicks", "crackle"}) {
        SCOPED_TRACE(preset);
        runOn("cut.wav", std::string("--preset ") + preset + " --report " + path("cut.csv"), "kept.wav");
        EXPECT_LT(edgeChange("kept.wav"), 1e-4);
        for (const SampleSpan& span : readSpanList(path("cut.csv"), 44100))
            EXPECT_TRUE(span.first >= edge && span.last < frames - edge) << span.first << "-" << span.last;
    }
    // Taken as silence, the steps at the ends are clicks to the engines.
    runOn("cut.wav", "--preset crackle --silent-edges", "silent.wav");
    EXPECT_GT(edgeChange("silent.wav"), 0.01);
    runOn("cut.wav", "--preset crackle --shared-engine", "shared.wav");
    EXPECT_GT(edgeChange("shared.wav"), 0.01);
}

TEST_F(DeclickOptions, RecordingsShorterThanTheContinuationsAreDeclicked)
{
    for (const int frames : {1, 2, 20, 700, 3000}) {
        SCOPED_TRACE(frames);
        const std::vector<float> excerpt = excerptCutMidSound(frames);
        testsupport::writeSoundFile(path("short.wav"), excerpt, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
        runOn("short.wav", "", "short-out.wav");
        const auto output = testsupport::readSoundFile<float>(path("short-out.wav")).samples;
        ASSERT_EQ(output.size(), excerpt.size());
        for (std::size_t i = 0; i < output.size(); ++i) EXPECT_NEAR(output[i], excerpt[i], 1e-2) << i;
    }
}

TEST_F(DeclickOptions, EveryPresetGivesTheSameBitsWhateverTheNumberOfJobs)
{
    for (const char* preset : {"auto", "clicks", "crackle", "gentle"}) {
        SCOPED_TRACE(preset);
        run(std::string("--preset ") + preset + " --jobs 1", "one.wav");
        run(std::string("--preset ") + preset + " --jobs 2", "two.wav");
        run(std::string("--preset ") + preset, "default.wav");
        EXPECT_EQ(digestOf(path("two.wav")), digestOf(path("one.wav")));
        EXPECT_EQ(digestOf(path("default.wav")), digestOf(path("one.wav")));
    }
}

TEST_F(DeclickOptions, ReportListsTheRepairedSpansInEachFormatAndTheSummaryCountsThem)
{
    const std::string summary = run("--preset clicks --report " + path("clicks.csv"));
    EXPECT_NE(summary.find("spans repaired"), std::string::npos) << summary;
    EXPECT_NE(summary.find("% of samples changed"), std::string::npos) << summary;
    const auto spans = readSpanList(path("clicks.csv"), 44100);
    ASSERT_FALSE(spans.empty());
    EXPECT_NE(summary.find(std::to_string(spans.size()) + " spans repaired"), std::string::npos) << summary;
    // Every click lies in a span of its own channel.
    for (int t = 1500; t < 2 * 44100 + 77; t += 3001) {
        const int channel = (t / 3001) % 2;
        const bool covered = std::any_of(spans.begin(), spans.end(), [&](const SampleSpan& span) {
            return span.channel == channel && span.first <= t && t <= span.last;
        });
        EXPECT_TRUE(covered) << "click at " << t << " on channel " << channel;
    }
    for (const char* name : {"clicks.json", "clicks.txt"}) {
        run("--preset clicks --report " + path(name));
        const auto again = readSpanList(path(name), 44100);
        ASSERT_EQ(again.size(), spans.size()) << name;
        EXPECT_EQ(again.front().first, spans.front().first) << name;
    }
    std::ifstream labels(path("clicks.txt"));
    std::string line;
    std::getline(labels, line);
    EXPECT_EQ(std::count(line.begin(), line.end(), '\t'), 2) << line;
}

TEST_F(DeclickOptions, AutoFillsLoudClicksAgainOnlyInsideTheReportedSpans)
{
    // Clicks of 20 samples, long enough to stand out as clicks rather than crackle.
    std::vector<int> samples = portableClickedAudio(2 * 44100 + 77);
    for (int t = 1500; t + 20 < 2 * 44100 + 77; t += 3001)
        for (int i = 1; i < 20; ++i) samples[static_cast<std::size_t>(t + i) * 2 + (t / 3001) % 2] += 6000;
    writeIntWav(path("wide.wav"), samples, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
    const std::string summary = runOn("wide.wav", "--report " + path("auto.csv"), "auto.wav");
    EXPECT_NE(summary.find("clicks refilled by least-squares AR"), std::string::npos) << summary;
    // auto's engine pass with nothing after it.
    runOn("wide.wav", "--sensitivity 18 --relative-floor 3e-4 --no-refill", "engines.wav");
    const auto refilled = testsupport::readSoundFile<float>(path("auto.wav")).samples;
    const auto engines = testsupport::readSoundFile<float>(path("engines.wav")).samples;
    ASSERT_EQ(refilled.size(), engines.size());
    const auto spans = readSpanList(path("auto.csv"), 44100);
    const auto inside = [&](std::size_t frame, int channel) {
        return std::any_of(spans.begin(), spans.end(), [&](const SampleSpan& span) {
            return span.channel == channel && span.first <= static_cast<std::int64_t>(frame) &&
                   static_cast<std::int64_t>(frame) <= span.last;
        });
    };
    std::size_t changed = 0;
    for (std::size_t i = 0; i < refilled.size(); ++i) {
        if (refilled[i] == engines[i]) continue;
        ++changed;
        EXPECT_TRUE(inside(i / 2, static_cast<int>(i % 2))) << "frame " << i / 2 << " channel " << i % 2;
    }
    EXPECT_GT(changed, 0u);
    EXPECT_GE(spans.size(), 1u);
    // One explicit pass runs the engines alone, as earlier versions did.
    run("--sensitivity 18 --relative-floor 1e-3", "one-pass.wav");
    run("--sensitivity 18 --relative-floor 1e-3 --no-refill", "one-pass-engines.wav");
    EXPECT_EQ(digestOf(path("one-pass.wav")), digestOf(path("one-pass-engines.wav")));
}

TEST_F(DeclickOptions, DifferenceWorksWithPresets)
{
    for (const char* preset : {"auto", "clicks"}) {
        SCOPED_TRACE(preset);
        run(std::string("--preset ") + preset + " --listen difference");
        const auto output = testsupport::readSoundFile<int>(path("out.wav"));
        // The first click, 9000 down on channel 0: what was removed comes back inverted.
        const std::size_t at = 1500 * 2;
        EXPECT_NEAR(output.samples[at] / 65536.0, 9000.0, 2000.0);
        EXPECT_NEAR(output.samples[at + 1000] / 65536.0, 0.0, 500.0);
    }
}

TEST_F(DeclickOptions, RefusesNonFiniteValuesUnknownPresetsAndReportsOfAnUnknownKindOrOnItsAudio)
{
    const std::uint64_t inputDigest = digestOf(path("in.wav"));
    const std::pair<std::string, const char*> cases[] = {
        {"--sensitivity nan", "--sensitivity"}, {"--sensitivity inf", "--sensitivity"},
        {"--floor nan", "--floor"},             {"--floor -inf", "--floor"},
        {"--preset loud", "--preset"},          {"--jobs 0", "--jobs"},
        {"--report " + path("spans.wav"), "spans.wav"},
    };
    for (const auto& [arguments, named] : cases) {
        SCOPED_TRACE(arguments);
        const auto outcome = ferrotip("declick " + arguments + " " + path("in.wav") + " " + path("out.wav"));
        EXPECT_NE(outcome.status, 0);
        EXPECT_NE(outcome.output.find(named), std::string::npos) << outcome.output;
        EXPECT_FALSE(fs::exists(path("out.wav")));
    }
    // Audio written under a report's name would be replaced by the report.
    const auto clash = ferrotip("declick --report " + path("out.txt") + " " + path("in.wav") + " " + path("out.txt"));
    EXPECT_NE(clash.status, 0);
    EXPECT_NE(clash.output.find("--report"), std::string::npos) << clash.output;
    EXPECT_FALSE(fs::exists(path("out.txt")));
    EXPECT_EQ(digestOf(path("in.wav")), inputDigest);
}

// A float file can hold samples whose squares overflow the engines' float spectra
// (NaN out where the input had none): such a file is refused before anything is
// written, naming the sample; up to the limit every output sample stays finite.
TEST_F(DeclickOptions, RefusesSamplesBeyondTheLargestMagnitudeAndKeepsTheOutputFiniteUpToIt)
{
    const std::vector<int> audio = portableClickedAudio(20000);
    std::vector<float> loud(audio.size());
    for (std::size_t i = 0; i < audio.size(); ++i) loud[i] = static_cast<float>(audio[i] / 16384.0 * 1e15);
    const float peak = *std::max_element(loud.begin(), loud.end(), [](float a, float b) { return std::fabs(a) < std::fabs(b); });
    for (float& sample : loud) sample *= 1e15f / std::fabs(peak);
    testsupport::writeSoundFile(path("loud.wav"), loud, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    for (const char* preset : {"auto", "gentle", "clicks", "crackle"}) {
        const auto outcome = ferrotip(std::string("declick -q --preset ") + preset + " " + path("loud.wav") + " " + path("out.wav"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        const auto output = testsupport::readSoundFile<float>(path("out.wav"));
        EXPECT_TRUE(std::ranges::all_of(output.samples, [](float sample) { return std::isfinite(sample); })) << preset;
        fs::remove(path("out.wav"));
    }
    std::vector<float> spiked(audio.begin(), audio.end());
    for (float& sample : spiked) sample /= 32768.0f;
    spiked[12345 * 2 + 1] = 1e23f;
    testsupport::writeSoundFile(path("spiked.wav"), spiked, 2, 44100, SF_FORMAT_WAV | SF_FORMAT_FLOAT);
    for (const char* options : {"", "--preset crackle --floor 1e-6 --sensitivity 8"}) {
        const auto outcome = ferrotip(std::string("declick ") + options + " " + path("spiked.wav") + " " + path("out.wav"));
        EXPECT_EQ(outcome.status, 1) << options;
        EXPECT_NE(outcome.output.find("channel 2 at frame 12345"), std::string::npos) << outcome.output;
        EXPECT_FALSE(fs::exists(path("out.wav")));
    }
}

// Full-range samples that a 32-bit float path would round.
TEST_F(DeclickOptions, BypassIsExactFor32BitIntegerAnd64BitFloatFiles)
{
    const int frames = 5000;
    std::vector<double> values(static_cast<std::size_t>(frames) * 2);
    std::uint32_t state = 99;
    for (double& v : values) {
        state = state * 1664525u + 1013904223u;
        v = (static_cast<double>(static_cast<std::int32_t>(state)) + 0.123456789) / 2147483648.0;
    }
    for (const int subtype : {SF_FORMAT_PCM_32, SF_FORMAT_DOUBLE}) {
        SCOPED_TRACE(subtype);
        SF_INFO info{};
        info.samplerate = 48000;
        info.channels = 2;
        info.format = SF_FORMAT_WAV | subtype;
        SNDFILE* file = sf_open(path("wide.wav").c_str(), SFM_WRITE, &info);
        ASSERT_NE(file, nullptr);
        sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
        sf_writef_double(file, values.data(), frames);
        sf_close(file);
        const auto outcome =
            ferrotip("declick -q --listen bypass " + path("wide.wav") + " " + path("wide-out.wav"));
        ASSERT_EQ(outcome.status, 0) << outcome.output;
        EXPECT_EQ(readDoubles(path("wide-out.wav")), readDoubles(path("wide.wav")));
        // The summary says what was done: a copy, with no preset or spans.
        EXPECT_NE(outcome.output.find("copied 0.10 s of 2-channel audio unchanged (--listen bypass)"),
                  std::string::npos)
            << outcome.output;
        EXPECT_EQ(outcome.output.find("preset"), std::string::npos) << outcome.output;
    }
}

}  // namespace
