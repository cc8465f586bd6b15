// The part of a many-region repair that decides the bits, without file I/O: the
// method for each region (the gap filler, the choice by length, or a module method),
// the checks, the merging of overlapping or adjacent regions, and the repair of each
// from a window around it that already holds the repairs before it. The command line
// and the Python module run this same code on a file and on an array.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "RepairWindow.h"

using Channels = std::vector<std::vector<float>>;

// Longest region auto and inpaint accept, in ms.
inline constexpr int longestDropoutMs = 250;

// A region's channel when it covers every channel.
inline constexpr int allRegionChannels = -1;

// True for the methods only the region path serves.
bool isRegionMethod(const std::string& method);

// Throws CliError listing auto, inpaint and the module's methods unless `method` is one.
void requireKnownMethod(const std::string& method);

// What repairs a region: the gap filler, or a module method.
struct Choice {
    std::optional<MethodInfo> method;  // empty: the gap filler
    std::string name() const { return method ? method->name : "inpaint"; }
};

struct Region {
    int channel;  // 0-based, or allRegionChannels
    std::int64_t first, last;
    std::string origin;  // where it came from, for messages
    Choice choice;
    std::int64_t length() const { return last - first + 1; }
};

// The region of `length` samples at `start`, both as the command line takes them
// ("4410", "1.25s", "3ms"), over every channel; the names label the values in messages.
Region singleRegion(const std::string& start, const std::string& length, int rate, const std::string& startName,
                    const std::string& lengthName);

// Throws CliError unless every region lies inside audio of `channels` x `frames`;
// `source` names the audio in the message ("'in.wav'").
void requireRegionsInside(const std::vector<Region>& regions, int channels, std::int64_t frames,
                          const std::string& source);

// Sorted by start; on each of the `channels` channels, overlapping or adjacent
// regions become one, so a region given for one channel never spreads to another. A
// span that every channel ends up with alike becomes one region for all channels.
std::vector<Region> merged(const std::vector<Region>& regions, int channels);

// Sets every region's choice and checks its length against it, before anything is written.
void checkLengths(std::vector<Region>& regions, const std::string& method, int rate);

// A repaired stretch, as the module's floats.
struct Patch {
    std::int64_t first;
    Channels samples;  // per channel; empty rows for channels left alone
    RepairOutcome outcome;  // crossfades of a waveform method, else zeros

    std::int64_t end() const;
    bool meets(std::int64_t from, std::int64_t count) const;
};

// The audio being repaired, frame-addressed.
class FrameSource {
public:
    virtual ~FrameSource() = default;
    virtual int channels() const = 0;
    virtual int sampleRate() const = 0;
    virtual std::int64_t frames() const = 0;
    // Writes frames [from, end), all inside the audio, to data[c][offset + ...].
    virtual void read(std::int64_t from, std::int64_t end, Channels& data, std::int64_t offset) = 0;
};

// Repairs the checked, merged regions in order, each from the audio with the earlier
// patches in; returns one patch per region.
std::vector<Patch> repairAll(FrameSource& source, const std::vector<Region>& regions);
