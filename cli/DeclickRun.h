// What `ferrotip declick` decides besides file I/O, shared with the Python module so
// both give the same bits: the options that pick and change a preset (with their
// checks and messages), each channel's level, and the run over a whole recording
// with the engines' latency taken off.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "declick/ClickRefill.h"
#include "declick/DeclickPreset.h"
#include "declick/MultichannelDeclicker.h"
#include "declick/SampleRange.h"
#include "EdgeContinuedSource.h"

namespace CLI {
class App;
class Option;
}  // namespace CLI

struct DeclickSettingOptions {
    std::string preset{defaultDeclickPreset().name};
    std::string engine;
    std::string listen;
    int block = 0;
    float sensitivity = 0.0f;
    float floor = 0.0f;
    double relativeFloor = 0.0;
    int jobs = 0;
    bool sharedEngine = false;
    bool noRefill = false;
    bool silentEdges = false;
    // Which of the preset's settings the options replace.
    CLI::Option* engineOption = nullptr;
    CLI::Option* blockOption = nullptr;
    CLI::Option* sensitivityOption = nullptr;
    CLI::Option* floorOption = nullptr;
    CLI::Option* relativeFloorOption = nullptr;
};

// --preset, --engine, --block, --sensitivity, --floor, --relative-floor,
// --shared-engine, --no-refill, --silent-edges and --jobs.
void addDeclickSettingOptions(CLI::App* command, DeclickSettingOptions& options);
// --listen.
void addDeclickListenOption(CLI::App* command, DeclickSettingOptions& options);

// The preset, with what the options replace.
DeclickSettings settingsFrom(const DeclickSettingOptions& options);
DeclickListen listenFrom(const std::string& listen);
// --jobs, or the cores up to the channel count.
int jobsFor(const DeclickSettingOptions& options, int channels);
// Whether the engines need each channel's mean square (a floor relative to the level).
bool needsLevel(const DeclickSettings& settings, DeclickListen listen);
// Frames per call over a whole recording: whole blocks, about 16k frames, so threads meet rarely.
int declickChunk(const DeclickSettings& settings);

// Each channel's mean square at full scale 1, summed in time order.
class MeanSquareMeter {
public:
    explicit MeanSquareMeter(int channels) : sums_(static_cast<std::size_t>(channels), Lanes{}) {}
    // count samples of one channel from frame `first` on, each times scale; countFrames
    // then counts the frames so added.
    template <typename Sample>
    void addRow(int channel, std::int64_t first, const Sample* samples, std::int64_t count, double scale)
    {
        addSquares(sums_[static_cast<std::size_t>(channel)], first, count,
                   [&](std::int64_t t) { return static_cast<double>(samples[t]) * scale; });
    }
    void countFrames(std::int64_t frames) { counted_ += frames; }
    // The next `frames` interleaved frames, each sample times scale; counts them.
    template <typename Sample>
    void addFrames(const Sample* interleaved, std::int64_t frames, double scale)
    {
        const auto channels = static_cast<std::int64_t>(sums_.size());
        for (std::int64_t c = 0; c < channels; ++c)
            addSquares(sums_[static_cast<std::size_t>(c)], counted_, frames,
                       [&](std::int64_t t) { return static_cast<double>(interleaved[t * channels + c]) * scale; });
        counted_ += frames;
    }
    std::vector<double> meanSquares() const;

private:
    // Frame t's square adds to lane t % 4, in frame order: four chains of additions
    // instead of one, and the same sums however the frames come in chunks.
    static constexpr int lanes = 4;
    using Lanes = std::array<double, lanes>;

    template <typename SampleAt>
    static void addSquares(Lanes& sums, std::int64_t first, std::int64_t count, const SampleAt& sampleAt)
    {
        std::int64_t t = 0;
        for (; t < count && (first + t) % lanes != 0; ++t) {
            const double x = sampleAt(t);
            sums[static_cast<std::size_t>((first + t) % lanes)] += x * x;
        }
        Lanes local = sums;
        for (; t + lanes <= count; t += lanes)
            for (int lane = 0; lane < lanes; ++lane) {
                const double x = sampleAt(t + lane);
                local[static_cast<std::size_t>(lane)] += x * x;
            }
        sums = local;
        for (; t < count; ++t) {
            const double x = sampleAt(t);
            sums[static_cast<std::size_t>((first + t) % lanes)] += x * x;
        }
    }

    std::vector<Lanes> sums_;
    std::int64_t counted_ = 0;
};

// Takes rows[c][from, from + count): the next output frames, aligned with the input.
using DeclickSink = DeclickFrameSink;

// What a whole recording's run adds around the engines.
struct DeclickStages {
    std::optional<ClickRefill::Settings> refill;  // the click refill after the engines, if any
    int sampleRate = 44100;                       // the refill's lengths are set at this rate
    int edge = 0;  // frames each edge of the recording is continued by (0: silence past it)
    // The sink gets the output less the input: what the engines and the refill took
    // out, its sign inverted (the engines themselves then run for the repaired output).
    bool difference = false;
};
// Whether the recording's edges are continued: not with --silent-edges, nor for one
// shared engine, which keeps its earlier output bit for bit.
bool continuesEdges(const DeclickSettingOptions& options);
// The stages for these settings: the refill where the passes are followed by it for
// this output, its impulse search over `jobs` threads, and, with continueEdges, edges
// continued by twice the block (1024 frames at least).
DeclickStages declickStagesFor(const DeclickSettings& settings, DeclickListen listen, bool continueEdges,
                               int sampleRate, int jobs = 1);
// What the engines are asked for under these stages: the repaired output where the
// stages take the difference themselves.
DeclickListen enginesListen(DeclickListen listen, const DeclickStages& stages);

// Runs `total` frames through the declicker, `chunk` frames a call (its maxFrames),
// and hands on exactly `total` output frames lined up with the input, at most `chunk`
// a call: the first latency() outputs are dropped and silence is fed past the end.
// With stages.edge, the engines see each edge continued (EdgeContinuedSource) and
// what they give for the continuations is dropped. With a refill, the output passes
// through it.
// A sample beyond ±largestDeclickSample throws SampleOutOfRangeError before any of
// its chunk is processed.
// Returns the repaired spans inside the recording (refilled stretches included),
// merged and sorted.
std::vector<RepairedSpan> declickRecording(MultichannelDeclicker& declicker, std::int64_t total, int chunk,
                                           const DeclickSource& source, const DeclickSink& sink,
                                           const DeclickStages& stages = {});
