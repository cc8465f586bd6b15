// `ferrotip declick IN OUT`: streams a whole file through the crackle engines (one per
// channel unless --shared-engine, run in parallel) and writes the result with the
// input's format. The engines' latency is taken off the front and made up with
// silence at the end, so OUT lines up with IN sample for sample and has the same
// length. A floor relative to the level takes a first pass over the file for each
// channel's mean square. Memory is a few chunks, whatever the file's length.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "Commands.h"
#include "SpanList.h"
#include "declick/DeclickPreset.h"
#include "declick/MultichannelDeclicker.h"

namespace fs = std::filesystem;

namespace {

struct DeclickOptions {
    std::string input, output;
    std::string preset{defaultDeclickPreset().name};
    std::string engine;
    std::string listen;
    std::string report;
    int block = 0;
    float sensitivity = 0.0f;
    float floor = 0.0f;
    double relativeFloor = 0.0;
    int jobs = 0;
    bool sharedEngine = false;
    bool quiet = false;
    // Which of the preset's settings the command line replaces.
    CLI::Option* engineOption = nullptr;
    CLI::Option* blockOption = nullptr;
    CLI::Option* sensitivityOption = nullptr;
    CLI::Option* floorOption = nullptr;
    CLI::Option* relativeFloorOption = nullptr;
};

constexpr int minBlock = 64;
constexpr int maxBlock = 65536;
constexpr int maxJobs = 256;
// Frames per read: whole blocks, about 16k frames, so threads meet rarely.
constexpr int chunkTarget = 16384;

// The preset, with what the command line replaces. A sensitivity and a floor given
// together make one pass; either alone replaces its value in every pass.
DeclickSettings settingsFrom(const DeclickOptions& options)
{
    DeclickSettings settings = findDeclickPreset(options.preset)->settings;
    if (options.engineOption->count() > 0)
        settings.engine = options.engine == "prediction" ? DeclickEngineKind::prediction : DeclickEngineKind::standard;
    if (options.blockOption->count() > 0) settings.block = options.block;
    const bool floorGiven = options.floorOption->count() > 0 || options.relativeFloorOption->count() > 0;
    if (floorGiven && options.sensitivityOption->count() > 0) settings.passCount = 1;
    for (DeclickPass& pass : settings.passes) {
        if (options.sensitivityOption->count() > 0) pass.sensitivity = options.sensitivity;
        if (options.floorOption->count() > 0) pass.floor = {false, options.floor};
        if (options.relativeFloorOption->count() > 0) pass.floor = {true, options.relativeFloor};
    }
    return settings;
}

DeclickListen listenFrom(const std::string& listen)
{
    if (listen == "difference") return DeclickListen::difference;
    if (listen == "bypass") return DeclickListen::bypass;
    return DeclickListen::repaired;
}

int defaultJobs(int channels)
{
    return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, std::max(channels, 1));
}

// Each channel's mean square at full scale 1, from a pass over the whole file.
std::vector<double> channelMeanSquares(const std::string& path)
{
    AudioReader reader(path);
    const int channels = reader.channels();
    const double scale = 1.0 / reader.fullScale();
    std::vector<double> sums(channels, 0.0);
    std::vector<double> frames(static_cast<std::size_t>(chunkTarget) * channels);
    std::int64_t counted = 0;
    while (counted < reader.frames()) {
        const std::int64_t got = reader.read(frames.data(), chunkTarget);
        if (got == 0) throw CliError("the input '" + path + "' ended early");
        for (std::int64_t t = 0; t < got; ++t)
            for (int c = 0; c < channels; ++c) {
                const double value = frames[t * channels + c] * scale;
                sums[c] += value * value;
            }
        counted += got;
    }
    for (double& sum : sums) sum /= static_cast<double>(std::max<std::int64_t>(counted, 1));
    return sums;
}

