#include "DeclickRun.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>

#include "signal/SpreadOverThreads.h"

namespace {

constexpr int minBlock = 64;
constexpr int maxBlock = 65536;
constexpr int maxJobs = 256;
constexpr int chunkTarget = 16384;
// Frames each edge of a recording is continued by, at least: the engines' analysis
// and the refill's models reach a few hundred samples.
constexpr int minEdge = 1024;
// Matched-filter peak / the errors' robust level that makes fine crackle, for presets that fill it.
constexpr double fineCrackleThreshold = 8.0;

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

void addEngineOptions(CLI::App* command, DeclickSettingOptions& options)
{
    command->add_option("--preset,-p", options.preset, presetHelp())->check(CLI::IsMember(presetNames()));
    options.engineOption =
        command
            ->add_option("--engine,-e", options.engine,
                         "standard: clicks judged by the first difference against each hop's mean; "
                         "prediction: by the prediction error against a moving quantile (slower); "
                         "replaces the preset's")
            ->check(CLI::IsMember({"standard", "prediction"}));
    options.blockOption = command
                              ->add_option("--block,-b", options.block,
                                           "samples per processing block; replaces the preset's")
                              ->check(CLI::Range(minBlock, maxBlock));
}

void addThresholdOptions(CLI::App* command, DeclickSettingOptions& options)
{
    options.sensitivityOption =
        addFiniteOption(command, "--sensitivity", options.sensitivity,
                        "click threshold as a multiple of the detector's level; lower finds more; "
                        "replaces the preset's",
                        0.01f, 1000.0f);
    options.floorOption =
        addFiniteOption(command, "--floor", options.floor,
                        "spectral floor as a bin power (spectra scaled by 1/2048) below which audio is "
                        "treated as residual, where clicks are repaired; replaces the preset's floor, "
                        "which follows the input's level",
                        0.0f, 1.0f);
    options.relativeFloorOption =
        addFiniteOption(command, "--relative-floor", options.relativeFloor,
                        "spectral floor as a multiple of each channel's mean square (what the presets "
                        "give); replaces the preset's",
                        0.0, 1e3);
    options.floorOption->excludes(options.relativeFloorOption);
}

}  // namespace

void addDeclickSettingOptions(CLI::App* command, DeclickSettingOptions& options)
{
    addEngineOptions(command, options);
    addThresholdOptions(command, options);
    command->add_flag("--shared-engine", options.sharedEngine,
                      "one engine for all channels instead of one per channel (the prediction engine "
                      "then never predicts on 2 or more channels)");
    command->add_flag("--no-refill", options.noRefill,
                      "keep the engines' own repair (presets fill by least-squares AR the clicks far "
                      "louder than the music, which the engines let through, auto also the loud "
                      "clicks they repaired, edges included, and auto and crackle the fine crackle "
                      "they left); auto then runs the two engine passes a plug-in runs");
    command->add_flag("--silent-edges", options.silentEdges,
                      "take the audio past the file's ends as silence, as a stream would (by default each end "
                      "is continued by its reflection, so audio that starts or stops mid-sound keeps its first "
                      "and last samples; --shared-engine implies this)");
    command->add_option("--jobs,-j", options.jobs, "threads, one channel each (default: cores up to the channel count); "
                                                   "the output does not depend on it")
        ->check(CLI::Range(1, maxJobs));
}

void addDeclickListenOption(CLI::App* command, DeclickSettingOptions& options)
{
    command
        ->add_option("--listen", options.listen,
                     "difference: write what was removed (sign inverted); bypass: write the input "
                     "unchanged, bit for bit in every lossless format")
        ->check(CLI::IsMember({"difference", "bypass"}));
}

