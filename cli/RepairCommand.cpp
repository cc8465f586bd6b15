// `ferrotip repair IN OUT --start T --length T --method M`: one repair, written to
// a new file in the input's format or the one OUT's extension names. The file is streamed front to back, twice
// (once for the window, once to copy), so inputs that cannot seek work too: only
// the method's window is held in memory, and untouched samples are copied bit for bit.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "Commands.h"
#include "RegionRepair.h"
#include "RepairWindow.h"
#include "SampleCount.h"

namespace {

struct RepairOptions {
    std::string input, output, start, length, method = "auto", regions;
};

// About two megabytes of doubles per block, whatever the channel count.
constexpr std::int64_t copyBlockSamples = 262144;

// Reads the input front to back in blocks, handing each to `visit(block, firstFrame,
// frames)`, until `visit` returns false or the file ends. Returns the frames read.
template <typename Visit>
std::int64_t readBlocks(AudioReader& reader, Visit&& visit)
{
    const std::int64_t blockFrames = std::max<std::int64_t>(copyBlockSamples / reader.channels(), 1);
    std::vector<double> block(blockFrames * reader.channels());
    std::int64_t position = 0;
    for (;;) {
        const std::int64_t got = reader.read(block.data(), blockFrames);
        if (got == 0) return position;
        const bool more = visit(block.data(), position, got);
        position += got;
        if (!more) return position;
    }
}

// The window's samples as the module's floats, zero beyond the file's ends. Reads
// until the window and the first `needed` frames are in, or to the file's end;
// framesSeen tells how far it got.
std::vector<std::vector<float>> readWindow(AudioReader& reader, const RepairWindow& window,
                                           std::int64_t needed, std::int64_t& framesSeen)
{
    const int channels = reader.channels();
    const double scale = 1.0 / reader.fullScale();
    const std::int64_t windowEnd = window.first + window.length;
    std::vector<std::vector<float>> data(channels, std::vector<float>(window.length, 0.0f));
    framesSeen = readBlocks(reader, [&](const double* block, std::int64_t first, std::int64_t frames) {
        const std::int64_t from = std::max(first, window.first);
        const std::int64_t to = std::min(first + frames, windowEnd);
        for (std::int64_t f = from; f < to; ++f)
            for (int c = 0; c < channels; ++c)
                data[c][f - window.first] = static_cast<float>(block[(f - first) * channels + c] * scale);
        const std::int64_t end = first + frames;
        return end < windowEnd || end < needed;
    });
    return data;
}

// Copies the whole input to the writer, putting in the samples the repair changed.
void writeRepaired(AudioReader& reader, AudioWriter& writer, const RepairWindow& window,
                   const std::vector<std::vector<float>>& repaired, std::int64_t framesBefore)
{
    const int channels = reader.channels();
    const double scale = reader.fullScale();
    reader.rewind();
    const std::int64_t copied = readBlocks(reader, [&](double* block, std::int64_t first, std::int64_t frames) {
        const std::int64_t from = std::max(first, window.first);
        const std::int64_t to = std::min(first + frames, window.first + window.length);
        for (std::int64_t f = from; f < to; ++f) {
            for (int c = 0; c < channels; ++c) {
                double& sample = block[(f - first) * channels + c];
                const float value = repaired[c][f - window.first];
                if (value != static_cast<float>(sample / scale)) sample = value * scale;
            }
        }
        writer.write(block, frames);
        return true;
    });
    const std::int64_t expected = reader.lengthKnown() ? reader.frames() : framesBefore;
    if (copied < std::max(expected, framesBefore))
        throw CliError("the input '" + reader.path() + "' ended early, after " + std::to_string(copied) + " of " +
                       std::to_string(std::max(expected, framesBefore)) + " frames");
}

void repairFile(const RepairOptions& options)
{
    AudioReader reader(options.input);
    requireOutputFor(reader, options.output);
    const int rate = reader.sampleRate();
    const MethodInfo method = findMethod(options.method);
    const std::int64_t start = parseSampleCount(options.start, rate, "--start");
    const std::int64_t length = parseRegionLength(options.length, rate, "--length");
    const RepairWindow window = planRepair(method, rate, start, length);

    std::int64_t frames = 0;
    auto channels = readWindow(reader, window, start + length, frames);
    requireRegionInside(start, length, frames, "'" + options.input + "'");
    const RepairOutcome outcome = runRepair(channels, rate, window, static_cast<int>(length), method);
    AudioWriter writer(options.output, reader);
    noteLossyRewrite(reader, writer, options.input, options.output);
    writeRepaired(reader, writer, window, channels, frames);
    writer.commit();

    std::printf("repaired %lld samples at frame %lld with \"%s\"\n", static_cast<long long>(length),
                static_cast<long long>(start), method.name.c_str());
    if (outcome.leftFade > 0)
        std::printf("crossfade: %d samples before and %d after the region\n", outcome.leftFade,
                    outcome.rightFade);
    warnAboutNonFinite(reader, options.input);
    warnAboutConversionClipping(writer, options.output);
}

}  // namespace

void addRepairCommand(CLI::App& app)
{
    auto options = std::make_shared<RepairOptions>();
    CLI::App* command = app.add_subcommand("repair", "Repair a damaged region of an audio file");
    command->add_option("IN", options->input, "input audio file (any format libsndfile reads; - reads standard input)")
        ->required();
    command->add_option("OUT", options->output, "output file; its extension picks the format (.wav .flac .ogg .mp3 .aiff ...), else the input's")
        ->required();
    command->add_option("--start,-s", options->start,
                        "first damaged sample: samples (4410), seconds (1.25s) or ms (3ms)");
    command->add_option("--length,-l", options->length, "damaged length, in the same units");
    command->add_option("--regions", options->regions,
                        "many regions from a list (.txt label track, .csv or .json)");
    command->add_option("--method,-m", options->method,
                        "auto (default: chosen by length), inpaint (dropouts up to 250 ms), or a "
                        "method number or name (see `ferrotip methods`)");
    command->callback([options] {
        requireKnownMethod(options->method);
        if (!options->regions.empty() || isRegionMethod(options->method))
            repairRegions({options->input, options->output, options->method, options->start,
                           options->length, options->regions});
        else if (options->start.empty() || options->length.empty())
            throw CliError("give --start and --length, or --regions FILE");
        else
            repairFile(*options);
    });
}
