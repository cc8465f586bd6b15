// Seeded test material for the declick quality checks: excerpts of real recordings
// with synthetic damage laid on top, and the signal-to-noise measure against the
// clean excerpt. The generator uses its own integer random source, so a seed gives
// the same damage on every platform.
//
// Damage is scaled by each channel's rms, so it bites alike at any level:
//   clicks   2 a second per channel, 1-100 samples (log-uniform), peak 4-16 x rms,
//            a leading edge then a decaying rough tail;
//   crackle  40 a second per channel, 1-5 samples, peak 0.1-0.35 x rms.
#pragma once

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace declickmaterial {

struct Audio {
    int rate = 44100;
    std::vector<std::vector<float>> rows;  // one row per channel, full scale 1
    std::size_t frames() const { return rows.empty() ? 0 : rows[0].size(); }
};

// splitmix64: a tiny, portable generator.
class Random {
public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    std::uint64_t next()
    {
        std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ull);
        z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
        z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
        return z ^ (z >> 31);
    }
    // Uniform in [0, 1).
    double uniform() { return static_cast<double>(next() >> 11) * (1.0 / 9007199254740992.0); }
    double uniform(double low, double high) { return low + (high - low) * uniform(); }
    int below(int count) { return static_cast<int>(uniform() * count); }
    double sign() { return (next() >> 63) != 0 ? 1.0 : -1.0; }

private:
    std::uint64_t state_;
};

inline Audio readAudio(const std::string& path)
{
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) throw std::runtime_error("cannot read " + path);
    std::vector<float> interleaved(static_cast<std::size_t>(info.frames) * info.channels);
    const sf_count_t got = sf_readf_float(file, interleaved.data(), info.frames);
    sf_close(file);
    Audio audio;
    audio.rate = info.samplerate;
    audio.rows.assign(info.channels, std::vector<float>(static_cast<std::size_t>(got)));
    for (sf_count_t t = 0; t < got; ++t)
        for (int c = 0; c < info.channels; ++c) audio.rows[c][t] = interleaved[t * info.channels + c];
    return audio;
}

// `seconds` of the audio from `start` on (less at the end).
inline Audio excerpt(Audio audio, double start, double seconds)
{
    const auto first = std::min<std::size_t>(static_cast<std::size_t>(start * audio.rate), audio.frames());
    const auto count = std::min<std::size_t>(static_cast<std::size_t>(seconds * audio.rate), audio.frames() - first);
    for (auto& row : audio.rows) row = std::vector<float>(row.begin() + first, row.begin() + first + count);
    return audio;
}

// 32-bit float WAV: nothing of the material is rounded on the way to the command.
inline void writeAudio(const std::string& path, const Audio& audio)
{
    SF_INFO info{};
    info.samplerate = audio.rate;
    info.channels = static_cast<int>(audio.rows.size());
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) throw std::runtime_error("cannot write " + path);
    std::vector<float> interleaved(audio.frames() * audio.rows.size());
    for (std::size_t t = 0; t < audio.frames(); ++t)
        for (std::size_t c = 0; c < audio.rows.size(); ++c) interleaved[t * audio.rows.size() + c] = audio.rows[c][t];
    sf_writef_float(file, interleaved.data(), static_cast<sf_count_t>(audio.frames()));
    sf_close(file);
}

// The recordings one after another (all of one rate and channel count).
inline Audio readConcatenated(const std::vector<std::string>& paths)
{
    Audio whole = readAudio(paths.at(0));
    for (std::size_t p = 1; p < paths.size(); ++p) {
        const Audio part = readAudio(paths[p]);
        for (std::size_t c = 0; c < whole.rows.size(); ++c)
            whole.rows[c].insert(whole.rows[c].end(), part.rows.at(c).begin(), part.rows.at(c).end());
    }
    return whole;
}

inline double rms(const std::vector<float>& row)
{
    double sum = 0.0;
    for (float v : row) sum += double(v) * v;
    return row.empty() ? 0.0 : std::sqrt(sum / static_cast<double>(row.size()));
}

struct DamageKind {
    double perSecond;
    int shortest, longest;  // samples
    double lowPeak, highPeak;  // times the channel's rms
    bool roughTail;
};

inline constexpr DamageKind clicks{2.0, 1, 100, 4.0, 16.0, true};
inline constexpr DamageKind crackle{40.0, 1, 5, 0.1, 0.35, false};

inline void addDamage(Audio& audio, const DamageKind& kind, std::uint64_t seed)
{
    Random random(seed);
    for (auto& row : audio.rows) {
        const double level = rms(row);
        const double meanGap = audio.rate / kind.perSecond;
        std::size_t at = static_cast<std::size_t>(random.uniform() * meanGap);
        while (at + kind.longest < row.size()) {
            const int length = static_cast<int>(std::exp(random.uniform(std::log(kind.shortest), std::log(kind.longest + 1.0))));
            const double peak = random.uniform(kind.lowPeak, kind.highPeak) * level;
            const double sign = random.sign();
            for (int i = 0; i < length; ++i) {
                const double shape = kind.roughTail && i > 0 ? 0.6 * random.uniform(-1.0, 1.0) + 0.4 * sign : sign;
                const double decay = kind.roughTail ? std::exp(-3.0 * i / length) : 1.0 - 0.5 * i / length;
                row[at + i] += static_cast<float>(peak * decay * shape);
            }
            at += length + static_cast<std::size_t>(-std::log(1.0 - random.uniform()) * meanGap);
        }
    }
}

// 10 log10(clean power / error power) over every channel, dB.
inline double snrDb(const Audio& clean, const Audio& test)
{
    double signal = 0.0, error = 0.0;
    for (std::size_t c = 0; c < clean.rows.size(); ++c)
        for (std::size_t t = 0; t < clean.frames(); ++t) {
            const double e = double(test.rows[c][t]) - clean.rows[c][t];
            signal += double(clean.rows[c][t]) * clean.rows[c][t];
            error += e * e;
        }
    return error > 0.0 ? 10.0 * std::log10(signal / error) : INFINITY;
}

}  // namespace declickmaterial
