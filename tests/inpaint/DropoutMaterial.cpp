#include "inpaint/DropoutMaterial.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <cstdio>
#include <cstdlib>
#include <random>

#include <ferrotip/ferrotip.h>

#include "inpaint/ReferenceInpainters.h"

namespace inpaint_test {

namespace {

Recording readPart(const std::filesystem::path& path, double fromSeconds, double seconds)
{
    Recording r;
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return r;
    if (info.channels >= 2) {
        const sf_count_t from = static_cast<sf_count_t>(fromSeconds * info.samplerate);
        sf_count_t frames = info.frames - from;
        if (seconds > 0) frames = std::min<sf_count_t>(frames, seconds * info.samplerate);
        if (frames > 0 && sf_seek(file, from, SEEK_SET) >= 0) {
            std::vector<float> interleaved(frames * info.channels);
            frames = sf_readf_float(file, interleaved.data(), frames);
            r.name = path.filename().string();
            r.rate = info.samplerate;
            r.channels.assign(2, std::vector<float>(frames));
            for (sf_count_t f = 0; f < frames; ++f)
                for (int c = 0; c < 2; ++c) r.channels[c][f] = interleaved[f * info.channels + c];
        }
    }
    sf_close(file);
    return r;
}

std::vector<std::filesystem::path> sortedFiles(const std::string& folder, const std::string& ext)
{
    std::vector<std::filesystem::path> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        if (entry.path().extension() == ext) files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    return files;
}

double rms(const Recording& r, int from, int count)
{
    double energy = 0.0;
    for (const auto& channel : r.channels)
        for (int i = from; i < from + count; ++i) energy += double(channel[i]) * channel[i];
    return std::sqrt(energy / (count * r.channels.size()));
}

void processFill(std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate,
                 int method)
{
    std::vector<float*> pointers;
    for (auto& channel : window) pointers.push_back(channel.data());
    int left = 0, right = 0;
    const int result = process(nullptr, pointers.data(), static_cast<int>(pointers.size()), rate,
                               gapStart, gapLength, method, &left, &right);
    if (result != 0)  // refused: the gap stays as it is (silent)
        for (auto& channel : window) std::fill_n(channel.begin() + gapStart, gapLength, 0.0f);
}

using Reference = void (*)(inpaint_reference::Segment&, int);

void referenceFill(std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate,
                   Reference reference)
{
    for (auto& channel : window) {
        inpaint_reference::Segment s{std::vector<double>(channel.begin(), channel.end()), gapStart,
                                     gapLength};
        reference(s, rate);
        for (int i = 0; i < gapLength; ++i)
            channel[gapStart + i] = static_cast<float>(s.samples[gapStart + i]);
    }
}

}  // namespace

std::vector<Recording> loadMusic(int files, double seconds, const std::string& folder, int skip)
{
    std::vector<Recording> music;
    for (const auto& path : sortedFiles(folder, ".ogg")) {
        if (static_cast<int>(music.size()) >= files) break;
        if (skip > 0) { --skip; continue; }
        Recording r = readPart(path, 30.0, seconds);
        if (r.rate > 0 && r.channels[0].size() > 0) music.push_back(std::move(r));
    }
    return music;
}

std::vector<Recording> loadSpeech(const std::vector<std::string>& languages)
{
    Recording joined;
    joined.name = "speech";
    for (const auto& language : languages) {
        for (const auto& path : sortedFiles("/usr/share/ktuberling/sounds/" + language, ".ogg")) {
            Recording r = readPart(path, 0.0, 0.0);
            if (r.rate == 0 || (joined.rate != 0 && r.rate != joined.rate)) continue;
            joined.rate = r.rate;
            if (joined.channels.empty()) joined.channels.resize(2);
            for (int c = 0; c < 2; ++c)
                joined.channels[c].insert(joined.channels[c].end(), r.channels[c].begin(), r.channels[c].end());
        }
    }
    if (joined.rate == 0) return {};
    return {joined};
}

std::vector<Gap> makeGaps(const std::vector<Recording>& recordings, double ms, int count,
                          std::uint32_t seed, int margin)
{
    std::vector<Gap> gaps;
    if (recordings.empty()) return gaps;
    std::mt19937 generator(seed);
    const double floor = std::pow(10.0, -40.0 / 20.0);
    for (int attempt = 0; attempt < 100000 && static_cast<int>(gaps.size()) < count; ++attempt) {
        const int which = static_cast<int>(generator() % recordings.size());
        const Recording& r = recordings[which];
        const int length = static_cast<int>(std::lround(ms * r.rate / 1000.0));
        const int around = r.rate / 100;
        const int size = static_cast<int>(r.channels[0].size());
        const int room = size - 2 * margin - length;
        if (room <= 0) continue;
        const int start = margin + static_cast<int>(generator() % room);
        if (rms(r, start, length) < floor || rms(r, start - around, around) < floor ||
            rms(r, start + length, around) < floor)
            continue;
        gaps.push_back({which, start, length});
    }
    return gaps;
}

double gapSnr(const std::vector<std::vector<float>>& original,
              const std::vector<std::vector<float>>& filled, int gapStart, int gapLength)
{
    double signal = 0.0, error = 0.0;
    for (std::size_t c = 0; c < original.size(); ++c) {
        for (int i = gapStart; i < gapStart + gapLength; ++i) signal += double(original[c][i]) * original[c][i];
        for (std::size_t i = 0; i < original[c].size(); ++i) {
            const double d = double(filled[c][i]) - original[c][i];
            error += d * d;
        }
    }
    if (error <= 0.0) return 200.0;
    return 10.0 * std::log10(signal / error);
}

namespace {

// One gap for study outside the program (see InpaintTable.cpp): a second of every
// channel on each side of it, then every channel's fill.
void dumpGap(const char* dir, const std::vector<std::vector<float>>& original,
             const std::vector<std::vector<float>>& filled, int gapStart, int gapLength, int rate)
{
    static int index = 0;
    const int side = std::min(rate, gapStart);
    char name[512];
    std::snprintf(name, sizeof name, "%s/gap%04d_%d_%zu_%d.f32", dir, index++, rate, original.size(), gapLength);
    FILE* file = std::fopen(name, "wb");
    if (!file) return;
    for (const auto& channel : original) std::fwrite(channel.data() + gapStart - side, 4, 2 * side + gapLength, file);
    for (const auto& channel : filled) std::fwrite(channel.data() + gapStart, 4, gapLength, file);
    std::fclose(file);
}

}  // namespace

double meanSnr(const std::vector<Recording>& recordings, const std::vector<Gap>& gaps, int margin,
               const Filler& filler)
{
    double sum = 0.0;
    for (const Gap& gap : gaps) {
        const Recording& r = recordings[gap.recording];
        std::vector<std::vector<float>> original;
        for (const auto& channel : r.channels)
            original.emplace_back(channel.begin() + gap.start - margin,
                                  channel.begin() + gap.start + gap.length + margin);
        auto window = original;
        for (auto& channel : window) std::fill_n(channel.begin() + margin, gap.length, 0.0f);
        filler(window, margin, gap.length, r.rate);
        const double snr = gapSnr(original, window, margin, gap.length);
        sum += snr;
        if (std::getenv("INPAINT_EACH_GAP"))
            std::fprintf(stderr, "gap %d %d %d %.3f\n", gap.recording, gap.start, gap.length, snr);
        if (const char* dir = std::getenv("INPAINT_DUMP")) dumpGap(dir, original, window, margin, gap.length, r.rate);
    }
    return gaps.empty() ? 0.0 : sum / gaps.size();
}

int comparisonMargin(int rate)
{
    // The widest waveform methods read 6 s on each side of the region.
    return rate * 6 + rate / 2;
}

Filler zeroFiller()
{
    return [](std::vector<std::vector<float>>&, int, int, int) {};
}

Filler methodFiller(int method)
{
    return [method](std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate) {
        processFill(window, gapStart, gapLength, rate, method);
    };
}

Filler classicReferenceFiller()
{
    return [](std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate) {
        referenceFill(window, gapStart, gapLength, rate, inpaint_reference::classicJanssen);
    };
}

Filler gapwiseReferenceFiller()
{
    return [](std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate) {
        referenceFill(window, gapStart, gapLength, rate, inpaint_reference::gapwiseBurgJanssen);
    };
}

Filler gapFillerOf(const InpaintSettings& settings)
{
    return [settings](std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate) {
        GapFiller filler(rate, gapLength, static_cast<int>(window.size()), settings);
        std::vector<float*> pointers;
        for (auto& channel : window) pointers.push_back(channel.data());
        const int after = static_cast<int>(window[0].size()) - gapStart - gapLength;
        filler.fill(pointers.data(), static_cast<int>(pointers.size()), gapStart, gapLength, gapStart, after);
    };
}

}  // namespace inpaint_test
