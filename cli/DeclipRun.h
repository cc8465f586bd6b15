// What `declip` decides besides file I/O: the clip level option, the clip levels
// found from the audio, the chunked restoration with one declipper frame of context
// on each side, and the clipped runs it met. The command line and the Python module
// run this same code; a Reader gives channels(), sampleRate(), frames(), fullScale(),
// read(interleaved doubles, frames) and seek(frame), a Progress update(done).
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "CliError.h"
#include "SpanList.h"
#include "declip/ArDeclipper.h"
#include "declip/ChannelFinisher.h"
#include "declip/ClipLevelFinder.h"
#include "declip/Declipper.h"
#include "declip/SocialDeclipper.h"
#include "signal/SpreadOverThreads.h"

inline constexpr std::int64_t chunkFrames = 65536;
inline constexpr int maxDeclipJobs = 256;

inline double fromDb(double db) { return std::pow(10.0, db / 20.0); }
inline double toDb(double value) { return 20.0 * std::log10(value); }

// --level: nothing for auto, else the level as a fraction of full scale; `name`
// labels the value in the message.
std::optional<double> parseLevel(const std::string& text, const std::string& name = "--level");

// --gain: nothing for auto, else the linear gain.
std::optional<double> parseGain(const std::string& text);

// What the restoration found, for the summary and the report.
struct ClipSummary {
    std::int64_t runs = 0, samples = 0, instants = 0;
    double positivePeak = 0.0, negativePeak = 0.0;  // of the output before any gain, full scale 1
    double peak() const { return std::max(positivePeak, negativePeak); }
    std::vector<SampleSpan> spans;

    // Takes the peaks of `count` finished output samples (file scale `fullScale`).
    void notePeaks(const double* samples, std::size_t count, double fullScale)
    {
        for (std::size_t i = 0; i < count; ++i) {
            double& peak = samples[i] > 0.0 ? positivePeak : negativePeak;
            peak = std::max(peak, std::fabs(samples[i]) / fullScale);
        }
    }
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

// Hands interleaved frames in the file's scale (full scale `fullScale`) to one finder
// per channel; `row` is scratch of at least `count` samples.
inline void addToFinders(std::vector<ClipLevelFinder>& finders, const double* interleaved, std::int64_t count,
                         double fullScale, std::vector<float>& row)
{
    const std::size_t channels = finders.size();
    for (std::size_t c = 0; c < channels; ++c) {
        for (std::int64_t i = 0; i < count; ++i)
            row[i] = static_cast<float>(interleaved[i * channels + c] / fullScale);
        finders[c].add(row.data(), count);
    }
}

// "-0.10 dBFS", or "not clipped" where a polarity holds no clipping.
std::string describeLevel(float level);

template <typename Reader, typename Progress>
std::vector<ClipLevels> findLevels(Reader& reader, Progress& progress)
{
    const int channels = reader.channels();
    std::vector<ClipLevelFinder> finders(channels);
    std::vector<double> frames(static_cast<std::size_t>(chunkFrames) * channels);
    std::vector<float> row(chunkFrames);
    std::int64_t done = 0;
    while (done < reader.frames()) {
        const std::int64_t got = reader.read(frames.data(), std::min(chunkFrames, reader.frames() - done));
        if (got == 0) break;
        addToFinders(finders, frames.data(), got, reader.fullScale(), row);
        done += got;
        progress.update(done);
    }
    reader.seek(0);
    std::vector<ClipLevels> levels;
    for (const auto& finder : finders) levels.push_back(finder.levels());
    return levels;
}

// The given level for every channel and polarity, or the levels found in the audio.
template <typename Reader, typename Progress>
std::vector<ClipLevels> clipLevels(Reader& reader, std::optional<double> level, Progress& progress)
{
    if (level) return std::vector<ClipLevels>(reader.channels(), ClipLevels::symmetric(static_cast<float>(*level)));
    return findLevels(reader, progress);
}

// What finishes a restored sample besides the sparse restoration in long frames, in
// full scale 1 (only the clipped samples' values count): the sparse restoration in
// frames half as long, the autoregressive fill (NaN where it has none), and the
// restoration by social sparsity (NaN where it has none) with its share.
struct Companions {
    float shorter, autoregressive, social, socialShare;
};

// Restored frames, interleaved: the sparse restoration in long frames in the file's
// scale, and its companions.
using FrameSink = std::function<void(const double* sparse, const Companions* companions, std::int64_t frames)>;

// Streams the audio through the declippers (the sparse one in long and in short
// frames, and the autoregressive fill) and hands their outputs to `sink` chunk by
// chunk. How far each restored excess over the clip levels is calibrated, and how much
// of the autoregressive fill joins them, are known only once the whole file has been
// seen: the caller then passes each output sample through finished(). `threads` solve the frames of each chunk; the output does
// not depend on how many.
template <typename Reader>
class RestorePass {
public:
    // fast: the sparse restoration in long frames alone (about 2.4 times faster, 1 dB
    // less on average).
    RestorePass(Reader& reader, const std::string& path, const std::vector<ClipLevels>& levels, int threads = 1,
                bool fast = false)
        : reader_(reader),
          path_(path),
          levels_(levels),
          declipper_(FrameDeclipper::Settings::forSampleRate(reader.sampleRate()), threads),
          shortDeclipper_(FrameDeclipper::Settings::shorterFor(reader.sampleRate()), threads),
          fast_(fast),
          arDeclipper_(ArDeclipper::Settings::forSampleRate(reader.sampleRate()), threads),
          socialDeclipper_(socialSettings(reader.sampleRate(), fast), threads, reader.channels()),
          channels_(reader.channels()),
          context_(std::max({declipper_.context(), arDeclipper_.context(), socialDeclipper_.context()})),
          capacity_(chunkFrames + 2 * context_),
          raw_(static_cast<std::size_t>(capacity_) * channels_),
          rows_(channels_, std::vector<float>(capacity_)),
          restored_(channels_, std::vector<float>(chunkFrames)),
          restoredShort_(channels_, std::vector<float>(chunkFrames)),
          filled_(channels_, std::vector<float>(chunkFrames, std::numeric_limits<float>::quiet_NaN())),
          social_(channels_, std::vector<float>(chunkFrames)),
          socialShare_(channels_, std::vector<float>(chunkFrames)),
          sparse_(static_cast<std::size_t>(chunkFrames) * channels_),
          companions_(static_cast<std::size_t>(chunkFrames) * channels_),
          finishers_(levels.begin(), levels.end())
    {
    }

