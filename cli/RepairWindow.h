// The stretch of audio a repair works on: every sample the method reads or writes
// around the region (methodReach, the region placed where the method expects it),
// as the module's hosts must provide it. Parts of the stretch beyond the file's
// ends are zeros, so the module never reads outside memory.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct RepairWindow {
    std::int64_t first = 0;  // file frame of the window's first sample (may be negative)
    std::int64_t length = 0;
    int startInWindow = 0;   // the region's first sample within the window
};

struct RepairOutcome {
    int result = 0;
    int leftFade = 0;
    int rightFade = 0;
};

// The method's row, read through the C API.
struct MethodInfo {
    int index;
    std::string name;
    int maxGapMs;
};

// The frames of the window that exist in audio of `frames` frames, [first, end) in
// the audio's own frame numbers; the window holds zeros everywhere else.
struct FrameSpan {
    std::int64_t first = 0;
    std::int64_t end = 0;
};
FrameSpan framesInside(const RepairWindow& window, std::int64_t frames);

// Throws CliError unless the region lies inside audio of `frames` frames; `source`
// names the audio in the message ("'in.wav'").
void requireRegionInside(std::int64_t start, std::int64_t length, std::int64_t frames,
                         const std::string& source);

// Method by number ("2") or by name, case-insensitively ("normal clicks").
// Throws CliError listing the methods when nothing matches.
MethodInfo findMethod(const std::string& text);

// The highest rate whose reach the methods' tests cover.
inline constexpr int maxRepairRate = 384000;

// Checks the rate and the region against the method's limit (in ms and samples) and
// works out the window. Throws CliError with the reason when the repair cannot be done.
RepairWindow planRepair(const MethodInfo& method, int sampleRate, std::int64_t start,
                        std::int64_t length);

// Throws CliError naming `who` when a repaired window holds infinities or NaN: a
// method's single-precision sums overflow on audio far louder than any recording's
// scale (squares beyond float's range, from samples of about 1e19 up). The windows
// hold none before (the command reads such samples as 0), so nothing else put them in.
void requireFiniteRepair(const std::vector<std::vector<float>>& channels, const std::string& who);

// Runs process() on per-channel windows (each window.length samples, normalised to
// [-1, 1)). Throws CliError when the module refuses, or gives samples that are not
// finite.
RepairOutcome runRepair(std::vector<std::vector<float>>& channels, int sampleRate,
                        const RepairWindow& window, int length, const MethodInfo& method);
