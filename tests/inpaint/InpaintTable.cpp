// Prints the mean gap SNR (dB) of every filler on music and speech, one row per
// material and gap length, all measured in one run on the same seeded gaps.
//   inpaint_table [--gaps N] [--long-gaps N] [--lengths 5,10,...] [--fillers zero,m0,...]
//                 [--materials music,speech] [--files N] [--seeds 19,23,...] [--music-dir DIR]
//                 [--skip-files N] [--languages en,de] [--music-seconds S] [--context S]
//                 [--decimals N]
// Each seed draws --gaps gaps per length and a row is the mean over all of them: one
// seed's few gaps move a row by a decibel, so a change is judged on several. (Other
// seeds, folders and languages check a change on material it was not tuned on.) Music
// is --music-seconds (20) of each piece from 30 s in; every filler sees --context
// seconds (6.5) on each side of a gap, and gaps lie no nearer the ends than that.
// Fillers: zero, m0..m6 (the module's methods), classic and gapwise (the plain
// references; at 100 ms and above on the first --long-gaps gaps of each seed only, as they are
// slow), inpaint, auto. INPAINT_CANDIDATES (a comma list of candidates, each
// context:order:passes:maxGap[:minGap[:sidedShare]] in ms), INPAINT_HOLD_OUT_MS,
// INPAINT_PATTERN (minGap:reach:border:trust), INPAINT_LONG (borderShare:longTrust:longGap),
// INPAINT_ERROR_WEIGHTS (maxGap:power), INPAINT_SIDED (maxGap:iterations), INPAINT_WHITE,
// INPAINT_REPEAT (reach:trust:minGap:maxGap in ms; reach 0: no repeat search),
// INPAINT_NEXT_TO_GAP (maxGap:width in ms of the validation next to the gap; maxGap 0:
// stretches an order away at every length),
// INPAINT_NO_VALIDATION and INPAINT_EDGE_ITERATIONS (iterations[:maxGap]) set the filler's
// parameters for experiments. INPAINT_EDGE=N ends the recording N samples after each gap
// (INPAINT_EDGE_SIDE=before: N samples before it), and the filler is told so unless INPAINT_EDGE_BLIND is set (then it takes silence past the end).
// INPAINT_DUMP=DIR writes each gap as raw 32-bit floats (gapNNNN_RATE_CHANNELS_LENGTH.f32:
// every channel's second before the gap, the gap and the second after it, then every
// channel's fill) for study outside the program; INPAINT_EACH_GAP prints each gap's SNR
// to the error stream (recording, start, length, dB), to compare fillers gap by gap.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "inpaint/DropoutMaterial.h"
#include "inpaint/AutoChoice.h"
#include "inpaint/GapFiller.h"

using namespace inpaint_test;

namespace {

std::vector<std::string> split(const std::string& text)
{
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, ',');) parts.push_back(part);
    return parts;
}

