#include "DeclickRun.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <thread>

namespace {

constexpr int minBlock = 64;
constexpr int maxBlock = 65536;
constexpr int maxJobs = 256;
constexpr int chunkTarget = 16384;

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
                      "louder than the music, which the engines let through, and auto also the loud "
                      "clicks they repaired, edges included)");
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
    DeclickSettings settings = findDeclickPreset(options.preset)->settings;
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
    return std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, std::max(channels, 1));
}

bool needsLevel(const DeclickSettings& settings, DeclickListen listen)
{
    return listen != DeclickListen::bypass &&
           std::ranges::any_of(settings.activePasses(), [](const DeclickPass& pass) { return pass.floor.relativeToLevel; });
}

bool refillsClicks(const DeclickSettings& settings, DeclickListen listen)
{
    return (settings.refillClicks || settings.findImpulses) && listen == DeclickListen::repaired;
}

ClickRefill::Settings refillSettingsFor(const DeclickSettings& settings)
{
    ClickRefill::Settings refill;
    refill.refillEngineSpans = settings.refillClicks;
    if (!settings.findImpulses) refill.impulseThreshold = 0.0;
    return refill;
}

int declickChunk(const DeclickSettings& settings)
{
    return std::max(1, chunkTarget / settings.block) * settings.block;
}

std::vector<double> MeanSquareMeter::meanSquares() const
{
    std::vector<double> means = sums_;
    for (double& sum : means) sum /= static_cast<double>(std::max<std::int64_t>(counted_, 1));
    return means;
}

std::vector<RepairedSpan> declickRecording(MultichannelDeclicker& declicker, std::int64_t total, int chunk,
                                           const DeclickSource& source, const DeclickSink& sink,
                                           ClickRefill* refill)
{
    const int latency = declicker.latency();
    std::vector<std::vector<float>> rows(static_cast<std::size_t>(declicker.channels()),
                                         std::vector<float>(static_cast<std::size_t>(chunk)));
    std::vector<float*> pointers;
    for (std::vector<float>& row : rows) pointers.push_back(row.data());
    std::vector<RepairedSpan> spans;
    // The refill hands on what it held back behind a click, and at the end all it
    // holds, in one piece: pass that on a chunk at a time, as the sink takes it.
    const DeclickSink chunkedSink = [&](const float* const* output, int from, int count) {
        for (int done = 0; done < count; done += chunk) sink(output, from + done, std::min(chunk, count - done));
    };
    // Output sample k of the engines is input sample k - latency: drop the first
    // `latency` outputs, and feed silence past the end until all are written.
    std::int64_t consumed = 0;
    std::int64_t produced = 0;
    std::int64_t written = 0;
    while (written < total) {
        const std::int64_t got = consumed < total ? source(pointers.data(), std::min<std::int64_t>(chunk, total - consumed)) : 0;
        if (const auto beyond = firstSampleOutOfRange(pointers.data(), declicker.channels(), got))
            throw SampleOutOfRangeError({beyond->channel, consumed + beyond->frame, beyond->value});
        consumed += got;
        for (std::vector<float>& row : rows) std::fill(row.begin() + got, row.end(), 0.0f);
        if (refill) refill->addInput(pointers.data(), chunk);
        declicker.process(pointers.data(), chunk);
        declicker.forEachLastSpan([&](const RepairedSpan& span) {
            if (span.first >= total) return;
            spans.push_back({span.channel, span.first, std::min(span.last, total - 1)});
            if (refill) refill->addSpan(spans.back());
        });
        const std::int64_t skip = std::clamp<std::int64_t>(latency - produced, 0, chunk);
        const std::int64_t keep = std::min<std::int64_t>(chunk - skip, total - written);
        produced += chunk;
        if (keep > 0) {
            written += keep;
            if (refill) {
                refill->addOutput(pointers.data(), static_cast<int>(skip), static_cast<int>(keep));
                refill->release(chunkedSink, written == total);
            } else {
                sink(pointers.data(), static_cast<int>(skip), static_cast<int>(keep));
            }
        }
    }
    if (refill) spans.insert(spans.end(), refill->refilled().begin(), refill->refilled().end());
    mergeOverlappingSpans(spans);
    return spans;
}
