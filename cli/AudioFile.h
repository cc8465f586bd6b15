// Audio files through libsndfile, for the command line.
//
// Samples travel as doubles in the file's own scale: raw integers for PCM (exact
// for every bit depth), stored values for float files. Copying untouched audio in
// that scale is lossless; fullScale() converts to the module's [-1, 1) floats.
// AudioWriter writes to a temporary file beside the target and renames it on
// commit(), so a failure never leaves a partial or overwritten output.
#pragma once

#include <sndfile.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

class AudioReader {
public:
    explicit AudioReader(const std::string& path);

    const SF_INFO& info() const { return info_; }
    std::int64_t frames() const { return info_.frames; }
    int channels() const { return info_.channels; }
    int sampleRate() const { return info_.samplerate; }
    // Magnitude of full scale in the file's sample scale (32768 for 16-bit PCM, 1 for float).
    double fullScale() const { return fullScale_; }

    // Reads up to `count` interleaved frames from the current position; returns frames read.
    std::int64_t read(double* interleaved, std::int64_t count);
    void seek(std::int64_t frame);

private:
    std::string path_;
    SF_INFO info_{};
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
    double fullScale_ = 1.0;
};

class AudioWriter {
public:
    // Same format, subtype, rate and channel count as `format`.
    AudioWriter(const std::string& target, const SF_INFO& format);
    ~AudioWriter();
    AudioWriter(const AudioWriter&) = delete;
    AudioWriter& operator=(const AudioWriter&) = delete;

    void write(const double* interleaved, std::int64_t frames);
    // Finishes the file and moves it into place.
    void commit();

private:
    std::string target_;
    std::string temporary_;
    std::unique_ptr<SNDFILE, int (*)(SNDFILE*)> file_;
    bool committed_ = false;
};

// Throws CliError unless `output` names a different file than `input`.
void requireDistinctFiles(const std::string& input, const std::string& output);
