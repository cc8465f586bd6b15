#include "AudioFile.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <system_error>

#include "CliError.h"
#include "SpooledInput.h"

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

AudioReader::AudioReader(const std::string& path)
    : path_(path), source_(rereadablePath(path)), file_(nullptr, sf_close)
{
    open();
    if (!lengthKnown()) countFrames();
    const double scale = rawIntegerScale(info_.format);
    fullScale_ = scale > 0.0 ? scale : 1.0;
}

void AudioReader::open()
{
    file_.reset();
    info_ = SF_INFO{};
    file_.reset(sf_open(source_.c_str(), SFM_READ, &info_));
    if (!file_) throw CliError("cannot read '" + path_ + "': " + sf_strerror(nullptr));
    if (info_.channels < 1 || info_.samplerate < 1)
        throw CliError("cannot read '" + path_ + "': it declares " + std::to_string(info_.channels) +
                       " channels at " + std::to_string(info_.samplerate) + " Hz");
    useRawIntegers(file_.get(), info_.format);
    if (countedFrames_ >= 0) info_.frames = countedFrames_;
}

// A FLAC written to a pipe cannot go back to note its length in its header: decode
// it once, so that every pass knows the length up front.
void AudioReader::countFrames()
{
    constexpr sf_count_t block = 4096;
    std::vector<double> scratch(static_cast<std::size_t>(block) * info_.channels);
    std::int64_t counted = 0;
    for (sf_count_t got; (got = sf_readf_double(file_.get(), scratch.data(), block)) > 0;) counted += got;
    countedFrames_ = counted;
    open();
}

void AudioReader::rewind()
{
    const SF_INFO first = info_;
    nonFiniteThisPass_ = 0;
    open();
    if (info_.format != first.format || info_.channels != first.channels ||
        info_.samplerate != first.samplerate)
        throw CliError("'" + path_ + "' changed while it was being read");
}

std::vector<std::pair<int, std::string>> AudioReader::tags() const
{
    std::vector<std::pair<int, std::string>> found;
    for (int id = SF_STR_FIRST; id <= SF_STR_LAST; ++id)
        if (const char* text = sf_get_string(file_.get(), id); text && *text) found.emplace_back(id, text);
    return found;
}

std::vector<int> AudioReader::channelLayout() const
{
    std::vector<int> layout(static_cast<std::size_t>(info_.channels));
    const bool declared = sf_command(file_.get(), SFC_GET_CHANNEL_MAP_INFO, layout.data(),
                                     static_cast<int>(layout.size() * sizeof(int))) == SF_TRUE;
    return declared ? layout : std::vector<int>{};
}

bool AudioReader::lengthKnown() const { return info_.frames > 0 && info_.frames < SF_COUNT_MAX; }

bool isLossy(int format)
{
    switch (format & SF_FORMAT_SUBMASK) {
    case SF_FORMAT_VORBIS:
    case SF_FORMAT_OPUS:
    case SF_FORMAT_MPEG_LAYER_I:
    case SF_FORMAT_MPEG_LAYER_II:
    case SF_FORMAT_MPEG_LAYER_III:
    case SF_FORMAT_GSM610:
    case SF_FORMAT_IMA_ADPCM:
    case SF_FORMAT_MS_ADPCM:
    case SF_FORMAT_VOX_ADPCM:
    case SF_FORMAT_G721_32:
    case SF_FORMAT_G723_24:
    case SF_FORMAT_G723_40:
    case SF_FORMAT_NMS_ADPCM_16:
    case SF_FORMAT_NMS_ADPCM_24:
    case SF_FORMAT_NMS_ADPCM_32: return true;
    default: return false;
    }
}

namespace {

// Whether any sample is NaN or infinite. Flags gathered without a branch vectorise;
// almost every chunk holds none, and only those that do are walked sample by sample.
template <typename Sample>
bool holdsNonFinite(const Sample* interleaved, std::int64_t count)
{
    int found = 0;
    for (std::int64_t i = 0; i < count; ++i)
        found |= std::fabs(interleaved[i]) <= std::numeric_limits<Sample>::max() ? 0 : 1;
    return found != 0;
}

}  // namespace

