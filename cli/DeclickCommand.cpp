// `ferrotip declick IN OUT`: streams a whole file through a crackle engine in blocks
// and writes the result with the input's format. The engine's latency is taken off
// the front and made up with silence at the end, so OUT lines up with IN sample for
// sample and has the same length. Memory is a few blocks, whatever the file's length.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "Commands.h"
#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/AdvancedFftDeCracklerOpt.h"

namespace {

struct DeclickOptions {
    std::string input, output;
    std::string engine = "standard";
    std::string listen;
    int block = 4096;
    float sensitivity = 3.0f;
    float floor = 1e-7f;
    bool quiet = false;
};

constexpr int minBlock = 64;
constexpr int maxBlock = 65536;

std::unique_ptr<MetaDeCrackler> makeEngine(const DeclickOptions& options, int channels)
{
    std::unique_ptr<MetaDeCrackler> engine;
    if (options.engine == "standard")
        engine = std::make_unique<AdvancedFftDeCrackler>(channels, options.block);
    else
        engine = std::make_unique<AdvancedFftDeCracklerOpt>(channels, options.block);
    engine->setSensitivity(options.sensitivity);
    engine->setSpectralFloor(options.floor);
    if (options.listen == "difference") engine->enableDifferenceOutput();
    if (options.listen == "bypass") engine->enableBypass();
    return engine;
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

// Moves blocks between the file's interleaved frames (in the file's scale) and the
// engine's channel rows (full scale 1).
class BlockStream {
public:
    BlockStream(int channels, int block, double fullScale)
        : channels_(channels),
          block_(block),
          fullScale_(fullScale),
          interleaved_(static_cast<std::size_t>(block) * channels),
          rows_(channels, std::vector<float>(block)),
          pointers_(channels)
    {
        for (int c = 0; c < channels; ++c) pointers_[c] = rows_[c].data();
    }

    // Fills the rows from `frames` interleaved frames, silence after them.
    void load(std::int64_t frames)
    {
        const double scale = 1.0 / fullScale_;
        const int valid = static_cast<int>(std::clamp<std::int64_t>(frames, 0, block_));
        const double* source = interleaved_.data();
        for (int c = 0; c < channels_; ++c) {
            float* row = pointers_[c];
            for (int i = 0; i < valid; ++i) row[i] = static_cast<float>(source[i * channels_ + c] * scale);
            std::fill(row + valid, row + block_, 0.0f);
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
    float** rows() { return pointers_.data(); }

private:
    int channels_;
    int block_;
    double fullScale_;
    std::vector<double> interleaved_;
    std::vector<std::vector<float>> rows_;
    std::vector<float*> pointers_;
};

void declickFile(const DeclickOptions& options)
{
    AudioReader reader(options.input);
    requireDistinctFiles(options.input, options.output);
    const int channels = reader.channels();
    const std::int64_t total = reader.frames();
    const auto started = std::chrono::steady_clock::now();

    auto engine = makeEngine(options, channels);
    const int latency = engine->getLatency();
    BlockStream stream(channels, options.block, reader.fullScale());
    AudioWriter writer(options.output, reader.info());
    Progress progress(total, isatty(STDERR_FILENO) != 0 && !options.quiet);

    // Output sample k of the engine is input sample k - latency: drop the first
    // `latency` outputs, and feed silence past the end until all are written.
    std::int64_t consumed = 0;
    std::int64_t produced = 0;
    std::int64_t written = 0;
    while (written < total) {
        std::int64_t got = 0;
        if (consumed < total) got = reader.read(stream.frames(), std::min<std::int64_t>(options.block, total - consumed));
        if (consumed < total && got == 0) throw CliError("the input '" + options.input + "' ended early");
        consumed += got;
        stream.load(got);
        engine->process(stream.rows(), options.block);
        const std::int64_t skip = std::clamp<std::int64_t>(latency - produced, 0, options.block);
        const std::int64_t keep = std::min<std::int64_t>(options.block - skip, total - written);
        produced += options.block;
        if (keep > 0) {
            writer.write(stream.store(static_cast<int>(skip), static_cast<int>(keep)), keep);
            written += keep;
        }
        progress.update(written);
    }
    writer.commit();
    progress.finish();

    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    const double duration = static_cast<double>(total) / reader.sampleRate();
    std::printf("declicked %.2f s of %d-channel audio with the %s engine in %.2f s (%.1fx real time)\n",
                duration, channels, options.engine.c_str(), seconds,
                seconds > 0.0 ? duration / seconds : 0.0);
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
    command
        ->add_option("--engine,-e", options->engine,
                     "standard: clicks judged by the first difference against each hop's mean; "
                     "prediction: by the prediction error against a moving quantile (slower)")
        ->check(CLI::IsMember({"standard", "prediction"}))
        ->capture_default_str();
    command->add_option("--block,-b", options->block, "samples per processing block")
        ->check(CLI::Range(minBlock, maxBlock))
        ->default_str("4096");
    command
        ->add_option("--sensitivity", options->sensitivity,
                     "click threshold as a multiple of the detector's level; lower finds more")
        ->check(CLI::Range(0.01f, 1000.0f))
        ->default_str("3");
    command
        ->add_option("--floor", options->floor,
                     "spectral floor: bin power (spectra scaled by 1/2048) below which audio is "
                     "treated as residual, where clicks are repaired")
        ->check(CLI::Range(0.0f, 1.0f))
        ->default_str("1e-07");
    command
        ->add_option("--listen", options->listen,
                     "difference: write what was removed (sign inverted); bypass: write the input "
                     "through the same path")
        ->check(CLI::IsMember({"difference", "bypass"}));
    command->add_flag("--quiet,-q", options->quiet, "no progress bar");
    command->callback([options] { declickFile(*options); });
}
