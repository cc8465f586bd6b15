#include "AudioFile.h"

#include <filesystem>
#include <system_error>

#include "CliError.h"

namespace fs = std::filesystem;

namespace {

// Integer PCM is carried as raw integer values; everything else as libsndfile's
// normalised values. Returns the full-scale magnitude of that representation.
double rawIntegerScale(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_PCM_S8:
    case SF_FORMAT_PCM_U8: return 128.0;
    case SF_FORMAT_PCM_16: return 32768.0;
    case SF_FORMAT_PCM_24: return 8388608.0;
    case SF_FORMAT_PCM_32: return 2147483648.0;
    default: return 0.0;
    }
}

void useRawIntegers(SNDFILE* file, int format)
{
    if (rawIntegerScale(format) > 0.0) sf_command(file, SFC_SET_NORM_DOUBLE, nullptr, SF_FALSE);
}

}  // namespace

AudioReader::AudioReader(const std::string& path) : path_(path), file_(nullptr, sf_close)
{
    std::error_code error;
    if (!fs::exists(path, error)) throw CliError("cannot open '" + path + "': no such file");
    if (fs::is_directory(path, error)) throw CliError("cannot open '" + path + "': it is a directory");
    file_.reset(sf_open(path.c_str(), SFM_READ, &info_));
    if (!file_) throw CliError("cannot read '" + path + "': " + sf_strerror(nullptr));
    useRawIntegers(file_.get(), info_.format);
    const double scale = rawIntegerScale(info_.format);
    fullScale_ = scale > 0.0 ? scale : 1.0;
}

std::int64_t AudioReader::read(double* interleaved, std::int64_t count)
{
    const sf_count_t got = sf_readf_double(file_.get(), interleaved, count);
    if (got < 0) throw CliError("error reading '" + path_ + "': " + sf_strerror(file_.get()));
    return got;
}

void AudioReader::seek(std::int64_t frame)
{
    if (sf_seek(file_.get(), frame, SEEK_SET) < 0)
        throw CliError("cannot seek in '" + path_ + "': " + sf_strerror(file_.get()));
}

AudioWriter::AudioWriter(const std::string& target, const SF_INFO& format)
    : target_(target), file_(nullptr, sf_close)
{
    const fs::path path(target);
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
    std::error_code error;
    if (!fs::is_directory(directory, error))
        throw CliError("cannot write '" + target + "': folder '" + directory.string() + "' does not exist");
    std::string hidden = path.filename().string();
    hidden.insert(hidden.begin(), '.');
    hidden += ".ferrotip-partial";
    temporary_ = (directory / hidden).string();
    SF_INFO info = format;
    file_.reset(sf_open(temporary_.c_str(), SFM_WRITE, &info));
    if (!file_) throw CliError("cannot write '" + target + "': " + sf_strerror(nullptr));
    useRawIntegers(file_.get(), format.format);
    // Repaired samples may overshoot full scale; clip rather than wrap around.
    sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

AudioWriter::~AudioWriter()
{
    if (committed_) return;
    file_.reset();
    std::error_code ignored;
    fs::remove(temporary_, ignored);
}

void AudioWriter::write(const double* interleaved, std::int64_t frames)
{
    if (sf_writef_double(file_.get(), interleaved, frames) != frames)
        throw CliError("error writing '" + target_ + "': " + sf_strerror(file_.get()));
}

void AudioWriter::commit()
{
    if (sf_close(file_.release()) != 0) throw CliError("error finishing '" + target_ + "'");
    std::error_code error;
    fs::rename(temporary_, target_, error);
    if (error) {
        fs::remove(temporary_, error);
        throw CliError("cannot move the result into '" + target_ + "': " + error.message());
    }
    committed_ = true;
}

void requireDistinctFiles(const std::string& input, const std::string& output)
{
    std::error_code error;
    if (fs::equivalent(input, output, error) ||
        fs::weakly_canonical(input, error) == fs::weakly_canonical(output, error))
        throw CliError("output '" + output + "' is the input file; choose another name");
}