InpaintSettings settingsFromEnvironment()
{
    InpaintSettings s;
    if (const char* v = std::getenv("INPAINT_CANDIDATES")) {
        const auto parts = split(v);
        for (int i = 0; i < InpaintSettings::maxCandidates; ++i) {
            InpaintCandidate c;
            if (i < static_cast<int>(parts.size()))
                std::sscanf(parts[i].c_str(), "%lf:%lf:%d:%lf:%lf:%lf", &c.contextMs, &c.orderMs, &c.passes, &c.maxGapMs,
                            &c.minGapMs, &c.sidedShare);
            s.candidates[i] = c;
        }
    }
    if (const char* v = std::getenv("INPAINT_PATTERN"))
        std::sscanf(v, "%lf:%lf:%lf:%lf", &s.patternMinGapMs, &s.patternReachMs, &s.patternBorderMs,
                    &s.patternTrust);
    if (const char* v = std::getenv("INPAINT_LONG"))
        std::sscanf(v, "%lf:%lf:%lf", &s.patternBorderShare, &s.patternLongTrust, &s.patternLongGapMs);
    if (const char* v = std::getenv("INPAINT_PERIODIC"))
        std::sscanf(v, "%lf:%lf:%lf:%lf:%lf", &s.periodicMinGapMs, &s.periodicMinMs, &s.periodicMaxMs,
                    &s.periodicWindowMs, &s.periodicTrust);
    if (const char* v = std::getenv("INPAINT_REPEAT"))
        std::sscanf(v, "%lf:%lf:%lf:%lf", &s.repetitionReachMs, &s.repetitionTrust, &s.repetitionMinGapMs,
                    &s.repetitionMaxGapMs);
    if (const char* v = std::getenv("INPAINT_HOLD_OUT_MS")) s.holdOutMaxGapMs = std::atof(v);
    if (const char* v = std::getenv("INPAINT_NEXT_TO_GAP"))
        std::sscanf(v, "%lf:%lf", &s.nextToGapMaxGapMs, &s.nextToGapWidthMs);
    if (std::getenv("INPAINT_NO_VALIDATION")) s.validate = false;
    if (const char* v = std::getenv("INPAINT_SIDED")) std::sscanf(v, "%lf:%d", &s.sidedMaxGapMs, &s.sidedIterations);
    if (const char* v = std::getenv("INPAINT_WHITE")) s.whiteFloor = std::atof(v);
    if (const char* v = std::getenv("INPAINT_EDGE_ITERATIONS")) std::sscanf(v, "%d:%lf", &s.edgeIterations, &s.edgeMaxGapMs);
    if (const char* v = std::getenv("INPAINT_ERROR_WEIGHTS"))
        std::sscanf(v, "%lf:%d", &s.errorWeightMaxGapMs, &s.errorWeightPower);
    return s;
}

Filler gapFiller(const InpaintSettings& settings)
{
    return [settings](std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate) {
        if (const char* edge = std::getenv("INPAINT_EDGE")) {
            const int keep = std::atoi(edge);
            const char* side = std::getenv("INPAINT_EDGE_SIDE");
            const bool before = side && std::string(side) == "before";
            auto cut = window;
            for (auto& channel : cut) {
                if (before) std::fill(channel.begin(), channel.begin() + gapStart - keep, 0.0f);
                else std::fill(channel.begin() + gapStart + gapLength + keep, channel.end(), 0.0f);
            }
            GapFiller filler(rate, gapLength, static_cast<int>(cut.size()), settings);
            std::vector<float*> pointers;
            for (auto& channel : cut) pointers.push_back(channel.data());
            const int reach = std::min(filler.contextLength(gapLength), gapStart);
            if (std::getenv("INPAINT_EDGE_BLIND"))
                filler.fill(pointers.data(), static_cast<int>(pointers.size()), gapStart, gapLength, reach, reach);
            else
                filler.fill(pointers.data(), static_cast<int>(pointers.size()), gapStart, gapLength,
                            before ? keep : reach, before ? reach : keep);
            for (std::size_t c = 0; c < window.size(); ++c)
                std::copy_n(cut[c].begin() + gapStart, gapLength, window[c].begin() + gapStart);
            return;
        }
        gapFillerOf(settings)(window, gapStart, gapLength, rate);
    };
}

Filler autoFiller()
{
    return [](std::vector<std::vector<float>>& window, int gapStart, int gapLength, int rate) {
        const int method = autoMethodFor(gapLength, rate);
        if (method == autoUsesGapFiller) gapFiller(InpaintSettings{})(window, gapStart, gapLength, rate);
        else methodFiller(method)(window, gapStart, gapLength, rate);
    };
}

Filler namedFiller(const std::string& name)
{
    if (name == "auto") return autoFiller();
    if (name == "zero") return zeroFiller();
    if (name.size() == 2 && name[0] == 'm') return methodFiller(name[1] - '0');
    if (name == "classic") return classicReferenceFiller();
    if (name == "gapwise") return gapwiseReferenceFiller();
    if (name == "inpaint") return gapFiller(settingsFromEnvironment());
    std::fprintf(stderr, "unknown filler '%s'\n", name.c_str());
    std::exit(2);
}

