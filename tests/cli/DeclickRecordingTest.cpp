// The whole-recording run behind `declick`: chunks in, latency-aligned chunks out.
#include <gtest/gtest.h>

#include <algorithm>
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

// Music with loud clicks of tens of samples, which the refill holds output back for.
cracklefixture::Channels clickedMusic(std::int64_t frames)
{
    cracklefixture::Channels audio = cracklefixture::musicLike(2, static_cast<int>(frames), 5);
    for (std::int64_t at = 3000; at + 40 < frames; at += 2917)
        for (int i = 0; i < 40; ++i) audio[(at / 2917) % 2][at + i] += (i % 2 ? -0.6f : 0.6f);
    return audio;
}

Recording run(const cracklefixture::Channels& input, int chunk)
{
    const DeclickSettings& settings = defaultDeclickPreset().settings;
    const auto total = static_cast<std::int64_t>(input[0].size());
    const std::vector<double> meanSquares(input.size(), 0.05);
    MultichannelDeclicker declicker(settings, meanSquares, false, DeclickListen::repaired, chunk, 1);
    ClickRefill refill(static_cast<int>(input.size()), 44100, total);
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
    declickRecording(declicker, total, chunk, source, sink, &refill);
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

}  // namespace