template <typename Sample>
void AudioReader::zeroNonFinite(Sample* interleaved, std::int64_t frames)
{
    if (!zeroNonFinite_ || rawIntegerScale(info_.format) > 0.0) return;
    const std::int64_t count = frames * info_.channels;
    if (!holdsNonFinite(interleaved, count)) return;
    for (std::int64_t i = 0; i < count; ++i)
        if (!std::isfinite(interleaved[i])) {
            interleaved[i] = 0;
            nonFinite_ = std::max(nonFinite_, ++nonFiniteThisPass_);
        }
}

std::int64_t AudioReader::read(double* interleaved, std::int64_t count)
{
    const sf_count_t got = sf_readf_double(file_.get(), interleaved, count);
    if (got < 0) throw CliError("error reading '" + path_ + "': " + sf_strerror(file_.get()));
    zeroNonFinite(interleaved, got);
    return got;
}

void noteLossyRewrite(const AudioReader& reader, const AudioWriter& writer, const std::string& input,
                      const std::string& output)
{
    if (!isLossy(writer.format().format)) return;
    if (reader.info().format == writer.format().format)
        std::fprintf(stderr,
                     "ferrotip: note: '%s' is in a lossy format, so the whole file is re-encoded into '%s' "
                     "and every sample changes; convert it to a lossless format (WAV or FLAC) first to "
                     "keep the samples left alone bit for bit\n",
                     input.c_str(), output.c_str());
    else
        std::fprintf(stderr,
                     "ferrotip: note: '%s' is written in a lossy format, so every sample changes, not only "
                     "those the command restores; name a lossless format (.wav, .flac) to keep them\n",
                     output.c_str());
}

void warnAboutConversionClipping(const AudioWriter& writer, const std::string& output)
{
    if (!writer.converted() || writer.clippedSamples() == 0) return;
    std::fprintf(stderr,
                 "ferrotip: warning: %lld samples lay beyond full scale and were clipped to fit the format of '%s'; "
                 "name a float format (.wav, .aiff, .caf from a float input) to keep them\n",
                 static_cast<long long>(writer.clippedSamples()), output.c_str());
}

void warnAboutNonFinite(const AudioReader& reader, const std::string& input)
{
    if (reader.nonFiniteSamples() == 0) return;
    std::fprintf(stderr, "ferrotip: warning: %lld samples of '%s' were not finite (NaN or infinite) and were read as 0\n",
                 static_cast<long long>(reader.nonFiniteSamples()), input.c_str());
}

bool AudioReader::normalisedFloatsExact() const
{
    // Up to 24 bits an integer and its power-of-two scaling are exact in a float;
    // 32-bit integers and doubles would be rounded.
    const int subtype = info_.format & SF_FORMAT_SUBMASK;
    return subtype == SF_FORMAT_FLOAT || (rawIntegerScale(info_.format) > 0.0 && subtype != SF_FORMAT_PCM_32);
}

std::int64_t AudioReader::readNormalised(float* interleaved, std::int64_t count)
{
    const sf_count_t got = sf_readf_float(file_.get(), interleaved, count);
    if (got < 0) throw CliError("error reading '" + path_ + "': " + sf_strerror(file_.get()));
    zeroNonFinite(interleaved, got);
    return got;
}

void AudioReader::seek(std::int64_t frame)
{
    if (!info_.seekable) {
        // GSM, ADPCM and streamed FLAC decode front to back only: start again and skip.
        rewind();
        constexpr std::int64_t block = 4096;
        std::vector<double> scratch(static_cast<std::size_t>(block) * info_.channels);
        for (std::int64_t skipped = 0; skipped < frame;) {
            const std::int64_t got = read(scratch.data(), std::min(block, frame - skipped));
            if (got == 0) throw CliError("'" + path_ + "' ended before frame " + std::to_string(frame));
            skipped += got;
        }
        nonFiniteThisPass_ = 0;
        return;
    }
    if (sf_seek(file_.get(), frame, SEEK_SET) < 0)
        throw CliError("cannot seek in '" + path_ + "': " + sf_strerror(file_.get()));
    nonFiniteThisPass_ = 0;
}