// A one-line bar on stderr, redrawn when the whole percentage changes.
class Progress {
public:
    Progress(std::int64_t total, bool enabled) : total_(std::max<std::int64_t>(total, 1)), enabled_(enabled) {}
    ~Progress() { finish(); }
    // Clears the bar's line.
    void finish()
    {
        if (enabled_ && drawn_ >= 0) std::fprintf(stderr, "\r%*s\r", barWidth + 8, "");
        drawn_ = -1;
    }
    void update(std::int64_t done)
    {
        if (!enabled_) return;
        const int percent = static_cast<int>(100 * std::min(done, total_) / total_);
        if (percent == drawn_) return;
        drawn_ = percent;
        const int filled = percent * barWidth / 100;
        std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(filled, '#').c_str(),
                     std::string(barWidth - filled, ' ').c_str(), percent);
        std::fflush(stderr);
    }

private:
    static constexpr int barWidth = 40;
    std::int64_t total_;
    bool enabled_;
    int drawn_ = -1;
};

// Moves chunks between the file's interleaved frames (in the file's scale) and the
// engines' channel rows (full scale 1).
class ChunkStream {
public:
    ChunkStream(int channels, int frames, double fullScale)
        : channels_(channels),
          frames_(frames),
          fullScale_(fullScale),
          interleaved_(static_cast<std::size_t>(frames) * channels),
          rows_(channels, std::vector<float>(frames)),
          pointers_(channels)
    {
        for (int c = 0; c < channels; ++c) pointers_[c] = rows_[c].data();
    }

    // Fills the rows from `frames` interleaved frames, silence after them.
    void load(std::int64_t frames)
    {
        const double scale = 1.0 / fullScale_;
        const int valid = static_cast<int>(std::clamp<std::int64_t>(frames, 0, frames_));
        const double* source = interleaved_.data();
        for (int c = 0; c < channels_; ++c) {
            float* row = pointers_[c];
            for (int i = 0; i < valid; ++i) row[i] = static_cast<float>(source[i * channels_ + c] * scale);
            std::fill(row + valid, row + frames_, 0.0f);
        }
    }

    // Interleaves rows[from .. from + count) back into the file's scale.
    const double* store(int from, int count)
    {
        double* target = interleaved_.data();
        for (int c = 0; c < channels_; ++c) {
            const float* row = pointers_[c] + from;
            for (int i = 0; i < count; ++i) target[i * channels_ + c] = static_cast<double>(row[i]) * fullScale_;
        }
        return interleaved_.data();
    }

    double* frames() { return interleaved_.data(); }
    float* const* rows() { return pointers_.data(); }

private:
    int channels_;
    int frames_;
    double fullScale_;
    std::vector<double> interleaved_;
    std::vector<std::vector<float>> rows_;
    std::vector<float*> pointers_;
};

struct DeclickTally {
    std::vector<RepairedSpan> spans;
    std::int64_t samplesChanged = 0;
};

// Bypass copies the file's own samples: exact for every format, where the engines'
// 32-bit float path would round 32-bit integer and 64-bit float audio.
void copyFile(AudioReader& reader, AudioWriter& writer, Progress& progress, const std::string& input)
{
    std::vector<double> frames(static_cast<std::size_t>(chunkTarget) * reader.channels());
    std::int64_t written = 0;
    while (written < reader.frames()) {
        const std::int64_t got = reader.read(frames.data(), std::min<std::int64_t>(chunkTarget, reader.frames() - written));
        if (got == 0) throw CliError("the input '" + input + "' ended early");
        writer.write(frames.data(), got);
        written += got;
        progress.update(written);
    }
}

DeclickTally declickStream(AudioReader& reader, AudioWriter& writer, MultichannelDeclicker& declicker,
                           int chunk, Progress& progress, const std::string& input)
{
    const std::int64_t total = reader.frames();
    const int latency = declicker.latency();
    ChunkStream stream(reader.channels(), chunk, reader.fullScale());
    DeclickTally tally;
    // Output sample k of the engines is input sample k - latency: drop the first
    // `latency` outputs, and feed silence past the end until all are written.
    std::int64_t consumed = 0;
    std::int64_t produced = 0;
    std::int64_t written = 0;
    while (written < total) {
        std::int64_t got = 0;
        if (consumed < total) got = reader.read(stream.frames(), std::min<std::int64_t>(chunk, total - consumed));
        if (consumed < total && got == 0) throw CliError("the input '" + input + "' ended early");
        consumed += got;
        stream.load(got);
        declicker.process(stream.rows(), chunk);
        declicker.forEachLastSpan([&](const RepairedSpan& span) {
            if (span.first < total) tally.spans.push_back({span.channel, span.first, std::min(span.last, total - 1)});
        });
        const std::int64_t skip = std::clamp<std::int64_t>(latency - produced, 0, chunk);
        const std::int64_t keep = std::min<std::int64_t>(chunk - skip, total - written);
        produced += chunk;
        if (keep > 0) {
            writer.write(stream.store(static_cast<int>(skip), static_cast<int>(keep)), keep);
            written += keep;
        }
        progress.update(written);
    }
    mergeOverlappingSpans(tally.spans);
    for (const RepairedSpan& span : tally.spans) tally.samplesChanged += span.length();
    return tally;
}

