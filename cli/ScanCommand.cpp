// `ferrotip scan IN [--report FILE]`: lists the digital dropouts of a file (runs of
// exact zeros or of one held value, 0.5 to 250 ms long, with sound on both sides),
// per channel or for all channels, and writes them as a region list that
// `ferrotip repair IN OUT --regions FILE` takes back. On the same pass it looks for
// clipping and names the channels `ferrotip declip` would restore. The file is
// streamed.
#include <algorithm>
#include <cstdio>
#include <memory>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "Commands.h"
#include "DeclipRun.h"
#include "ScanCriteria.h"
#include "SpanList.h"

namespace {

struct ScanOptions {
    std::string input, report;
};

constexpr std::int64_t blockFrames = 65536;

// The channels that hold clipping, which scan does not list as dropouts.
void printClipping(const std::vector<ClipLevelFinder>& finders)
{
    bool any = false;
    for (std::size_t c = 0; c < finders.size(); ++c) {
        const ClipLevels levels = finders[c].levels();
        if (!levels.any()) continue;
        std::printf("clipping in channel %zu: positive peaks %s, negative peaks %s\n", c + 1,
                    describeLevel(levels.positive).c_str(), describeLevel(levels.negative).c_str());
        any = true;
    }
    if (any) std::printf("ferrotip declip restores clipped peaks\n");
}

void scanFile(const ScanOptions& options)
{
    if (!options.report.empty()) requireReportPath(options.report, {options.input});
    AudioReader reader(options.input);
    const int rate = reader.sampleRate();
    DropoutScanner scanner(reader.channels(), dropoutCriteria(rate, reader.fullScale()));
    std::vector<ClipLevelFinder> clipping(reader.channels());
    std::vector<double> block(blockFrames * reader.channels());
    std::vector<float> row(blockFrames);
    for (std::int64_t position = 0; position < reader.frames();) {
        const std::int64_t got = reader.read(block.data(), blockFrames);
        if (got == 0) throw CliError("'" + options.input + "' ended early");
        scanner.push(block.data(), got);
        addToFinders(clipping, block.data(), got, reader.fullScale(), row);
        position += got;
    }
    std::vector<SampleSpan> spans;
    for (const Dropout& d : scanner.finish()) {
        spans.push_back({d.channel == Dropout::allChannels ? SampleSpan::allChannels : d.channel, d.first, d.last,
                         "dropout"});
        std::printf("dropout at frame %lld, %lld samples (%.2f ms), %s\n", static_cast<long long>(d.first),
                    static_cast<long long>(d.last - d.first + 1), 1000.0 * (d.last - d.first + 1) / rate,
                    d.channel == Dropout::allChannels ? "all channels"
                                                      : ("channel " + std::to_string(d.channel + 1)).c_str());
    }
    std::printf("%zu dropout%s found\n", spans.size(), spans.size() == 1 ? "" : "s");
    printClipping(clipping);
    if (!options.report.empty()) writeSpanReport(options.report, spans, rate);
    const bool channelsLost =
        !options.report.empty() && spanFormatFor(options.report) == SpanFormat::labels &&
        std::any_of(spans.begin(), spans.end(), [](const SampleSpan& s) { return s.channel != SampleSpan::allChannels; });
    if (channelsLost)
        std::fprintf(stderr, "note: a label track holds no channel, so repair --regions '%s' repairs every channel "
                             "there; a .csv or .json report keeps the channels\n", options.report.c_str());
    warnAboutNonFinite(reader, options.input);
}

}  // namespace

void addScanCommand(CLI::App& app)
{
    auto options = std::make_shared<ScanOptions>();
    CLI::App* command = app.add_subcommand("scan", "Find digital dropouts (runs of zeros or of one held value)");
    command->add_option("IN", options->input, "input audio file (- reads standard input)")->required();
    command->add_option("--report", options->report,
                        "write the dropouts as a region list (.txt label track, .csv or .json) for repair --regions");
    command->callback([options] { scanFile(*options); });
}
