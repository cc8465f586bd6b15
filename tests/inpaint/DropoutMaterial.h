// Real recordings and seeded dropouts for measuring gap fillers: music from the
// hedgewars-data package, English and German speech from ktuberling-data (both
// installed by scripts/install-deps.sh), and the mean SNR of a filler over a set of
// gaps, as a user would judge it: everything the filler changes, inside or outside
// the gap, counts as error against the gap's energy.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "inpaint/GapFiller.h"

namespace inpaint_test {

struct Recording {
    std::string name;
    int rate = 0;
    std::vector<std::vector<float>> channels;  // at least two
};

inline constexpr const char* musicFolder = "/usr/share/games/hedgewars/Data/Music";

// `files` music pieces of `folder` after the first `skip` (in name order), `seconds` of
// each from 30 s in; empty when none are installed.
std::vector<Recording> loadMusic(int files, double seconds, const std::string& folder = musicFolder, int skip = 0);
// Every installed stereo word of the languages (English and German unless told), joined
// into one recording.
std::vector<Recording> loadSpeech(const std::vector<std::string>& languages = {"en", "de"});

struct Gap {
    int recording;
    int start;
    int length;
};

// `count` gaps of `ms` milliseconds inside audio (both channels' rms over the gap and
// 10 ms around it above -40 dBFS), with `margin` samples on each side, chosen by a
// generator seeded with `seed`.
std::vector<Gap> makeGaps(const std::vector<Recording>& recordings, double ms, int count,
                          std::uint32_t seed, int margin);

// A filler rewrites the gap of a window (channels of equal length) in place; it may
// change other samples, which count as error.
using Filler = std::function<void(std::vector<std::vector<float>>& window, int gapStart,
                                  int gapLength, int rate)>;

// Gap SNR in dB of one filled window against the original.
double gapSnr(const std::vector<std::vector<float>>& original,
              const std::vector<std::vector<float>>& filled, int gapStart, int gapLength);

// Mean gap SNR over the gaps; each window has `margin` samples on each side.
double meanSnr(const std::vector<Recording>& recordings, const std::vector<Gap>& gaps, int margin,
               const Filler& filler);

// Samples of context every filler of the comparison may read, at a rate.
int comparisonMargin(int rate);

// The fillers of the comparison.
Filler zeroFiller();
Filler methodFiller(int method);  // process() through the C interface
Filler classicReferenceFiller();
Filler gapwiseReferenceFiller();
// The gap filler, told that the window's samples on each side of the gap are audio.
Filler gapFillerOf(const InpaintSettings& settings = {});

}  // namespace inpaint_test
