// Real recordings for the declipper's tests and benchmarks, from Debian packages
// that scripts/install-deps.sh installs: music from lmms-common (instrument and loop
// samples), speech from ktuberling-data (French, Italian, Spanish and Dutch
// words, 8 kHz; the French ones also at 44.1 kHz, and five other languages' at
// 44.1 kHz) and dialogue from fillets-ng-data-nl (Dutch lines voiced by actors,
// 22.05 kHz). An excerpt is the first channel of files picked with the classic 15-bit
// generator from `seed`, joined end to end until `seconds` are gathered, at the
// first file's rate, scaled to a peak of 0.9. Files that are clipped already (a
// distorted sine, loud loops, some of the words) or whose crests were flattened
// before (words driven into a limiter at recording, a synthesizer's square) are left
// out: a clean reference must hold the peaks a declipper is asked to restore. Empty
// when the files are missing.
#pragma once

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include "ar/ClassicRand.h"
#include "declip/ClipLevelFinder.h"

namespace declipmaterial {

struct Excerpt {
    std::vector<float> samples;
    int sampleRate = 0;
};

inline std::vector<std::string> filesUnder(const std::vector<std::string>& folders, const std::string& extension)
{
    std::vector<std::string> files;
    for (const auto& folder : folders) {
        std::error_code error;
        for (std::filesystem::recursive_directory_iterator it(folder, error), end; !error && it != end;
             it.increment(error))
            if (it->is_regular_file() && it->path().extension() == extension) files.push_back(it->path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

inline std::vector<std::string> musicFiles() { return filesUnder({"/usr/share/lmms/samples"}, ".ogg"); }

inline std::vector<std::string> speechFiles()
{
    const std::string root = "/usr/share/ktuberling/sounds/";
    return filesUnder({root + "fr", root + "it", root + "es", root + "nl"}, ".wav");
}

// Words of five other languages of ktuberling-data at 44.1 kHz (Greek, Galician,
// Slovenian, Ukrainian, Walloon; Ogg Vorbis), which no other part's material uses.
inline std::vector<std::string> voicesFiles()
{
    const std::string root = "/usr/share/ktuberling/sounds/";
    return filesUnder({root + "el", root + "gl", root + "sl", root + "uk", root + "wa"}, ".ogg");
}

inline std::vector<std::string> dialogueFiles()
{
    std::vector<std::string> dutch;
    for (auto& file : filesUnder({"/usr/share/games/fillets-ng/sound"}, ".ogg"))
        if (file.find("/nl/") != std::string::npos) dutch.push_back(std::move(file));
    return dutch;
}

inline int sampleRateOf(const std::string& path)
{
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return 0;
    sf_close(file);
    return info.samplerate;
}

inline std::vector<std::string> filesAtRate(const std::vector<std::string>& files, int rate)
{
    std::vector<std::string> kept;
    for (const auto& file : files)
        if (sampleRateOf(file) == rate) kept.push_back(file);
    return kept;
}

// The recordings of "music", "speech" or "dialogue".
inline std::vector<std::string> filesOf(const std::string& material)
{
    if (material == "music") return musicFiles();
    if (material == "dialogue") return dialogueFiles();
    if (material == "speech44") return filesAtRate(speechFiles(), 44100);
    if (material == "voices44") return filesAtRate(voicesFiles(), 44100);
    return speechFiles();
}

// Appends the first channel of `path` when its rate is `rate` (or sets the rate).
inline void appendFile(const std::string& path, Excerpt& excerpt)
{
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return;
    if (excerpt.sampleRate == 0) excerpt.sampleRate = info.samplerate;
    if (info.samplerate == excerpt.sampleRate) {
        std::vector<float> frames(static_cast<std::size_t>(info.frames) * info.channels);
        const sf_count_t got = sf_readf_float(file, frames.data(), info.frames);
        for (sf_count_t i = 0; i < got; ++i) excerpt.samples.push_back(frames[i * info.channels]);
    }
    sf_close(file);
}

inline bool clippedAlready(const std::vector<float>& samples)
{
    ClipLevelFinder finder;
    finder.add(samples.data(), static_cast<std::int64_t>(samples.size()));
    return finder.levels().any();
}

// Whether the recording holds plateaus that are not one value: a millisecond on one
// side of zero, above half the peak, within 5% of its largest magnitude. A voice
// driven into an input stage's limit and then high-passed leaves such tilted flat
// tops; a natural waveform's crest is curved at that level.
inline bool holdsLongPlateau(const std::vector<float>& samples, int sampleRate, float peak)
{
    const std::size_t width = static_cast<std::size_t>(sampleRate / 1000);
    for (int sign : {1, -1}) {
        std::size_t run = 0;  // samples so far of the current stretch above half the peak
        for (std::size_t i = 0; i < samples.size(); ++i) {
            run = sign * samples[i] > 0.5f * peak ? run + 1 : 0;
            if (run < width) continue;
            const auto first = samples.begin() + static_cast<std::ptrdiff_t>(i + 1 - width);
            const auto [low, high] = std::minmax_element(first, first + static_cast<std::ptrdiff_t>(width));
            const float largest = sign > 0 ? *high : -*low;
            if (*high - *low < 0.05f * largest) return true;
        }
    }
    return false;
}

// The most crests of one polarity that are flat: of each stretch above half that
// polarity's peak whose own top lies within 20% of the peak, the samples within 3% of
// that top number `fewest` or more and at least `share` of the stretch (a sine's
// crest: 23%).
inline int flatCrests(const std::vector<float>& samples, std::size_t fewest, double share)
{
    int most = 0;
    for (int sign : {1, -1}) {
        float peak = 0.0f;
        for (float x : samples) peak = std::max(peak, sign * x);
        if (!(peak > 0.0f)) continue;
        int flat = 0;
        for (std::size_t i = 0; i < samples.size();) {
            if (!(sign * samples[i] > 0.5f * peak)) {
                ++i;
                continue;
            }
            std::size_t end = i;
            float top = 0.0f;
            for (; end < samples.size() && sign * samples[end] > 0.5f * peak; ++end)
                top = std::max(top, sign * samples[end]);
            std::size_t nearTop = 0;
            for (std::size_t j = i; j < end; ++j) nearTop += sign * samples[j] >= 0.97f * top ? 1 : 0;
            if (top >= 0.8f * peak && nearTop >= fewest && nearTop >= share * (end - i)) ++flat;
            i = end;
        }
        most = std::max(most, flat);
    }
    return most;
}

// A limiter at recording leaves short plateaus at one height, crest after crest: three
// crests flat over 0.3 ms and 35% of their width, or ten (a high voice's) over five
// samples and 40%. Past the clip level finder's, these tests leave out 28 of
// ktuberling-data's 185 French words at 44.1 kHz and none of its 482 words in five
// other languages; also 24 of the 176 music samples (a synthesizer's square) and 74
// of the 1614 dialogue lines.
inline bool holdsFlatCrests(const std::vector<float>& samples, int sampleRate)
{
    return flatCrests(samples, static_cast<std::size_t>(0.3e-3 * sampleRate), 0.35) >= 3 ||
           flatCrests(samples, 5, 0.4) >= 10;
}

// Whether the recording's peaks were flattened before it reached us: any later
// clipping of it would be judged against peaks it never had.
inline bool flatTopped(const std::vector<float>& samples, int sampleRate)
{
    float peak = 0.0f;
    for (float x : samples) peak = std::max(peak, std::fabs(x));
    return holdsLongPlateau(samples, sampleRate, peak) || holdsFlatCrests(samples, sampleRate);
}

inline Excerpt excerpt(const std::vector<std::string>& files, unsigned seed, double seconds)
{
    Excerpt result;
    if (files.empty()) return result;
    ferrotip::srand(seed);
    for (int attempt = 0; attempt < 1000; ++attempt) {
        if (result.sampleRate > 0 && result.samples.size() >= seconds * result.sampleRate) break;
        Excerpt file{{}, result.sampleRate};
        appendFile(files[static_cast<std::size_t>(ferrotip::rand()) % files.size()], file);
        if (file.samples.empty() || clippedAlready(file.samples) ||
            flatTopped(file.samples, file.sampleRate))
            continue;
        result.sampleRate = file.sampleRate;
        result.samples.insert(result.samples.end(), file.samples.begin(), file.samples.end());
    }
    if (result.sampleRate > 0) result.samples.resize(std::min<std::size_t>(result.samples.size(), seconds * result.sampleRate));
    float peak = 0.0f;
    for (float x : result.samples) peak = std::max(peak, std::fabs(x));
    if (peak > 0.0f)
        for (float& x : result.samples) x *= 0.9f / peak;
    return result;
}

// The excerpt of `material` ("music", "speech", "speech44", "voices44" or "dialogue").
inline Excerpt excerptOf(const std::string& material, unsigned seed, double seconds)
{
    return excerpt(filesOf(material), seed, seconds);
}

}  // namespace declipmaterial
