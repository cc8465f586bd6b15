// The settings one real-time declicker runs with, and the presets that fix them.
//
// A preset fixes the engine, the click sensitivity and the spectral floor as a
// ratio to the signal's mean square; the floor can instead be given absolutely,
// in the detector's bin-power scale (spectra scaled by 1/2048). Plain data: no
// allocation, any thread.
#pragma once

namespace ferrotip::lv2 {

enum class EngineKind : int { standard = 0, prediction = 1 };
enum class ListenMode : int { normal = 0, difference = 1, bypass = 2 };

struct DeclickSettings {
    EngineKind engine = EngineKind::standard;
    float sensitivity = 3.0f;
    bool absoluteFloor = false;
    double floorRatio = 1e-3;  // spectral floor / mean square, when relative
    float floor = 1e-7f;       // spectral floor, when absolute
    ListenMode listen = ListenMode::normal;
};

struct DeclickPreset {
    const char* name;
    EngineKind engine;
    float sensitivity;
    double floorRatio;
};

// ---- PRESET TABLE --------------------------------------------------------------
// Provisional: swap for the declick library's preset table when that lands. The
// values are the settings measured best on clicks, on fine crackle, and on material
// that should come back untouched (all at an engine block of 512).
inline constexpr DeclickPreset declickPresets[] = {
    {"clicks", EngineKind::standard, 5.0f, 1e-2},
    {"crackle", EngineKind::standard, 10.0f, 1e-5},
    {"gentle", EngineKind::standard, 12.0f, 1e-3},
};
inline constexpr int presetCount = static_cast<int>(sizeof declickPresets / sizeof declickPresets[0]);
// ---- END OF PRESET TABLE -------------------------------------------------------

// `custom` with engine, sensitivity and floor ratio replaced by preset `index`'s;
// an index outside the table (the "custom" choice) keeps `custom` as it is.
inline DeclickSettings applyPreset(int index, DeclickSettings custom)
{
    if (index < 0 || index >= presetCount) return custom;
    const DeclickPreset& preset = declickPresets[index];
    custom.engine = preset.engine;
    custom.sensitivity = preset.sensitivity;
    custom.floorRatio = preset.floorRatio;
    return custom;
}

}  // namespace ferrotip::lv2
