// The whole-recording run behind `declick`: chunks in, latency-aligned chunks out.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "DeclickRun.h"
#include "crackle/CrackleTestSignals.h"
#include "declick/ClickRefill.h"
#include "declick/DeclickPreset.h"
#include "declick/MultichannelDeclicker.h"

namespace {

struct Recording {
    std::vector<std::vector<float>> output;
    std::vector<int> sinkCounts;
};

// Faint crackle of one or two samples every 1733 samples on alternate channels, about
// 20 times the music's noise.
void addFaintCrackle(cracklefixture::Channels& audio, std::int64_t from, float height = 0.04f)
{
    const auto frames = static_cast<std::int64_t>(audio[0].size());
    for (std::int64_t at = from; at + 2 < frames; at += 1733)
        for (int i = 0; i <= at % 2; ++i) audio[(at / 1733) % 2][at + i] += at % 3 ? height : -height;
}

// Music with loud clicks of tens of samples, which the refill holds output back for,
// and faint crackle between them.
cracklefixture::Channels clickedMusic(std::int64_t frames)
{
    cracklefixture::Channels audio = cracklefixture::musicLike(2, static_cast<int>(frames), 5);
    for (std::int64_t at = 3000; at + 40 < frames; at += 2917)
        for (int i = 0; i < 40; ++i) audio[(at / 2917) % 2][at + i] += (i % 2 ? -0.6f : 0.6f);
    addFaintCrackle(audio, 2000);
    return audio;
}

Recording run(const cracklefixture::Channels& input, int chunk, double meanSquare = 0.05,
              const DeclickSettings& settings = defaultDeclickPreset().settings)
{
    const auto total = static_cast<std::int64_t>(input[0].size());
    const std::vector<double> meanSquares(input.size(), meanSquare);
    MultichannelDeclicker declicker(settings, meanSquares, false, DeclickListen::repaired, chunk, 1);
    Recording recording;
    recording.output.resize(input.size());
    std::int64_t read = 0;
    const auto source = [&](float* const* rows, std::int64_t frames) {
        for (std::size_t c = 0; c < input.size(); ++c)
            std::copy_n(input[c].begin() + read, frames, rows[c]);
        read += frames;
        return frames;
    };
    const auto sink = [&](const float* const* rows, int from, int count) {
        recording.sinkCounts.push_back(count);
        for (std::size_t c = 0; c < input.size(); ++c)
            recording.output[c].insert(recording.output[c].end(), rows[c] + from, rows[c] + from + count);
    };
    declickRecording(declicker, total, chunk, source, sink,
                     declickStagesFor(settings, DeclickListen::repaired, false, 44100));
    return recording;
}

TEST(DeclickRecording, HandsOnAtMostAChunkACallWhateverTheRefillHeldBack)
{
    const auto input = clickedMusic(3 * 44100 + 77);
    for (int chunk : {512, 1024, 4096}) {
        const Recording recording = run(input, chunk);
        for (int count : recording.sinkCounts) EXPECT_LE(count, chunk) << "chunk " << chunk;
        ASSERT_EQ(recording.output[0].size(), input[0].size()) << "chunk " << chunk;
    }
}

// Chunks are whole blocks, as declickChunk makes them.
TEST(DeclickRecording, OutputDoesNotDependOnTheChunk)
{
    const auto input = clickedMusic(2 * 44100 + 5);
    const Recording small = run(input, 1024);
    const Recording large = run(input, 8192);
    EXPECT_EQ(small.output, large.output);
}

// A click far louder than the music lifts every bin above the engines' spectral
// floor and goes through untouched; the refill's impulse search takes it out.
TEST(DeclickRecording, TakesOutLoudShortClicksInQuietAndLoudMusic)
{
    constexpr int chunk = 16384;
    constexpr int positions[] = {20000, 45000, 70000, 95000, 120000};
    constexpr float heights[] = {0.1f, 0.25f, 0.5f, 0.75f, 1.0f};  // up to full scale
    // What the click method's fill of a few dozen samples may differ from the engines' output.
    constexpr double allowedShare = 0.1;
    for (float gain : {0.01f, 0.1f, 1.0f}) {  // rms about -57, -37 and -17 dBFS
        cracklefixture::Channels clean = cracklefixture::musicLike(1, 3 * 44100, 5);
        double energy = 0.0;
        for (float& sample : clean[0]) {
            sample *= gain;
            energy += static_cast<double>(sample) * sample;
        }
        const double meanSquare = energy / static_cast<double>(clean[0].size());
        const Recording cleanOutput = run(clean, chunk, meanSquare);
        for (int width : {1, 2, 4}) {
            cracklefixture::Channels clicked = clean;
            for (int k = 0; k < 5; ++k)
                for (int i = 0; i < width; ++i) clicked[0][positions[k] + i] += k % 2 ? heights[k] : -heights[k];
            const Recording output = run(clicked, chunk, meanSquare);
            for (int k = 0; k < 5; ++k)
                for (int i = 0; i < width; ++i) {
                    const auto at = static_cast<std::size_t>(positions[k] + i);
                    EXPECT_LE(std::fabs(output.output[0][at] - cleanOutput.output[0][at]), allowedShare * heights[k])
                        << "gain " << gain << ", width " << width << ", height " << heights[k];
                }
        }
    }
}

// The engines at the default preset's sensitivity leave crackle of ten times the
// music's noise in, which the refill's fine search fills. (The edges, where this run
// feeds the engines silence, are left out.)
TEST(DeclickRecording, FillsFaintCrackleTheEnginesLeave)
{
    const cracklefixture::Channels clean = cracklefixture::musicLike(2, 2 * 44100, 9);
    cracklefixture::Channels crackled = clean;
    addFaintCrackle(crackled, 1500, 0.02f);
    DeclickSettings withoutFine = defaultDeclickPreset().settings;
    withoutFine.fillFineCrackle = false;
    const Recording filled = run(crackled, 16384);
    const Recording left = run(crackled, 16384, 0.05, withoutFine);
    double filledError = 0.0;
    double leftError = 0.0;
    for (int c = 0; c < 2; ++c)
        for (std::size_t n = 200; n + 200 < clean[c].size(); ++n) {
            filledError += std::pow(filled.output[c][n] - clean[c][n], 2);
            leftError += std::pow(left.output[c][n] - clean[c][n], 2);
        }
    EXPECT_LT(filledError, 0.5 * leftError);
}

}  // namespace