namespace {

// The containers an output's extension picks, and the codec a lossy one takes.
struct Container {
    const char* extension;
    int major;
    int codec;  // 0: the input's encoding where the container holds it
    bool holds(int format) const
    {
        const int inputMajor = format & SF_FORMAT_TYPEMASK;
        // A .wav may be an extensible or an RF64 WAV: either stays what it is.
        if (major == SF_FORMAT_WAV)
            return inputMajor == SF_FORMAT_WAV || inputMajor == SF_FORMAT_WAVEX || inputMajor == SF_FORMAT_RF64;
        return inputMajor == major && (codec == 0 || (format & SF_FORMAT_SUBMASK) == codec);
    }
};
constexpr Container containers[] = {
    {".wav", SF_FORMAT_WAV, 0},   {".flac", SF_FORMAT_FLAC, 0},
    {".ogg", SF_FORMAT_OGG, 0},   {".oga", SF_FORMAT_OGG, 0},
    {".opus", SF_FORMAT_OGG, SF_FORMAT_OPUS}, {".mp3", SF_FORMAT_MPEG, SF_FORMAT_MPEG_LAYER_III},
    {".aif", SF_FORMAT_AIFF, 0},  {".aiff", SF_FORMAT_AIFF, 0},
    {".au", SF_FORMAT_AU, 0},     {".caf", SF_FORMAT_CAF, 0},
    {".w64", SF_FORMAT_W64, 0},   {".rf64", SF_FORMAT_RF64, 0},
};

const Container* containerNamedBy(const std::string& target)
{
    std::string extension = fs::path(target).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    for (const Container& container : containers)
        if (extension == container.extension) return &container;
    return nullptr;
}

bool writable(SF_INFO info, int format)
{
    info.format = format;
    // Opus codes these rates only, which the format check does not know.
    if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS &&
        !(info.samplerate == 8000 || info.samplerate == 12000 || info.samplerate == 16000 ||
          info.samplerate == 24000 || info.samplerate == 48000))
        return false;
    return sf_format_check(&info) == SF_TRUE;
}

// Encodings to try in a new container, the input's own first unless it is lossy: a
// decoded MP3 or Vorbis goes into a lossless container as PCM.
std::vector<int> encodingsFor(const SF_INFO& input, const Container& container)
{
    const int own = input.format & SF_FORMAT_SUBMASK;
    if (container.codec != 0) return {container.codec};
    const bool isFloat = own == SF_FORMAT_FLOAT || own == SF_FORMAT_DOUBLE;
    const bool deep = isFloat || own == SF_FORMAT_PCM_24 || own == SF_FORMAT_PCM_32;
    std::vector<int> tried;
    if (!isLossy(own)) tried.push_back(own);
    if (isFloat) tried.push_back(SF_FORMAT_FLOAT);
    if (deep) tried.push_back(SF_FORMAT_PCM_24);
    for (int codec : {SF_FORMAT_PCM_16, SF_FORMAT_VORBIS, SF_FORMAT_OPUS}) tried.push_back(codec);
    return tried;
}

double sampleScaleOf(int format)
{
    const double scale = rawIntegerScale(format);
    return scale > 0.0 ? scale : 1.0;
}

}  // namespace

SF_INFO outputFormatFor(const std::string& target, const SF_INFO& input)
{
    SF_INFO output{};
    output.samplerate = input.samplerate;
    output.channels = input.channels;
    output.format = input.format;
    const Container* container = containerNamedBy(target);
    if (container == nullptr || container->holds(input.format)) return output;
    for (int encoding : encodingsFor(input, *container))
        if (writable(output, container->major | encoding)) {
            output.format = container->major | encoding;
            return output;
        }
    throw CliError("cannot write '" + target + "': its format (" + container->extension + ") cannot hold " +
                   std::to_string(input.channels) + "-channel audio at " + std::to_string(input.samplerate) +
                   " Hz; name another format");
}

AudioWriter::AudioWriter(const std::string& target, const SF_INFO& format)
    : AudioWriter(target, format, sampleScaleOf(format.format))
{
}