void writeReport(const std::string& path, const std::vector<RepairedSpan>& spans, int sampleRate)
{
    std::vector<SampleSpan> listed;
    listed.reserve(spans.size());
    for (const RepairedSpan& span : spans) listed.push_back({span.channel, span.first, span.last, "click"});
    writeSpanReport(path, listed, sampleRate);
}

std::string describe(const DeclickOptions& options, const DeclickSettings& settings, int engines)
{
    std::string text = "the " + options.preset + " preset (" +
                       (settings.engine == DeclickEngineKind::standard ? "standard" : "prediction") + " engine" +
                       (engines == 1 ? "" : " per channel") + ", block " + std::to_string(settings.block) + ", ";
    char sensitivity[32];
    for (const DeclickPass& pass : settings.activePasses()) {
        std::snprintf(sensitivity, sizeof sensitivity, "%ssensitivity %g", &pass == settings.passes.data() ? "" : " then ",
                      pass.sensitivity);
        text += sensitivity;
    }
    return text + ")";
}

// Refuses a report of an unknown kind, or one that would land on IN or OUT, before any work.
void checkReportPath(const DeclickOptions& options)
{
    if (options.report.empty()) return;
    spanFormatFor(options.report);
    for (const std::string& audio : {options.input, options.output}) {
        std::error_code error;
        if (fs::weakly_canonical(options.report, error) == fs::weakly_canonical(audio, error))
            throw CliError("--report '" + options.report + "' names an audio file of this run; choose another name");
    }
}

void declickFile(const DeclickOptions& options)
{
    checkReportPath(options);
    AudioReader reader(options.input);
    requireDistinctFiles(options.input, options.output);
    const int channels = reader.channels();
    const std::int64_t total = reader.frames();
    const auto started = std::chrono::steady_clock::now();

    const DeclickSettings settings = settingsFrom(options);
    const DeclickListen listen = listenFrom(options.listen);
    const bool needsLevel =
        listen != DeclickListen::bypass &&
        std::ranges::any_of(settings.activePasses(), [](const DeclickPass& pass) { return pass.floor.relativeToLevel; });
    const std::vector<double> meanSquares =
        needsLevel ? channelMeanSquares(options.input) : std::vector<double>(channels, 0.0);
    const int chunk = std::max(1, chunkTarget / settings.block) * settings.block;
    const int jobs = options.jobs > 0 ? options.jobs : defaultJobs(channels);

    AudioWriter writer(options.output, reader.info());
    Progress progress(total, isatty(STDERR_FILENO) != 0 && !options.quiet);
    DeclickTally tally;
    const int engines = options.sharedEngine ? 1 : channels;
    if (listen == DeclickListen::bypass) {
        copyFile(reader, writer, progress, options.input);
    } else {
        MultichannelDeclicker declicker(settings, meanSquares, options.sharedEngine, listen, chunk, jobs);
        tally = declickStream(reader, writer, declicker, chunk, progress, options.input);
    }
    progress.finish();
    // The report first: if it cannot be written, the audio is not left behind either.
    if (!options.report.empty()) writeReport(options.report, tally.spans, reader.sampleRate());
    writer.commit();

    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const double duration = static_cast<double>(total) / reader.sampleRate();
    const double samples = static_cast<double>(std::max<std::int64_t>(total * channels, 1));
    std::printf("declicked %.2f s of %d-channel audio with %s in %.2f s (%.1fx real time): "
                "%zu spans repaired, %.3f%% of samples changed\n",
                duration, channels, describe(options, settings, engines).c_str(), seconds,
                seconds > 0.0 ? duration / seconds : 0.0, tally.spans.size(),
                100.0 * static_cast<double>(tally.samplesChanged) / samples);
}

