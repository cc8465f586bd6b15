#include "declick/DeclickPreset.h"

#include <algorithm>
#include <array>

namespace {

// Blocks of 512: the repair's dither is fixed while a long block's normalised
// signal shrinks on quiet passages, so short blocks keep quiet material cleaner.
// The sensitivity sets how far a sample's roughness must stand out of its hop; the
// floor how much of each bin counts as tonal and is never touched.
constexpr std::array presets{
    DeclickPreset{"gentle", "any recording: removes clear clicks, leaves clean audio as it is",
                  {DeclickEngineKind::standard, 512, 12.0f, {true, 1e-3}}},
    DeclickPreset{"clicks", "loud clicks and scratches of up to a few milliseconds",
                  {DeclickEngineKind::standard, 512, 5.0f, {true, 1e-2}}},
    DeclickPreset{"crackle", "dense fine crackle of a few samples each, as on worn records",
                  {DeclickEngineKind::standard, 512, 10.0f, {true, 1e-5}}},
};

}  // namespace

float SpectralFloorRule::floorFor(double meanSquare) const
{
    return static_cast<float>(relativeToLevel ? value * meanSquare : value);
}

std::span<const DeclickPreset> declickPresets() { return presets; }

const DeclickPreset& defaultDeclickPreset() { return presets.front(); }

const DeclickPreset* findDeclickPreset(std::string_view name)
{
    const auto found = std::find_if(presets.begin(), presets.end(),
                                    [&](const DeclickPreset& preset) { return preset.name == name; });
    return found == presets.end() ? nullptr : &*found;
}
