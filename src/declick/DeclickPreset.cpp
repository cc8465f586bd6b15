#include "declick/DeclickPreset.h"

#include <algorithm>
#include <array>

namespace {

// Blocks of 512: the repair's dither is fixed while a long block's normalised
// signal shrinks on quiet passages, so short blocks keep quiet material cleaner.
// The sensitivity sets how far a sample's roughness must stand out of its hop; the
// floor how much of each bin counts as tonal and is never touched. A low floor
// leaves fine crackle in the residual where it is found; a high one lets loud,
// long clicks reach the residual too. `auto` chains the two: first only what
// stands far out with the high floor, then fine crackle with the low one, which
// then judges hops whose loud clicks are gone. The high-floor pass rewrites much
// of each span it marks, so its sensitivity decides how much clean speech it
// touches: 18 keeps clean speech and faint crackle on speech about 5 dB better
// than 16, for a few tenths of a dB on clicks in music. After it, the crackle pass
// judges hops whose loud clicks are gone, and at 10 rather than 8 it leaves clean
// music 2-4 dB cleaner (and busy music above 40 dB, where 8 took it below) for a
// few tenths of a dB either way on crackle. Its clicks are then filled again by
// least-squares AR (ClickRefill), which takes their ringing edges as well: 2-4 dB
// on clicks in music, more in speech, while crackle and clean audio keep the
// engines' repair. Every preset then looks for impulses the passes let through: a
// click far louder than the music is tonal to the engines at any floor. `auto` and
// `crackle` also look for the fine crackle they leave, too faint beside the music's
// transients for a sensitivity that spares clean audio, and fill it by least-squares AR.
constexpr DeclickPass fineCracklePass{8.0f, {true, 1e-6}};
constexpr DeclickPass crackleAfterClicksPass{10.0f, {true, 1e-6}};
constexpr DeclickPass gentlePass{12.0f, {true, 1e-3}};
constexpr DeclickPass standingOutPass{18.0f, {true, 1e-3}};

constexpr DeclickSettings onePass(DeclickPass pass) { return {DeclickEngineKind::standard, 512, {pass, pass}, 1, false}; }

constexpr std::array presets{
    DeclickPreset{"auto", "any recording: the clicks that stand out, then fine crackle; leaves clean audio as it is",
                  {DeclickEngineKind::standard, 512, {standingOutPass, crackleAfterClicksPass}, 2, true, true, true}},
    DeclickPreset{"gentle", "clear clicks only, in one pass", onePass(gentlePass)},
    DeclickPreset{"clicks", "loud clicks and scratches of up to a few milliseconds, in one pass",
                  onePass({5.0f, {true, 1e-2}})},
    DeclickPreset{"crackle", "dense fine crackle of a few samples each, as on worn records, in one pass",
                  {DeclickEngineKind::standard, 512, {fineCracklePass, fineCracklePass}, 1, false, true, true}},
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