// Every seed's gaps, and for the slow references the first `slowCount` of each seed's.
struct GapSets {
    std::vector<Gap> all, slow;
};

GapSets gapsOverSeeds(const std::vector<Recording>& recordings, double ms, int count, int slowCount,
                      const std::vector<std::string>& seeds, int margin)
{
    GapSets sets;
    for (const auto& seed : seeds) {
        const auto gaps = makeGaps(recordings, ms, count, static_cast<std::uint32_t>(std::atoi(seed.c_str())), margin);
        sets.all.insert(sets.all.end(), gaps.begin(), gaps.end());
        sets.slow.insert(sets.slow.end(), gaps.begin(),
                         gaps.begin() + std::min<std::size_t>(gaps.size(), slowCount));
    }
    return sets;
}

}  // namespace

int main(int argc, char** argv)
{
    int gapCount = 8, longGapCount = 2, files = 8;
    std::string lengths = "5,10,20,50,100,249";
    std::string fillers = "zero,m0,m1,m2,m3,m4,m5,m6,classic,gapwise,inpaint,auto";
    std::string materials = "music,speech";
    std::string musicDir = musicFolder, languages = "en,de";
    std::string seeds = "19";
    int skipFiles = 0, decimals = 1;
    double musicSeconds = 20.0, contextSeconds = 0.0;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i], value = argv[i + 1];
        if (option == "--gaps") gapCount = std::atoi(value.c_str());
        else if (option == "--long-gaps") longGapCount = std::atoi(value.c_str());
        else if (option == "--lengths") lengths = value;
        else if (option == "--fillers") fillers = value;
        else if (option == "--materials") materials = value;
        else if (option == "--files") files = std::atoi(value.c_str());
        else if (option == "--seeds" || option == "--seed") seeds = value;
        else if (option == "--music-dir") musicDir = value;
        else if (option == "--skip-files") skipFiles = std::atoi(value.c_str());
        else if (option == "--languages") languages = value;
        else if (option == "--music-seconds") musicSeconds = std::atof(value.c_str());
        else if (option == "--context") contextSeconds = std::atof(value.c_str());
        else if (option == "--decimals") decimals = std::atoi(value.c_str());
    }
    std::printf("| gap |");
    for (const auto& f : split(fillers)) std::printf(" %s |", f.c_str());
    std::printf("\n|---|");
    for (std::size_t i = 0; i < split(fillers).size(); ++i) std::printf("---|");
    std::printf("\n");
    for (const auto& material : split(materials)) {
        const auto recordings = material == "music" ? loadMusic(files, musicSeconds, musicDir, skipFiles)
                                                      : loadSpeech(split(languages));
        if (recordings.empty()) { std::printf("(no %s installed)\n", material.c_str()); continue; }
        const int rate = recordings[0].rate;
        const int margin = contextSeconds > 0.0 ? static_cast<int>(contextSeconds * rate) : comparisonMargin(rate);
        for (const auto& length : split(lengths)) {
            const double ms = std::atof(length.c_str());
            const auto gaps = gapsOverSeeds(recordings, ms, gapCount, longGapCount, split(seeds), margin);
            std::printf("| %s, %s ms |", material.c_str(), length.c_str());
            std::fflush(stdout);
            for (const auto& f : split(fillers)) {
                const bool slow = (f == "classic" || f == "gapwise") && ms >= 100;
                const auto& used = slow ? gaps.slow : gaps.all;
                std::printf(" %.*f%s |", decimals, meanSnr(recordings, used, margin, namedFiller(f)),
                            used.size() < gaps.all.size() ? "*" : "");
                std::fflush(stdout);
            }
            std::printf("\n");
        }
    }
    std::printf("(seeds %s, %d gaps per seed and length; * the reference on the first %d of each seed's only)\n",
                seeds.c_str(), gapCount, longGapCount);
}