AudioWriter::AudioWriter(const std::string& target, const SF_INFO& format, double sampleScale)
    : target_(target), format_(format), integerScale_(rawIntegerScale(format.format)), sampleScale_(sampleScale),
      partial_(target), file_(nullptr, sf_close)
{
    SF_INFO info = format;
    file_.reset(sf_open_fd(partial_.descriptor(), SFM_WRITE, &info, SF_FALSE));
    if (!file_) throw CliError("cannot write '" + target + "': " + sf_strerror(nullptr));
    useRawIntegers(file_.get(), format.format);
    // Repaired samples may overshoot full scale; clip rather than wrap around.
    sf_command(file_.get(), SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_command(file_.get(), SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
}

AudioWriter::AudioWriter(const std::string& target, const AudioReader& source)
    : AudioWriter(target, outputFormatFor(target, source.info()), source.fullScale())
{
    sourceFormat_ = source.info().format;
    // Formats without a place for a tag or a layout refuse it; the audio is what matters.
    for (const auto& [id, text] : source.tags()) sf_set_string(file_.get(), id, text.c_str());
    std::vector<int> layout = source.channelLayout();
    if (!layout.empty())
        sf_command(file_.get(), SFC_SET_CHANNEL_MAP_INFO, layout.data(), static_cast<int>(layout.size() * sizeof(int)));
}

// The sound file closes before its uncommitted PartialFile removes the file.
AudioWriter::~AudioWriter() = default;

void AudioWriter::write(const double* interleaved, std::int64_t frames)
{
    // libsndfile's clipping conversion to integers rounds towards minus infinity,
    // which would put every repaired or processed sample up to one step low; so the
    // samples reach it as integers already, rounded to nearest (ties to even).
    // Every scale is a power of two, so converting between them is exact.
    const std::size_t count = static_cast<std::size_t>(frames) * static_cast<std::size_t>(format_.channels);
    if (integerScale_ > 0.0) {
        const double toSteps = integerScale_ / sampleScale_;
        converted_.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            const double step = std::nearbyint(interleaved[i] * toSteps);
            converted_[i] = std::clamp(step, -integerScale_, integerScale_ - 1.0);
            clipped_ += converted_[i] != step ? 1 : 0;
        }
        interleaved = converted_.data();
    } else if (sampleScale_ != 1.0 || converted()) {
        const bool bounded = heldRange().bounded;
        converted_.resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            converted_[i] = interleaved[i] / sampleScale_;
            clipped_ += bounded && std::fabs(converted_[i]) > 1.0 ? 1 : 0;
        }
        interleaved = converted_.data();
    }
    if (sf_writef_double(file_.get(), interleaved, frames) != frames)
        throw CliError("error writing '" + target_ + "': " + sf_strerror(file_.get()));
}

bool AudioWriter::storesFloats() const { return (format_.format & SF_FORMAT_SUBMASK) == SF_FORMAT_FLOAT; }

HeldRange AudioWriter::heldRange() const
{
    const int subtype = format_.format & SF_FORMAT_SUBMASK;
    if (subtype == SF_FORMAT_FLOAT || subtype == SF_FORMAT_DOUBLE) return {false, 0.0, 0.0};
    if (integerScale_ > 0.0) {
        const double perStep = sampleScale_ / integerScale_;
        return {true, -integerScale_ * perStep, (integerScale_ - 1.0) * perStep};
    }
    return {true, -sampleScale_, sampleScale_};
}

void AudioWriter::writeFloats(const float* interleaved, std::int64_t frames)
{
    if (sf_writef_float(file_.get(), interleaved, frames) != frames)
        throw CliError("error writing '" + target_ + "': " + sf_strerror(file_.get()));
}

void AudioWriter::commit()
{
    if (sf_close(file_.release()) != 0) throw CliError("error finishing '" + target_ + "'");
    partial_.commitTo(target_);
}

void requireOutputFor(const AudioReader& input, const std::string& output)
{
    requireFileTarget(output, "output '" + output + "'");
    struct stat in {}, out {};
    if (stat(output.c_str(), &out) == 0 && stat(input.path().c_str(), &in) == 0 && in.st_dev == out.st_dev &&
        in.st_ino == out.st_ino)
        throw CliError("output '" + output + "' is the input file; choose another name");
    outputFormatFor(output, input.info());
}
