// `ferrotip repair IN OUT --start T --length T --method M`: one repair, written to
// a new file with the input's format. The file is streamed: only the method's
// window is held in memory, and untouched samples are copied bit for bit.
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

constexpr std::int64_t copyBlockFrames = 65536;

// The window's samples as the module's floats, zero beyond the file's ends.
std::vector<std::vector<float>> readWindow(AudioReader& reader, const RepairWindow& window)
{
    const int channels = reader.channels();
    std::vector<std::vector<float>> data(channels, std::vector<float>(window.length, 0.0f));
    const std::int64_t first = std::max<std::int64_t>(window.first, 0);
    const std::int64_t end = std::min(window.first + window.length, reader.frames());
    if (end <= first) return data;
    std::vector<double> frames((end - first) * channels);
    reader.seek(first);
    const std::int64_t got = reader.read(frames.data(), end - first);
    const double scale = 1.0 / reader.fullScale();
    for (std::int64_t f = 0; f < got; ++f)
        for (int c = 0; c < channels; ++c)
            data[c][first - window.first + f] = static_cast<float>(frames[f * channels + c] * scale);
    return data;
}

// Copies the whole input to the writer, putting in the samples the repair changed.
void writeRepaired(AudioReader& reader, AudioWriter& writer, const RepairWindow& window,
                   const std::vector<std::vector<float>>& repaired)
{
    const int channels = reader.channels();
    const double scale = reader.fullScale();
    std::vector<double> block(copyBlockFrames * channels);
    reader.seek(0);
    for (std::int64_t position = 0; position < reader.frames();) {
        const std::int64_t got = reader.read(block.data(), copyBlockFrames);
        if (got == 0) throw CliError("the input ended early");
        for (std::int64_t f = 0; f < got; ++f) {
            const std::int64_t inWindow = position + f - window.first;
            if (inWindow < 0 || inWindow >= window.length) continue;
            for (int c = 0; c < channels; ++c) {
                double& sample = block[f * channels + c];
                const float value = repaired[c][inWindow];
                if (value != static_cast<float>(sample / scale)) sample = value * scale;
            }
        }
        writer.write(block.data(), got);
        position += got;
    }
}

void repairFile(const RepairOptions& options)
{
    AudioReader reader(options.input);
    requireDistinctFiles(options.input, options.output);
    const int rate = reader.sampleRate();
    const MethodInfo method = findMethod(options.method);
    const std::int64_t start = parseSampleCount(options.start, rate, "--start");
    const std::int64_t length = parseSampleCount(options.length, rate, "--length");
    if (start + length > reader.frames())
        throw CliError("region " + std::to_string(start) + ".." + std::to_string(start + length) +
                       " lies outside '" + options.input + "', which has " +
                       std::to_string(reader.frames()) + " frames");
    const RepairWindow window = planRepair(method, rate, start, length);

    auto channels = readWindow(reader, window);
    const RepairOutcome outcome = runRepair(channels, rate, window, static_cast<int>(length), method);
    AudioWriter writer(options.output, reader.info());
    writeRepaired(reader, writer, window, channels);
    writer.commit();

    std::printf("repaired %lld samples at frame %lld with \"%s\"\n", static_cast<long long>(length),
                static_cast<long long>(start), method.name.c_str());
    if (outcome.leftFade > 0)
        std::printf("crossfade: %d samples before and %d after the region\n", outcome.leftFade,
                    outcome.rightFade);
}

}  // namespace

void addRepairCommand(CLI::App& app)
{
    auto options = std::make_shared<RepairOptions>();
    CLI::App* command = app.add_subcommand("repair", "Repair a damaged region of an audio file");
    command->add_option("IN", options->input, "input audio file (any format libsndfile reads)")
        ->required();
    command->add_option("OUT", options->output, "output file, written with the input's format")
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
