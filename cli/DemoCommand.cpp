// `ferrotip demo`: damages a generated, recording-like stereo signal in the way
// each method is made for, repairs it through the C API, and prints how close
// each repair came to the original. With --write it also saves a damaged file
// to try `ferrotip repair` on.
#include <sndfile.h>

#include <cctype>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "Commands.h"
#include "RepairWindow.h"

namespace {

constexpr int demoRate = 44100;
constexpr int demoFrames = 13 * demoRate;  // room for six seconds of context on each side
constexpr int regionStart = 6 * demoRate + 12345;
constexpr unsigned noiseSeed = 12345;

// A sustained chord with vibrato, a slow tremolo and a little hiss: close enough
// to a recording for both the AR models and the waveform search.
std::vector<std::vector<float>> recordingLike()
{
    std::vector<std::vector<float>> audio(2, std::vector<float>(demoFrames));
    unsigned state = noiseSeed;
    const double notes[] = {200.0, 250.0, 300.0};  // a just major triad
    for (int t = 0; t < demoFrames; ++t) {
        const double time = static_cast<double>(t) / demoRate;
        const double vibrato = 1.0 + 0.0001 * std::sin(2.0 * M_PI * 4.5 * time);
        const double tremolo = 0.8 + 0.2 * std::sin(2.0 * M_PI * 0.7 * time);
        for (int c = 0; c < 2; ++c) {
            double v = 0.0;
            for (int n = 0; n < 3; ++n)
                for (int h = 1; h <= 4; ++h)
                    v += 0.08 / h * std::sin(2.0 * M_PI * notes[n] * h * vibrato * time + n + c * h);
            state = state * 1664525u + 1013904223u;
            const double hiss = ((state >> 9) / 8388608.0 - 0.5) * 0.004;
            audio[c][t] = static_cast<float>(tremolo * v + hiss);
        }
    }
    return audio;
}

// Damage suited to each method: clicks for the straight line and the AR methods,
// a dropout of buzz for waveform replacement.
int damageLength(int method) { return method == 0 ? 6 : method == 1 ? 40 : method == 2 ? 120 : 2000; }

// A click is a sharp step that rings down; a dropout replaces the audio by buzz.
void damage(std::vector<std::vector<float>>& audio, int start, int length)
{
    for (auto& channel : audio)
        for (int i = 0; i < length; ++i) {
            const float ringing = 0.7f * std::exp(-4.0f * i / length) * (i % 2 ? -1.0f : 1.0f);
            if (length > 500) channel[start + i] = 0.3f * (i % 50 < 25 ? 1.0f : -1.0f);
            else channel[start + i] += ringing;
        }
}

double snrDb(const std::vector<std::vector<float>>& clean, const std::vector<std::vector<float>>& x,
             int start, int length)
{
    double signal = 0.0, error = 0.0;
    for (std::size_t c = 0; c < clean.size(); ++c)
        for (int i = start; i < start + length; ++i) {
            signal += double(clean[c][i]) * clean[c][i];
            error += (double(x[c][i]) - clean[c][i]) * (double(x[c][i]) - clean[c][i]);
        }
    return 10.0 * std::log10(signal / std::max(error, 1e-30));
}

std::vector<std::vector<float>> windowOf(const std::vector<std::vector<float>>& audio,
                                         const RepairWindow& window)
{
    std::vector<std::vector<float>> data(audio.size(), std::vector<float>(window.length, 0.0f));
    for (std::size_t c = 0; c < audio.size(); ++c)
        for (std::int64_t i = 0; i < window.length; ++i) {
            const std::int64_t frame = window.first + i;
            if (frame >= 0 && frame < demoFrames) data[c][i] = audio[c][frame];
        }
    return data;
}

void runMethod(const std::vector<std::vector<float>>& clean, int index)
{
    const MethodInfo method = findMethod(std::to_string(index));
    const int length = damageLength(index);
    auto damaged = clean;
    damage(damaged, regionStart, length);
    const RepairWindow window = planRepair(method, demoRate, regionStart, length);
    auto repairedWindow = windowOf(damaged, window);
    runRepair(repairedWindow, demoRate, window, length, method);
    auto repaired = damaged;
    for (std::size_t c = 0; c < repaired.size(); ++c)
        for (std::int64_t i = 0; i < window.length; ++i) {
            const std::int64_t frame = window.first + i;
            if (frame >= 0 && frame < demoFrames) repaired[c][frame] = repairedWindow[c][i];
        }
    std::printf("%d  %-27s %5d samples  %7.1f dB  %7.1f dB\n", index, method.name.c_str(), length,
                snrDb(clean, damaged, regionStart, length), snrDb(clean, repaired, regionStart, length));
}

void writeDamagedExample(const std::string& path, const std::vector<std::vector<float>>& clean)
{
    auto damaged = clean;
    damage(damaged, demoRate, damageLength(2));  // a 120-sample click at 1 s
    damage(damaged, 3 * demoRate, damageLength(3));  // a 2000-sample dropout at 3 s
    SF_INFO info{};
    info.samplerate = demoRate;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    AudioWriter writer(path, info);
    std::vector<double> interleaved(2 * static_cast<std::size_t>(demoFrames));
    for (int t = 0; t < demoFrames; ++t)
        for (int c = 0; c < 2; ++c) interleaved[2 * t + c] = damaged[c][t];
    writer.write(interleaved.data(), demoFrames);
    writer.commit();
    std::printf("\nwrote %s: a 120-sample click at 1s (44100) and a 2000-sample dropout at 3s (132300)\n",
                path.c_str());
}

void runDemo(const std::string& writePath)
{
    if (!writePath.empty()) {
        std::string extension = std::filesystem::path(writePath).extension().string();
        for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        if (extension != ".wav")
            throw CliError("--write '" + writePath + "': the example is a float WAV file; give a name ending in .wav");
        requireFileTarget(writePath, "--write '" + writePath + "'");
    }
    const auto clean = recordingLike();
    std::printf("signal-to-error ratio over the damaged region (higher is closer to the original)\n");
    std::printf("#  %-27s %13s  %10s  %10s\n", "method", "damage", "damaged", "repaired");
    for (int index = 0; index < 7; ++index) runMethod(clean, index);
    if (!writePath.empty()) writeDamagedExample(writePath, clean);
}

}  // namespace

void addDemoCommand(CLI::App& app)
{
    auto writePath = std::make_shared<std::string>();
    CLI::App* command = app.add_subcommand(
        "demo", "Damage a generated recording, repair it with every method, print how close each came");
    command->add_option("--write", *writePath, "also save a damaged example file (WAV) to this path");
    command->callback([writePath] { runDemo(*writePath); });
}