// A sensitivity and a floor given together make one pass; either alone replaces its
// value in every pass.
DeclickSettings settingsFrom(const DeclickSettingOptions& options)
{
    const DeclickPreset& preset = *findDeclickPreset(options.preset);
    DeclickSettings settings = options.noRefill ? preset.enginesAlone : preset.settings;
    if (options.engineOption->count() > 0)
        settings.engine = options.engine == "prediction" ? DeclickEngineKind::prediction : DeclickEngineKind::standard;
    if (options.blockOption->count() > 0) settings.block = options.block;
    const bool floorGiven = options.floorOption->count() > 0 || options.relativeFloorOption->count() > 0;
    if (floorGiven && options.sensitivityOption->count() > 0) {
        settings.passCount = 1;
        settings.refillClicks = false;
        settings.findImpulses = false;
    }
    if (options.noRefill) settings.refillClicks = settings.findImpulses = false;
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

int jobsFor(const DeclickSettingOptions& options, int channels)
{
    if (options.jobs > 0) return options.jobs;
    return std::min(hardwareThreads(), std::max(channels, 1));
}

bool needsLevel(const DeclickSettings& settings, DeclickListen listen)
{
    return listen != DeclickListen::bypass &&
           std::ranges::any_of(settings.activePasses(), [](const DeclickPass& pass) { return pass.floor.relativeToLevel; });
}

bool continuesEdges(const DeclickSettingOptions& options) { return !options.sharedEngine && !options.silentEdges; }

DeclickStages declickStagesFor(const DeclickSettings& settings, DeclickListen listen, bool continueEdges,
                               int sampleRate, int jobs)
{
    DeclickStages stages;
    stages.sampleRate = sampleRate;
    stages.difference = listen == DeclickListen::difference;
    if ((settings.refillClicks || settings.findImpulses) && listen != DeclickListen::bypass) {
        ClickRefill::Settings refill;
        refill.refillEngineSpans = settings.refillClicks;
        if (!settings.findImpulses) refill.impulseThreshold = 0.0;
        if (settings.fillFineCrackle) refill.fineThreshold = fineCrackleThreshold;
        refill.jobs = jobs;
        stages.refill = refill;
    }
    if (continueEdges) stages.edge = std::max(minEdge, 2 * settings.block);
    return stages;
}

DeclickListen enginesListen(DeclickListen listen, const DeclickStages& stages)
{
    return stages.difference ? DeclickListen::repaired : listen;
}

int declickChunk(const DeclickSettings& settings)
{
    return std::max(1, chunkTarget / settings.block) * settings.block;
}

std::vector<double> MeanSquareMeter::meanSquares() const
{
    const auto frames = static_cast<double>(std::max<std::int64_t>(counted_, 1));
    std::vector<double> means;
    for (const Lanes& sums : sums_) means.push_back(((sums[0] + sums[1]) + (sums[2] + sums[3])) / frames);
    return means;
}

namespace {

// The engines' spans in stream positions, moved to the recording's and cut to it.
std::vector<RepairedSpan> recordingSpans(const std::vector<RepairedSpan>& streamSpans, std::int64_t edge,
                                         std::int64_t total)
{
    std::vector<RepairedSpan> spans;
    for (const RepairedSpan& span : streamSpans) {
        const std::int64_t first = std::max<std::int64_t>(span.first - edge, 0);
        const std::int64_t last = std::min(span.last - edge, total - 1);
        if (first <= last) spans.push_back({span.channel, first, last});
    }
    mergeOverlappingSpans(spans);
    return spans;
}

}  // namespace

std::vector<RepairedSpan> declickRecording(MultichannelDeclicker& declicker, std::int64_t total, int chunk,
                                           const DeclickSource& source, const DeclickSink& sink,
                                           const DeclickStages& stages)
{
    const int channels = declicker.channels();
    const int latency = declicker.latency();
    const std::int64_t edge = stages.edge;
    EdgeContinuedSource input(source, channels, total, stages.edge, chunk);
    const std::int64_t streamTotal = input.streamFrames();
    std::optional<ClickRefill> refill;
    if (stages.refill) refill.emplace(channels, stages.sampleRate, streamTotal, *stages.refill);
    std::vector<std::vector<float>> rows(static_cast<std::size_t>(channels),
                                         std::vector<float>(static_cast<std::size_t>(chunk)));
    std::vector<float*> pointers;
    for (std::vector<float>& row : rows) pointers.push_back(row.data());
    std::vector<RepairedSpan> spans;
    // For the difference: the input from stream position dryBase on, until the output
    // lined up with it has gone out.
    std::vector<std::vector<float>> dry(stages.difference ? static_cast<std::size_t>(channels) : 0);
    std::int64_t dryBase = 0;
    std::vector<std::vector<float>> removed(dry.size(), std::vector<float>(static_cast<std::size_t>(chunk)));
    std::vector<const float*> removedRows;
    for (const std::vector<float>& row : removed) removedRows.push_back(row.data());
    const auto differenceSink = [&](const float* const* output, int from, std::int64_t position, int count) {
        for (std::size_t c = 0; c < dry.size(); ++c) {
            const float* in = dry[c].data() + (position - dryBase);
            for (int i = 0; i < count; ++i) removed[c][static_cast<std::size_t>(i)] = output[c][from + i] - in[i];
            dry[c].erase(dry[c].begin(), dry[c].begin() + (position + count - dryBase));
        }
        dryBase = position + count;
        sink(removedRows.data(), 0, count);
    };
    // Only the recording's own frames go on: what the engines give for the
    // continuations of its edges is dropped.
    std::int64_t handed = 0;
    const DeclickSink recordingSink = [&](const float* const* output, int from, int count) {
        const std::int64_t first = std::max(handed, edge);
        const std::int64_t end = std::min(handed + count, edge + total);
        const int start = from + static_cast<int>(first - handed);
        if (first < end && stages.difference) differenceSink(output, start, first, static_cast<int>(end - first));
        else if (first < end) sink(output, start, static_cast<int>(end - first));
        handed += count;
    };
    // The refill hands on what it held back behind a click, and at the end all it
    // holds, in one piece: pass that on a chunk at a time, as the sink takes it.
    const DeclickSink chunkedSink = [&](const float* const* output, int from, int count) {
        for (int done = 0; done < count; done += chunk)
            recordingSink(output, from + done, std::min(chunk, count - done));
    };
    // Output sample k of the engines is input sample k - latency: drop the first
    // `latency` outputs, and feed silence past the end until all are written.
    std::int64_t produced = 0;
    std::int64_t written = 0;
    while (written < streamTotal) {
        input.read(pointers.data(), chunk);
        if (refill) refill->addInput(pointers.data(), chunk);
        for (std::size_t c = 0; c < dry.size(); ++c) dry[c].insert(dry[c].end(), rows[c].begin(), rows[c].end());
        declicker.process(pointers.data(), chunk);
        declicker.forEachLastSpan([&](const RepairedSpan& span) {
            if (span.first >= streamTotal) return;
            spans.push_back({span.channel, span.first, std::min(span.last, streamTotal - 1)});
            if (refill) refill->addSpan(spans.back());
        });
        const std::int64_t skip = std::clamp<std::int64_t>(latency - produced, 0, chunk);
        const std::int64_t keep = std::min<std::int64_t>(chunk - skip, streamTotal - written);
        produced += chunk;
        if (keep > 0) {
            written += keep;
            if (refill) {
                refill->addOutput(pointers.data(), static_cast<int>(skip), static_cast<int>(keep));
                refill->release(chunkedSink, written == streamTotal);
            } else {
                recordingSink(pointers.data(), static_cast<int>(skip), static_cast<int>(keep));
            }
        }
    }
    if (refill) spans.insert(spans.end(), refill->refilled().begin(), refill->refilled().end());
    return recordingSpans(spans, edge, total);
}