// Refuses nan and infinities, which every range check lets through or names badly.
const CLI::Validator finiteNumber(
    [](std::string& text) {
        float value = 0.0f;
        if (CLI::detail::lexical_cast(text, value) && !std::isfinite(value))
            return std::string("must be a finite number, not ") + text;
        return std::string();
    },
    "");

// A number option that must be finite and within [low, high].
template <typename Number>
CLI::Option* addFiniteOption(CLI::App* command, const std::string& name, Number& value, const std::string& help,
                             Number low, Number high)
{
    return command->add_option(name, value, help)->check(finiteNumber)->check(CLI::Range(low, high));
}

std::string presetHelp()
{
    std::string help = "settings for the kind of damage (default " + std::string(defaultDeclickPreset().name) + "):";
    for (const DeclickPreset& preset : declickPresets())
        help += " " + std::string(preset.name) + ": " + std::string(preset.purpose) + ";";
    help.pop_back();
    return help;
}

std::vector<std::string> presetNames()
{
    std::vector<std::string> names;
    for (const DeclickPreset& preset : declickPresets()) names.emplace_back(preset.name);
    return names;
}

}  // namespace

void addDeclickCommand(CLI::App& app)
{
    auto options = std::make_shared<DeclickOptions>();
    CLI::App* command = app.add_subcommand(
        "declick", "Remove clicks and crackle from a whole audio file (output aligned with the input)");
    command->add_option("IN", options->input, "input audio file (any format libsndfile reads)")
        ->required();
    command->add_option("OUT", options->output, "output file, written with the input's format")
        ->required();
    command->add_option("--preset,-p", options->preset, presetHelp())->check(CLI::IsMember(presetNames()));
    options->engineOption =
        command
            ->add_option("--engine,-e", options->engine,
                         "standard: clicks judged by the first difference against each hop's mean; "
                         "prediction: by the prediction error against a moving quantile (slower); "
                         "replaces the preset's")
            ->check(CLI::IsMember({"standard", "prediction"}));
    options->blockOption = command
                               ->add_option("--block,-b", options->block,
                                            "samples per processing block; replaces the preset's")
                               ->check(CLI::Range(minBlock, maxBlock));
    options->sensitivityOption =
        addFiniteOption(command, "--sensitivity", options->sensitivity,
                        "click threshold as a multiple of the detector's level; lower finds more; "
                        "replaces the preset's",
                        0.01f, 1000.0f);
    options->floorOption =
        addFiniteOption(command, "--floor", options->floor,
                        "spectral floor as a bin power (spectra scaled by 1/2048) below which audio is "
                        "treated as residual, where clicks are repaired; replaces the preset's floor, "
                        "which follows the input's level",
                        0.0f, 1.0f);
    options->relativeFloorOption =
        addFiniteOption(command, "--relative-floor", options->relativeFloor,
                        "spectral floor as a multiple of each channel's mean square (what the presets "
                        "give); replaces the preset's",
                        0.0, 1e3);
    options->floorOption->excludes(options->relativeFloorOption);
    command->add_flag("--shared-engine", options->sharedEngine,
                      "one engine for all channels instead of one per channel (the prediction engine "
                      "then never predicts on 2 or more channels)");
    command->add_option("--jobs,-j", options->jobs, "threads, one channel each (default: cores up to the channel count); "
                                                    "the output does not depend on it")
        ->check(CLI::Range(1, maxJobs));
    command
        ->add_option("--report", options->report,
                     "write every repaired span to FILE: .txt label track (start TAB end TAB label, "
                     "seconds), .csv or .json (channel, first and last sample, seconds)");
    command
        ->add_option("--listen", options->listen,
                     "difference: write what was removed (sign inverted); bypass: write the input "
                     "unchanged, bit for bit, whatever its format")
        ->check(CLI::IsMember({"difference", "bypass"}));
    command->add_flag("--quiet,-q", options->quiet, "no progress bar");
    command->callback([options] { declickFile(*options); });
}
