// `ferrotip declip IN OUT`: finds the clipped runs of every channel and restores
// them. The file streams through in chunks with one declipper frame of context on
// each side, so memory stays flat whatever its length and the output does not
// depend on the chunk size. Passes: one to find the clip levels (unless --level
// gives them), one to restore; with --gain auto the restored samples wait in an
// unnamed temporary file until the restored peak is known, and a third pass scales
// them into the output. Unclipped samples travel in the file's own scale, so with
// no gain they come out bit for bit.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "Commands.h"
#include "Progress.h"
#include "SpanList.h"
#include "declip/ClipLevelFinder.h"
#include "declip/Declipper.h"

namespace {

struct DeclipOptions {
    std::string input, output;
    std::string level = "auto";
    std::string gain;  // empty: auto for integer formats, 0dB for float ones
    std::string report;
    bool quiet = false;
};

constexpr std::int64_t chunkFrames = 65536;
constexpr double minLevelDb = -60.0, maxLevelDb = 24.0;
constexpr double minLevel = 0.001, maxLevel = 16.0;
constexpr double minGainDb = -60.0, maxGainDb = 0.0;

double fromDb(double db) { return std::pow(10.0, db / 20.0); }
double toDb(double value) { return 20.0 * std::log10(value); }

bool endsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A number that fills `text` exactly, or nothing.
std::optional<double> parseNumber(const std::string& text)
{
    try {
        std::size_t used = 0;
        const double value = std::stod(text, &used);
        if (used == text.size() && std::isfinite(value)) return value;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

// --level: nothing for auto, else the level as a fraction of full scale.
std::optional<double> parseLevel(const std::string& text)
{
    if (text == "auto") return std::nullopt;
    const std::string range = "--level must be auto, a level in dBFS from " + std::to_string(int(minLevelDb)) +
                              " to +" + std::to_string(int(maxLevelDb)) + " (-0.5dBFS) or a fraction of full scale from " +
                              "0.001 to 16 (0.9), not '" + text + "'";
    if (endsWith(text, "dBFS")) {
        const auto db = parseNumber(text.substr(0, text.size() - 4));
        if (!db || *db < minLevelDb || *db > maxLevelDb) throw CliError(range);
        return fromDb(*db);
    }
    const auto value = parseNumber(text);
    if (!value || *value < minLevel || *value > maxLevel) throw CliError(range);
    return *value;
}

// --gain: nothing for auto, else the linear gain.
std::optional<double> parseGain(const std::string& text)
{
    if (text == "auto") return std::nullopt;
    const auto db = endsWith(text, "dB") ? parseNumber(text.substr(0, text.size() - 2)) : std::nullopt;
    if (!db || *db < minGainDb || *db > maxGainDb)
        throw CliError("--gain must be auto or a gain in dB from -60 to 0 (0dB, -3dB), not '" + text + "'");
    return fromDb(*db);
}

bool isFloatFormat(const SF_INFO& info)
{
    const int subtype = info.format & SF_FORMAT_SUBMASK;
    return subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE;
}

// What the restoration found, for the summary and the report.
struct ClipSummary {
    std::int64_t runs = 0, samples = 0, instants = 0;
    double positivePeak = 0.0, negativePeak = 0.0;  // before any gain, full scale 1
    double peak() const { return std::max(positivePeak, negativePeak); }
    std::vector<SampleSpan> spans;
};

// Tracks the clipped runs of each channel across chunk boundaries.
class RunTracker {
public:
    RunTracker(int channels, bool keepSpans) : open_(channels), keepSpans_(keepSpans) {}

    void sample(int channel, std::int64_t position, int sign, ClipSummary& summary)
    {
        Open& run = open_[channel];
        if (run.sign != 0 && (sign != run.sign || position != run.last + 1)) close(channel, summary);
        if (sign == 0) return;
        ++summary.samples;
        if (run.sign == 0) run = {sign, position, position}, ++summary.runs;
        run.last = position;
    }
    void closeAll(ClipSummary& summary)
    {
        for (int c = 0; c < static_cast<int>(open_.size()); ++c) close(c, summary);
    }

private:
    struct Open {
        int sign = 0;
        std::int64_t first = 0, last = 0;
    };
    void close(int channel, ClipSummary& summary)
    {
        Open& run = open_[channel];
        if (run.sign != 0 && keepSpans_)
            summary.spans.push_back({channel, run.first, run.last, run.sign > 0 ? "clipped +" : "clipped -"});
        run.sign = 0;
    }
    std::vector<Open> open_;
    bool keepSpans_;
};

std::vector<ClipLevels> findLevels(AudioReader& reader, Progress& progress)
{
    const int channels = reader.channels();
    std::vector<ClipLevelFinder> finders(channels);
    std::vector<double> frames(static_cast<std::size_t>(chunkFrames) * channels);
    std::vector<float> row(chunkFrames);
    std::int64_t done = 0;
    while (done < reader.frames()) {
        const std::int64_t got = reader.read(frames.data(), std::min(chunkFrames, reader.frames() - done));
        if (got == 0) break;
        for (int c = 0; c < channels; ++c) {
            for (std::int64_t i = 0; i < got; ++i)
                row[i] = static_cast<float>(frames[i * channels + c] / reader.fullScale());
            finders[c].add(row.data(), got);
        }
        done += got;
        progress.update(done);
    }
    reader.seek(0);
    std::vector<ClipLevels> levels;
    for (const auto& finder : finders) levels.push_back(finder.levels());
    return levels;
}

using FrameSink = std::function<void(const double* interleaved, std::int64_t frames)>;

// Streams the file through the declipper and hands the output, in the file's scale
// and before any gain, to `sink` chunk by chunk.
class RestorePass {
public:
    RestorePass(AudioReader& reader, const std::string& path, const std::vector<ClipLevels>& levels)
        : reader_(reader),
          path_(path),
          levels_(levels),
          declipper_(FrameDeclipper::Settings::forSampleRate(reader.sampleRate())),
          channels_(reader.channels()),
          context_(declipper_.context()),
          capacity_(chunkFrames + 2 * context_),
          raw_(static_cast<std::size_t>(capacity_) * channels_),
          rows_(channels_, std::vector<float>(capacity_)),
          restored_(channels_, std::vector<float>(chunkFrames)),
          output_(static_cast<std::size_t>(chunkFrames) * channels_)
    {
    }

    void run(const FrameSink& sink, ClipSummary& summary, RunTracker& runs, Progress& progress,
             std::int64_t progressBase)
    {
        // The window holds absolute samples [origin_, origin_ + held_); before the
        // file's start it holds reliable zeros.
        origin_ = -context_;
        held_ = context_;
        const std::int64_t total = reader_.frames();
        for (std::int64_t from = 0; from < total; from += chunkFrames) {
            const std::int64_t to = std::min(total, from + chunkFrames);
            fill(std::min(total, to + context_));
            for (int c = 0; c < channels_; ++c)
                declipper_.restore(rows_[c].data(), held_, origin_, levels_[c], from - origin_, to - origin_,
                                   restored_[c].data());
            interleave(from, to, summary, runs);
            sink(output_.data(), to - from);
            drop(to - context_);
            progress.update(progressBase + to);
        }
        runs.closeAll(summary);
    }

private:
    // Reads until the window reaches absolute sample `end`.
    void fill(std::int64_t end)
    {
        const std::int64_t wanted = end - (origin_ + held_);
        if (wanted <= 0) return;
        const std::int64_t got = reader_.read(raw_.data() + held_ * channels_, wanted);
        if (got != wanted) throw CliError("the input '" + path_ + "' ended early");
        for (int c = 0; c < channels_; ++c)
            for (std::int64_t i = 0; i < got; ++i)
                rows_[c][held_ + i] = static_cast<float>(raw_[(held_ + i) * channels_ + c] / reader_.fullScale());
        held_ += got;
    }

    // Keeps absolute samples from `keepFrom` on.
    void drop(std::int64_t keepFrom)
    {
        const std::int64_t count = std::clamp<std::int64_t>(keepFrom - origin_, 0, held_);
        std::copy(raw_.begin() + count * channels_, raw_.begin() + held_ * channels_, raw_.begin());
        for (auto& row : rows_) std::copy(row.begin() + count, row.begin() + held_, row.begin());
        origin_ += count;
        held_ -= count;
    }

    void interleave(std::int64_t from, std::int64_t to, ClipSummary& summary, RunTracker& runs)
    {
        for (std::int64_t at = from; at < to; ++at) {
            const std::int64_t local = at - origin_;
            bool anyClipped = false;
            for (int c = 0; c < channels_; ++c) {
                const int sign = levels_[c].sign(rows_[c][local]);
                const double value = sign == 0 ? raw_[local * channels_ + c]
                                               : static_cast<double>(restored_[c][at - from]) * reader_.fullScale();
                output_[(at - from) * channels_ + c] = value;
                double& peak = value > 0.0 ? summary.positivePeak : summary.negativePeak;
                peak = std::max(peak, std::fabs(value) / reader_.fullScale());
                runs.sample(c, at, sign, summary);
                anyClipped = anyClipped || sign != 0;
            }
            summary.instants += anyClipped ? 1 : 0;
        }
    }

    AudioReader& reader_;
    std::string path_;
    const std::vector<ClipLevels>& levels_;
    Declipper declipper_;
    int channels_;
    std::int64_t context_, capacity_;
    std::vector<double> raw_;               // interleaved, file scale
    std::vector<std::vector<float>> rows_;  // per channel, full scale 1
    std::vector<std::vector<float>> restored_;
    std::vector<double> output_;
    std::int64_t origin_ = 0, held_ = 0;
};

// Writes frames scaled by `gain`; integer formats are held to their range, and
// the samples that had to be clipped again are counted.
class ScaledWriter {
public:
    ScaledWriter(AudioWriter& writer, const AudioReader& reader, double gain)
        : writer_(writer), gain_(gain), integer_(!isFloatFormat(reader.info())), fullScale_(reader.fullScale()),
          buffer_(static_cast<std::size_t>(chunkFrames) * reader.channels()), channels_(reader.channels())
    {
    }
    void write(const double* interleaved, std::int64_t frames)
    {
        const std::size_t count = static_cast<std::size_t>(frames) * channels_;
        for (std::size_t i = 0; i < count; ++i) {
            double value = gain_ == 1.0 ? interleaved[i] : interleaved[i] * gain_;
            if (integer_) {
                const double held = std::clamp(value, -fullScale_, fullScale_ - 1.0);
                reclipped_ += held != value ? 1 : 0;
                value = held;
            }
            buffer_[i] = value;
        }
        writer_.write(buffer_.data(), frames);
    }
    std::int64_t reclipped() const { return reclipped_; }

private:
    AudioWriter& writer_;
    double gain_;
    bool integer_;
    double fullScale_;
    std::vector<double> buffer_;
    int channels_;
    std::int64_t reclipped_ = 0;
};

// The restored output of pass two, parked in an unnamed temporary file.
class SpillFile {
public:
    SpillFile() : file_(std::tmpfile(), std::fclose)
    {
        if (!file_) throw CliError("cannot create a temporary file for --gain auto");
    }
    void write(const double* data, std::size_t count)
    {
        if (std::fwrite(data, sizeof(double), count, file_.get()) != count)
            throw CliError("cannot write the temporary file for --gain auto (disk full?)");
    }
    void rewind() { std::rewind(file_.get()); }
    std::size_t read(double* data, std::size_t count) { return std::fread(data, sizeof(double), count, file_.get()); }

private:
    std::unique_ptr<FILE, int (*)(FILE*)> file_;
};

double fittingGain(const ClipSummary& summary, const AudioReader& reader)
{
    // Integer formats reach (fullScale - 1) / fullScale on the positive side only.
    const double positiveCeiling = isFloatFormat(reader.info()) ? 1.0 : (reader.fullScale() - 1.0) / reader.fullScale();
    double gain = 1.0;
    if (summary.positivePeak > positiveCeiling) gain = positiveCeiling / summary.positivePeak;
    if (summary.negativePeak > 1.0) gain = std::min(gain, 1.0 / summary.negativePeak);
    return gain;
}

void printSummary(const ClipSummary& summary, const std::vector<ClipLevels>& levels, const AudioReader& reader,
                  double gain, double seconds)
{
    const double duration = static_cast<double>(reader.frames()) / reader.sampleRate();
    std::printf("declipped %.2f s of %d-channel audio in %.2f s (%.1fx real time)\n", duration, reader.channels(),
                seconds, seconds > 0.0 ? duration / seconds : 0.0);
    for (std::size_t c = 0; c < levels.size(); ++c) {
        const auto describe = [](float level) {
            char text[32] = "not clipped";
            if (level != ClipLevels::none) std::snprintf(text, sizeof text, "%.2f dBFS", toDb(level));
            return std::string(text);
        };
        std::printf("channel %zu: positive peaks %s, negative peaks %s\n", c + 1, describe(levels[c].positive).c_str(),
                    describe(levels[c].negative).c_str());
    }
    const double share = reader.frames() > 0 ? 100.0 * summary.instants / reader.frames() : 0.0;
    std::printf("%lld clipped runs, %lld clipped samples, %.2f%% of the time; restored peak %+.2f dBFS",
                static_cast<long long>(summary.runs), static_cast<long long>(summary.samples), share,
                summary.peak() > 0.0 ? toDb(summary.peak()) : -999.0);
    if (gain != 1.0) std::printf("; gain %+.2f dB", toDb(gain));
    std::printf("\n");
}

void declipFile(const DeclipOptions& options)
{
    const auto level = parseLevel(options.level);
    AudioReader reader(options.input);
    requireDistinctFiles(options.input, options.output);
    const bool floatFormat = isFloatFormat(reader.info());
    const auto gain = parseGain(options.gain.empty() ? (floatFormat ? "0dB" : "auto") : options.gain);
    if (!options.report.empty()) {
        try {
            spanFormatFor(options.report);
        } catch (const CliError& error) {
            throw CliError(std::string("--report: ") + error.what());
        }
    }
    const auto started = std::chrono::steady_clock::now();

    const int passes = (level ? 1 : 2) + (gain ? 0 : 1);
    const std::int64_t total = reader.frames();
    Progress progress(total * passes, isatty(STDERR_FILENO) != 0 && !options.quiet);
    const std::vector<ClipLevels> levels =
        level ? std::vector<ClipLevels>(reader.channels(), ClipLevels::symmetric(static_cast<float>(*level)))
              : findLevels(reader, progress);
    const std::int64_t restoreBase = level ? 0 : total;

    ClipSummary summary;
    RunTracker runs(reader.channels(), !options.report.empty());
    RestorePass restore(reader, options.input, levels);
    AudioWriter writer(options.output, reader.info());
    double applied = gain.value_or(1.0);
    std::int64_t reclipped = 0;
    if (gain) {
        ScaledWriter scaled(writer, reader, applied);
        restore.run([&](const double* frames, std::int64_t count) { scaled.write(frames, count); }, summary, runs,
                    progress, restoreBase);
        reclipped = scaled.reclipped();
    } else {
        SpillFile spill;
        const std::size_t width = static_cast<std::size_t>(reader.channels());
        restore.run([&](const double* frames, std::int64_t count) { spill.write(frames, count * width); }, summary,
                    runs, progress, restoreBase);
        applied = fittingGain(summary, reader);
        ScaledWriter scaled(writer, reader, applied);
        spill.rewind();
        std::vector<double> frames(static_cast<std::size_t>(chunkFrames) * width);
        for (std::int64_t done = 0; done < total;) {
            const std::int64_t count = std::min(chunkFrames, total - done);
            if (spill.read(frames.data(), count * width) != count * width)
                throw CliError("cannot read back the temporary file for --gain auto");
            scaled.write(frames.data(), count);
            done += count;
            progress.update(restoreBase + total + done);
        }
        reclipped = scaled.reclipped();
    }
    if (!options.report.empty()) writeSpanReport(options.report, summary.spans, reader.sampleRate());
    writer.commit();
    progress.finish();

    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    printSummary(summary, levels, reader, applied, seconds);
    if (reclipped > 0)
        std::fprintf(stderr,
                     "ferrotip: warning: %lld restored samples exceed full scale and were clipped again "
                     "(use --gain auto to keep them)\n",
                     static_cast<long long>(reclipped));
}

}  // namespace

void addDeclipCommand(CLI::App& app)
{
    auto options = std::make_shared<DeclipOptions>();
    CLI::App* command = app.add_subcommand("declip", "Restore the clipped peaks of an audio file");
    command->add_option("IN", options->input, "input audio file (any format libsndfile reads)")->required();
    command->add_option("OUT", options->output, "output file, written with the input's format")->required();
    command
        ->add_option("--level,-l", options->level,
                     "clip level: auto (found per channel and polarity), in dBFS (-0.5dBFS) or as a fraction "
                     "of full scale (0.9); samples at or beyond it count as clipped")
        ->capture_default_str();
    command->add_option("--gain,-g", options->gain,
                        "auto: lower the whole file just enough for the restored peaks to fit (the default "
                        "for integer formats); 0dB or another gain down to -60dB: apply it, and clip again "
                        "what still exceeds an integer format (the default for float formats is 0dB)");
    command->add_option("--report,-r", options->report,
                        "write the clipped runs to FILE: .txt label track, .csv or .json");
    command->add_flag("--quiet,-q", options->quiet, "no progress bar");
    command->callback([options] { declipFile(*options); });
}
