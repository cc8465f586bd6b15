// `ferrotip declick IN OUT`: streams a whole file through the crackle engines (one per
// channel unless --shared-engine, run in parallel) and writes the result in the
// input's format or the one OUT's extension names. The engines' latency is taken off
// the front and made up with silence at the end, so OUT lines up with IN sample for
// sample and has the same length. A floor relative to the level takes a first pass over the file for each
// channel's mean square. Memory is a few chunks, whatever the file's length.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "Commands.h"
#include "Progress.h"
#include "DeclickRun.h"
#include "SpanList.h"

namespace {

// Frames per file read.
constexpr int chunkTarget = 16384;

struct DeclickOptions : DeclickSettingOptions {
    std::string input, output;
    std::string report;
    bool quiet = false;
};

// The next frames of the file: doubles in the file's own scale, or floats at full
// scale 1 where those are exact.
std::int64_t readFrames(AudioReader& reader, double* interleaved, std::int64_t count)
{
    return reader.read(interleaved, count);
}

std::int64_t readFrames(AudioReader& reader, float* interleaved, std::int64_t count)
{
    return reader.readNormalised(interleaved, count);
}

void writeFrames(AudioWriter& writer, const double* interleaved, std::int64_t count) { writer.write(interleaved, count); }

void writeFrames(AudioWriter& writer, const float* interleaved, std::int64_t count)
{
    writer.writeFloats(interleaved, count);
}

// What multiplies a sample read as Sample to bring it to full scale 1.
template <typename Sample>
double toUnitScale(const AudioReader& reader)
{
    return std::is_same_v<Sample, float> ? 1.0 : 1.0 / reader.fullScale();
}

// Each channel's mean square at full scale 1, from a pass over the whole file.
template <typename Sample>
std::vector<double> channelMeanSquares(const std::string& path)
{
    AudioReader reader(path);
    const int channels = reader.channels();
    const double scale = toUnitScale<Sample>(reader);
    MeanSquareMeter meter(channels);
    std::vector<Sample> frames(static_cast<std::size_t>(chunkTarget) * channels);
    std::int64_t counted = 0;
    while (counted < reader.frames()) {
        const std::int64_t got = readFrames(reader, frames.data(), chunkTarget);
        if (got == 0) throw CliError("the input '" + path + "' ended early");
        meter.addFrames(frames.data(), got, scale);
        counted += got;
    }
    return meter.meanSquares();
}

std::vector<double> channelMeanSquares(const std::string& path, bool floatsExact)
{
    return floatsExact ? channelMeanSquares<float>(path) : channelMeanSquares<double>(path);
}

// Moves chunks between the file's interleaved frames (In as read, Out as written)
// and the engines' channel rows (full scale 1). Floats at full scale 1 pass as they
// are; doubles carry the file's own scale.
template <typename In, typename Out>
class FrameConverter {
public:
    FrameConverter(int channels, int frames, const AudioReader& reader)
        : channels_(channels),
          toUnit_(toUnitScale<In>(reader)),
          fromUnit_(std::is_same_v<Out, float> ? 1.0 : reader.fullScale()),
          in_(static_cast<std::size_t>(frames) * channels),
          out_(static_cast<std::size_t>(frames) * channels)
    {
    }

    // Fills rows[c][0, frames) from the first `frames` interleaved frames.
    void load(float* const* rows, std::int64_t frames) const
    {
        for (int c = 0; c < channels_; ++c)
            for (std::int64_t i = 0; i < frames; ++i) rows[c][i] = unit(in_[i * channels_ + c]);
    }

    // Interleaves rows[c][from .. from + count) back into the file's scale.
    const Out* store(const float* const* rows, int from, int count)
    {
        for (int c = 0; c < channels_; ++c) {
            const float* row = rows[c] + from;
            for (int i = 0; i < count; ++i) out_[static_cast<std::size_t>(i) * channels_ + c] = scaled(row[i]);
        }
        return out_.data();
    }

    In* frames() { return in_.data(); }

private:
    float unit(In sample) const
    {
        if constexpr (std::is_same_v<In, float>) return sample;
        else return static_cast<float>(sample * toUnit_);
    }

    Out scaled(float sample) const
    {
        if constexpr (std::is_same_v<Out, float>) return sample;
        else return static_cast<double>(sample) * fromUnit_;
    }