    // The output sample (file scale) of `channel` from the sink's: the two sparse
    // restorations calibrated and mixed, with the channel's share of the
    // autoregressive fill mixed in (ChannelFinisher); an unclipped sample comes back
    // bit for bit.
    double finished(int channel, double sparse, Companions companions) const
    {
        const double scale = reader_.fullScale();
        const float sample = static_cast<float>(sparse / scale);
        if (levels_[channel].sign(sample) == 0) return sparse;
        const float out = finishers_[channel].finished(sample, companions.shorter, companions.autoregressive,
                                                       companions.social, companions.socialShare);
        return static_cast<double>(out) * scale;
    }

    // finished() over `count` interleaved frames, in place in `sparse`.
    void finish(double* sparse, const Companions* companions, std::int64_t count) const
    {
        for (std::int64_t f = 0; f < count; ++f)
            for (int c = 0; c < channels_; ++c) {
                const std::size_t i = static_cast<std::size_t>(f) * channels_ + c;
                sparse[i] = finished(c, sparse[i], companions[i]);
            }
    }

    template <typename Progress>
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
            for (int c = 0; c < channels_; ++c) {
                declipper_.restore(rows_[c].data(), held_, origin_, levels_[c], from - origin_, to - origin_,
                                   restored_[c].data());
                // Fast, the short frames' part of the mix is the long frames' own restoration.
                if (fast_)
                    restoredShort_[c] = restored_[c];
                else
                    shortDeclipper_.restore(rows_[c].data(), held_, origin_, levels_[c], from - origin_,
                                            to - origin_, restoredShort_[c].data());
                if (arDeclipper_.used())
                    arDeclipper_.restore(rows_[c].data(), held_, origin_, levels_[c], from - origin_,
                                         to - origin_, filled_[c].data());
                socialDeclipper_.restore(rows_[c].data(), held_, origin_, levels_[c], from - origin_, to - origin_,
                                         social_[c].data(), socialShare_[c].data());
            }
            interleave(from, to, summary, runs);
            sink(sparse_.data(), companions_.data(), to - from);
            drop(to - context_);
            progress.update(progressBase + to);
        }
        runs.closeAll(summary);
        for (auto& finisher : finishers_) finisher.finish(arDeclipper_, socialDeclipper_);
    }

private:
    // Fast: no restoration by social sparsity.
    static SocialDeclipper::Settings socialSettings(int sampleRate, bool fast)
    {
        SocialDeclipper::Settings settings = SocialDeclipper::Settings::forSampleRate(sampleRate);
        if (fast) settings.weight = 0.0f;
        return settings;
    }

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
                const std::size_t out = static_cast<std::size_t>(at - from) * channels_ + c;
                const double scale = reader_.fullScale();
                sparse_[out] = sign == 0 ? raw_[local * channels_ + c] : restored_[c][at - from] * scale;
                companions_[out] = {restoredShort_[c][at - from], filled_[c][at - from], social_[c][at - from],
                                    socialShare_[c][at - from]};
                finishers_[c].add(rows_[c][local], restored_[c][at - from], restoredShort_[c][at - from]);
                runs.sample(c, at, sign, summary);
                anyClipped = anyClipped || sign != 0;
            }
            summary.instants += anyClipped ? 1 : 0;
        }
    }

    Reader& reader_;
    std::string path_;
    const std::vector<ClipLevels>& levels_;
    Declipper declipper_, shortDeclipper_;  // in long and in short frames
    bool fast_;
    ArDeclipper arDeclipper_;
    SocialDeclipper socialDeclipper_;
    int channels_;
    std::int64_t context_, capacity_;
    std::vector<double> raw_;               // interleaved, file scale
    std::vector<std::vector<float>> rows_;  // per channel, full scale 1
    std::vector<std::vector<float>> restored_, restoredShort_, filled_;  // per channel: sparse in long
                                                                        // and short frames, autoregressive
    std::vector<std::vector<float>> social_, socialShare_;              // per channel
    std::vector<double> sparse_;                        // interleaved, file scale
    std::vector<Companions> companions_;                // interleaved, full scale 1
    std::vector<ChannelFinisher> finishers_;            // per channel
    std::int64_t origin_ = 0, held_ = 0;
};

