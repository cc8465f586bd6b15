// Audio files through libsndfile, for the command line.
//
// Samples travel as doubles in the file's own scale: raw integers for PCM (exact
// for every bit depth), stored values for float files. Copying untouched audio in
// that scale is lossless; fullScale() converts to the module's [-1, 1) floats.
// AudioReader reads front to back only (rewind() starts again by reopening), so
// files that cannot seek (streamed FLAC, GSM and ADPCM WAVs) read like any other; a
// stream that does not declare its length is decoded once at opening to count it.
// A pipe or standard input ('-') is read from its copy (SpooledInput).
// AudioWriter writes to an exclusively created file of random name beside the
// target (PartialFile) and renames it on commit(), so a failure or an interrupt
// never leaves a partial output and never writes through an existing name.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "PartialFile.h"

class AudioReader {
public:
    explicit AudioReader(const std::string& path);

    const std::string& path() const { return path_; }
    const SF_INFO& info() const { return info_; }
    std::int64_t frames() const { return info_.frames; }
    int channels() const { return info_.channels; }
    int sampleRate() const { return info_.samplerate; }
    // Magnitude of full scale in the file's sample scale (32768 for 16-bit PCM, 1 for float).
    double fullScale() const { return fullScale_; }

    // Reads up to `count` interleaved frames from the current position; returns frames
    // read, 0 at the end. Samples that are not finite (NaN or infinite, which a float
    // file can hold) come back as 0 and are counted, unless keepNonFinite() was called:
    // one of them would spread through every filter after it.
    std::int64_t read(double* interleaved, std::int64_t count);
    // Whether every sample is exactly a float at full scale 1 (8- to 24-bit PCM and
    // 32-bit float), so that readNormalised gives what read gives, scaled by
    // 1 / fullScale(), without a pass through doubles.
    bool normalisedFloatsExact() const;
    // As read, at full scale 1; only where normalisedFloatsExact().
    std::int64_t readNormalised(float* interleaved, std::int64_t count);
    // To `frame`; a file that cannot seek is read again from the start up to it.
    void seek(std::int64_t frame);
    // Back to the first frame, also for files that cannot seek.
    void rewind();
    // Non-finite samples read as they are stored (a bit-for-bit copy).
    void keepNonFinite() { zeroNonFinite_ = false; }
    // Samples read as 0 because they were not finite: the most in one pass (from a
    // rewind or a seek on), so a sample read again is not counted again.
    std::int64_t nonFiniteSamples() const { return nonFinite_; }
    // Whether the frame count is known (a file of no frames does not say).
    bool lengthKnown() const;
    // The file's text tags (title, artist, ...: libsndfile's string ids with their text)
    // and its channel layout (empty when it declares none), for a writer to keep.
    std::vector<std::pair<int, std::string>> tags() const;
    std::vector<int> channelLayout() const;

private:
    void open();
    void countFrames();
    template <typename Sample>
    void zeroNonFinite(Sample* interleaved, std::int64_t frames);

    std::string path_;    // as the user named it
    std::string source_;  // what is opened: the path, or the copy of a pipe's audio
    SF_INFO info_{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
    double fullScale_ = 1.0;
    bool zeroNonFinite_ = true;
    std::int64_t nonFinite_ = 0;
    std::int64_t nonFiniteThisPass_ = 0;
    std::int64_t countedFrames_ = -1;  // the length of a stream whose header lacks it
};

// Prints a warning naming the input when some of its samples were read as 0.
void warnAboutNonFinite(const AudioReader& reader, const std::string& input);

// True for encodings that decode to something other than what was encoded (Vorbis,
// Opus, MP3, GSM, ADPCM): writing them again changes every sample.
bool isLossy(int format);

// The format a command writes `target` in: the input's, unless the target's extension
// names another container (.wav, .flac, .ogg, .opus, .mp3, .aif/.aiff, .au, .caf, .w64,
// .rf64). Then the input's encoding is kept where that container holds it; otherwise
// float stays float where it can, deeper than 16 bits becomes 24-bit PCM, the rest
// 16-bit PCM, and a lossy container takes its codec. Throws CliError naming the target
// when its container cannot hold the input's rate or channels.
SF_INFO outputFormatFor(const std::string& target, const SF_INFO& input);

// The samples a written format holds, in the scale the writer takes them: bounded for
// integer, companded and lossy formats, any value for float ones.
struct HeldRange {
    bool bounded;
    double low, high;
};

class AudioWriter {
public:
    // Same format, subtype, rate and channel count as `format`; write() takes samples in
    // the format's own scale. No PEAK chunk, whose time stamp would make two runs'
    // files differ.
    AudioWriter(const std::string& target, const SF_INFO& format);
    // In outputFormatFor(target, source), keeping the source's text tags and channel
    // layout; write() takes samples in the source's scale (AudioReader::read's), which
    // a different format's scale is converted from.
    AudioWriter(const std::string& target, const AudioReader& source);
    ~AudioWriter();
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;

    // Samples in the scale above; integer PCM is rounded to the nearest step and
    // clipped to the format's range.
    void write(const double* interleaved, std::int64_t frames);
    // What the written format holds, in write()'s scale.
    HeldRange heldRange() const;
    // Whether the file is written in another format than its source's.
    bool converted() const { return sourceFormat_ != 0 && sourceFormat_ != format_.format; }
    // Samples clipped to the format's range by write(), beyond rounding.
    std::int64_t clippedSamples() const { return clipped_; }
    const SF_INFO& format() const { return format_; }
    // Whether the file stores 32-bit floats, which writeFloats writes as they are.
    bool storesFloats() const;
    // Samples at full scale 1; only where storesFloats().
    void writeFloats(const float* interleaved, std::int64_t frames);
    // Finishes the file and moves it into place.
    void commit();

private:
    AudioWriter(const std::string& target, const SF_INFO& format, double sampleScale);

    std::string target_;
    SF_INFO format_;
    double integerScale_;   // full-scale magnitude of raw integers, 0 for other formats
    double sampleScale_;    // full-scale magnitude of the samples write() takes
    int sourceFormat_ = 0;  // the source's format, 0 when written in the given one
    std::int64_t clipped_ = 0;
    std::vector<double> converted_;  // one write's worth in the format's own scale
    PartialFile partial_;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
};

// Prints a warning naming the output when converting it into its format clipped samples.
void warnAboutConversionClipping(const AudioWriter& writer, const std::string& output);

// Notes on stderr that the output is in a lossy format, so every sample is encoded
// again, even those the command leaves alone.
void noteLossyRewrite(const AudioReader& reader, const AudioWriter& writer, const std::string& input,
                      const std::string& output);

// Throws CliError, before any work, when `output` is the input file by any route (a
// symlink, a hard link, another spelling of the path: same device and inode), a
// directory, a device, pipe or socket, or in a format (outputFormatFor) that cannot
// hold the input's audio.
void requireOutputFor(const AudioReader& input, const std::string& output);
