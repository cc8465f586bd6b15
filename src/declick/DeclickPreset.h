// Settings for driving the crackle engines over a recording, and the named presets.
//
// A setting fixes the engine, the block size and one or two passes, each with its
// click sensitivity and spectral floor; a second pass runs on the first one's output
// (the engines are chained, their latencies add). The floor is a bin power (spectra
// scaled by 1/2048); a preset gives it relative to the channel's mean square (samples
// at full scale 1), so the same preset treats a recording and the same recording
// 20 dB quieter alike. Plain data: nothing allocates, every call may run on any thread.
#pragma once

#include <array>
#include <span>
#include <string_view>

enum class DeclickEngineKind { standard, prediction };

struct SpectralFloorRule {
    bool relativeToLevel = true;  // value is a factor of the mean square, else a bin power
    double value = 0.0;

    // The engine's floor for a channel of the given mean square.
    float floorFor(double meanSquare) const;
};

struct DeclickPass {
    float sensitivity = 12.0f;
    SpectralFloorRule floor;
};

struct DeclickSettings {
    static constexpr int maxPasses = 2;
    DeclickEngineKind engine = DeclickEngineKind::standard;
    int block = 512;
    std::array<DeclickPass, maxPasses> passes{};
    int passCount = 1;
    // Loud clicks are filled again by least-squares AR after the passes (ClickRefill).
    bool refillClicks = false;
    // Impulses the passes let through (far louder than the music) are found in the
    // input and filled the same way.
    bool findImpulses = true;
    // So is the fine crackle they let through (faint beside the music), each filled
    // by least-squares AR of a high order (with findImpulses only).
    bool fillFineCrackle = false;

    std::span<const DeclickPass> activePasses() const { return {passes.data(), static_cast<std::size_t>(passCount)}; }
};

struct DeclickPreset {
    std::string_view name;
    std::string_view purpose;
    DeclickSettings settings;
    // Where the engines run alone, without the refill and the searches after them
    // (which read audio well after each click): streams, plug-ins, --no-refill.
    DeclickSettings enginesAlone;
};

// Every preset, the default first.
std::span<const DeclickPreset> declickPresets();
const DeclickPreset& defaultDeclickPreset();
// The preset of that name, or nullptr.
const DeclickPreset* findDeclickPreset(std::string_view name);