    int channels_;
    double toUnit_;
    double fromUnit_;
    std::vector<In> in_;
    std::vector<Out> out_;
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

// Nothing is written: the engines' float squares would overflow into NaN.
std::string outOfRangeMessage(const SampleOutOfRange& sample, const std::string& input, int sampleRate)
{
    char text[256];
    std::snprintf(text, sizeof text,
                  "the input '%s' holds a sample of %g in channel %d at frame %lld (%.6f s), beyond the largest "
                  "magnitude declick takes (%g, full scale being 1): scale the audio down first",
                  input.c_str(), static_cast<double>(sample.value), sample.channel + 1,
                  static_cast<long long>(sample.frame), static_cast<double>(sample.frame) / sampleRate,
                  static_cast<double>(largestDeclickSample));
    return text;
}

template <typename In, typename Out>
DeclickTally declickStream(AudioReader& reader, AudioWriter& writer, MultichannelDeclicker& declicker,
                           int chunk, Progress& progress, const std::string& input, const DeclickStages& stages)
{
    FrameConverter<In, Out> converter(reader.channels(), chunk, reader);
    std::int64_t written = 0;
    const auto source = [&](float* const* rows, std::int64_t frames) {
        const std::int64_t got = readFrames(reader, converter.frames(), frames);
        if (got == 0) throw CliError("the input '" + input + "' ended early");
        converter.load(rows, got);
        return got;
    };
    const auto sink = [&](const float* const* rows, int from, int count) {
        writeFrames(writer, converter.store(rows, from, count), count);
        written += count;
        progress.update(written);
    };
    DeclickTally tally;
    try {
        tally.spans = declickRecording(declicker, reader.frames(), chunk, source, sink, stages);
    } catch (const SampleOutOfRangeError& error) {
        throw CliError(outOfRangeMessage(error.sample(), input, reader.sampleRate()));
    }
    for (const RepairedSpan& span : tally.spans) tally.samplesChanged += span.length();
    return tally;
}

// Floats where they carry the file's samples exactly, else doubles in its scale.
DeclickTally declickStream(AudioReader& reader, AudioWriter& writer, MultichannelDeclicker& declicker, int chunk,
                           Progress& progress, const std::string& input, const DeclickStages& stages)
{
    const bool floatsIn = reader.normalisedFloatsExact();
    const bool floatsOut = writer.storesFloats();
    if (floatsIn && floatsOut)
        return declickStream<float, float>(reader, writer, declicker, chunk, progress, input, stages);
    if (floatsIn) return declickStream<float, double>(reader, writer, declicker, chunk, progress, input, stages);
    if (floatsOut) return declickStream<double, float>(reader, writer, declicker, chunk, progress, input, stages);
    return declickStream<double, double>(reader, writer, declicker, chunk, progress, input, stages);
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
    if (settings.refillClicks) text += ", clicks refilled by least-squares AR";
    if (settings.findImpulses) text += ", impulses filled by least-squares AR";
    if (settings.findImpulses && settings.fillFineCrackle) text += ", fine crackle filled by least-squares AR";
    return text + ")";
}

void declickFile(const DeclickOptions& options)
{
    if (!options.report.empty()) requireReportPath(options.report, {options.input, options.output});
    AudioReader reader(options.input);
    requireOutputFor(reader, options.output);
    const int channels = reader.channels();
    const std::int64_t total = reader.frames();
    const auto started = std::chrono::steady_clock::now();

    const DeclickSettings settings = settingsFrom(options);
    const DeclickListen listen = listenFrom(options.listen);
    const std::vector<double> meanSquares =
        needsLevel(settings, listen) ? channelMeanSquares(options.input, reader.normalisedFloatsExact())
                                    : std::vector<double>(channels, 0.0);
    const int chunk = declickChunk(settings);
    const int jobs = jobsFor(options, channels);

    AudioWriter writer(options.output, reader);
    noteLossyRewrite(reader, writer, options.input, options.output);
    Progress progress(total, isatty(STDERR_FILENO) != 0 && !options.quiet);
    DeclickTally tally;
    const int engines = options.sharedEngine ? 1 : channels;
    if (listen == DeclickListen::bypass) {
        reader.keepNonFinite();
        copyFile(reader, writer, progress, options.input);
    } else {
        const DeclickStages stages =
            declickStagesFor(settings, listen, continuesEdges(options), reader.sampleRate(), jobs);
        MultichannelDeclicker declicker(settings, meanSquares, options.sharedEngine, enginesListen(listen, stages),
                                        chunk, jobs);
        tally = declickStream(reader, writer, declicker, chunk, progress, options.input, stages);
    }
    progress.finish();
    // The report first: if it cannot be written, the audio is not left behind either.
    if (!options.report.empty()) writeReport(options.report, tally.spans, reader.sampleRate());
    writer.commit();

    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const double duration = static_cast<double>(total) / reader.sampleRate();
    const double samples = static_cast<double>(std::max<std::int64_t>(total * channels, 1));
    if (listen == DeclickListen::bypass)
        std::printf("copied %.2f s of %d-channel audio unchanged (--listen bypass) in %.2f s\n", duration, channels,
                    seconds);
    else
        std::printf("declicked %.2f s of %d-channel audio with %s in %.2f s (%.1fx real time): "
                    "%zu spans repaired, %.3f%% of samples changed\n",
                    duration, channels, describe(options, settings, engines).c_str(), seconds,
                    seconds > 0.0 ? duration / seconds : 0.0, tally.spans.size(),
                    100.0 * static_cast<double>(tally.samplesChanged) / samples);
    warnAboutNonFinite(reader, options.input);
    warnAboutConversionClipping(writer, options.output);
}

}  // namespace

void addDeclickCommand(CLI::App& app)
{
    auto options = std::make_shared<DeclickOptions>();
    CLI::App* command = app.add_subcommand(
        "declick", "Remove clicks and crackle from a whole audio file (output aligned with the input)");
    command->add_option("IN", options->input, "input audio file (any format libsndfile reads; - reads standard input)")
        ->required();
    command->add_option("OUT", options->output, "output file; its extension picks the format (.wav .flac .ogg .mp3 .aiff ...), else the input's")
        ->required();
    addDeclickSettingOptions(command, *options);
    command
        ->add_option("--report", options->report,
                     "write every repaired span to FILE: .txt label track (start TAB end TAB label, "
                     "seconds), .csv or .json (channel, first and last sample, seconds)");
    addDeclickListenOption(command, *options);
    command->add_flag("--quiet,-q", options->quiet, "no progress bar");
    command->callback([options] { declickFile(*options); });
}
