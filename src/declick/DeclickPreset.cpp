#include "declick/DeclickPreset.h"

#include <algorithm>
#include <array>

namespace {

// Blocks of 512: the repair's dither is fixed while a long block's normalised
// signal shrinks on quiet passages, so short blocks keep quiet material cleaner.
// The sensitivity sets how far a sample's roughness must stand out of its hop; the
// floor how much of each bin counts as tonal and is never touched. A low floor
// leaves fine crackle in the residual where it is found; a high one lets loud,
// long clicks reach the residual too. `auto` runs one pass for what stands far out
// (sensitivity 18: the pass rewrites much of each span it marks, and at 16 clean
// speech came back 5 dB lower), fills its loud clicks again by least-squares AR
// (ClickRefill, which takes their ringing edges as well), and leaves fine crackle to
// the impulse search's matched filter, which finds it in the input more surely than
// a second, low-floor pass did (music crackle 45.5 against 47.4 dB, clean music 56
// against 101 dB) at half the cost. Every preset looks for impulses the passes let
// through: a click far louder than the music is tonal to the engines at any floor.
// `auto` and `crackle` also fill the fine crackle found, by least-squares AR.
// Where the engines run alone, `auto` chains two passes instead: first what stands
// far out with a high floor, then fine crackle with a low one, which then judges
// hops whose loud clicks are gone (at 10 rather than 8 it leaves clean music 2-4 dB
// cleaner).
constexpr DeclickPass fineCracklePass{8.0f, {true, 1e-6}};
constexpr DeclickPass gentlePass{12.0f, {true, 1e-3}};
constexpr DeclickPass standingOutPass{18.0f, {true, 3e-4}};
constexpr DeclickPass standingOutAlonePass{18.0f, {true, 1e-3}};
constexpr DeclickPass crackleAfterClicksPass{10.0f, {true, 1e-6}};

constexpr DeclickSettings onePass(DeclickPass pass) { return {DeclickEngineKind::standard, 512, {pass, pass}, 1, false}; }

// The same passes with nothing after them.
constexpr DeclickSettings alone(DeclickSettings settings)
{
    settings.refillClicks = settings.findImpulses = settings.fillFineCrackle = false;
    return settings;
}

constexpr DeclickSettings clicksAndCrackle{DeclickEngineKind::standard, 512, {standingOutPass, standingOutPass}, 1,
                                           true, true, true};
constexpr DeclickSettings clicksThenCrackle{DeclickEngineKind::standard, 512,
                                            {standingOutAlonePass, crackleAfterClicksPass}, 2};
constexpr DeclickSettings fineCrackle{DeclickEngineKind::standard, 512, {fineCracklePass, fineCracklePass}, 1, false,
                                      true, true};

// A preset whose engines run the same passes with or without what follows them.
constexpr DeclickPreset samePasses(std::string_view name, std::string_view purpose, DeclickSettings settings)
{
    return {name, purpose, settings, alone(settings)};
}

constexpr std::array presets{
    DeclickPreset{"auto", "any recording: the clicks that stand out, then fine crackle; leaves clean audio as it is",
                  clicksAndCrackle, alone(clicksThenCrackle)},
    samePasses("gentle", "clear clicks only, in one pass", onePass(gentlePass)),
    samePasses("clicks", "loud clicks and scratches of up to a few milliseconds, in one pass",
               onePass({5.0f, {true, 1e-2}})),
    samePasses("crackle", "dense fine crackle of a few samples each, as on worn records, in one pass", fineCrackle),
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
