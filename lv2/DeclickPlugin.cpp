// The LV2 face of the real-time declicker: a mono and a stereo plug-in over one
// descriptor table. Ports (the same indices in both): 0-7 controls, 8 the latency
// output, then the audio inputs and the audio outputs. The preset control lists the
// declick library's presets in their order, then Custom (one pass from the
// sensitivity, floor and engine controls). The controls are read once per run() and
// resolved into the library's settings; the declicker applies them at its next
// engine-block edge. instantiate allocates everything; run() allocates
// nothing, takes no lock and does no I/O.
#include <lv2/core/lv2.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>
#include <vector>

#include "RealtimeDeclicker.h"
#include "declick/DeclickPreset.h"

namespace {

using ferrotip::lv2::RealtimeDeclicker;

constexpr const char* monoUri = "urn:ferrotip:lv2:declick-mono";
constexpr const char* stereoUri = "urn:ferrotip:lv2:declick-stereo";

enum Control : std::uint32_t {
    presetPort,
    sensitivityPort,
    floorPort,
    floorModePort,
    absoluteFloorPort,
    enginePort,
    listenPort,
    enabledPort,
    controlCount
};
constexpr std::uint32_t latencyPort = controlCount;
constexpr std::uint32_t firstAudioPort = latencyPort + 1;
constexpr int maxChannels = 2;

// The library lists its default preset first: value 0, the control's default.
const int customPreset = static_cast<int>(declickPresets().size());

// One pass of the default preset's block, the floor relative to the level.
DeclickSettings customSettings(DeclickEngineKind engine, float sensitivity, double floorRatio)
{
    DeclickSettings settings = defaultDeclickPreset().enginesAlone;
    settings.engine = engine;
    settings.passCount = 1;
    settings.passes[0] = {sensitivity, {true, floorRatio}};
    return settings;
}

// Every setting the controls can ask for, by shape: the presets and Custom with each engine.
std::vector<DeclickSettings> possibleSettings()
{
    std::vector<DeclickSettings> possible;
    for (const DeclickPreset& preset : declickPresets()) possible.push_back(preset.enginesAlone);
    for (DeclickEngineKind engine : {DeclickEngineKind::standard, DeclickEngineKind::prediction})
        possible.push_back(customSettings(engine, 12.0f, 1e-3));
    return possible;
}

struct Plugin {
    Plugin(int channels, double rate) : declicker(channels, rate, possibleSettings()) {}

    RealtimeDeclicker declicker;
    const float* controls[controlCount] = {};
    float* latency = nullptr;
    const float* in[maxChannels] = {};
    float* out[maxChannels] = {};
};

int channelsOf(const LV2_Descriptor* descriptor)
{
    return std::strcmp(descriptor->URI, stereoUri) == 0 ? 2 : 1;
}

// An unconnected control, or one holding no number (NaN, infinity), reads as its default.
float control(const Plugin& plugin, Control port, float fallback)
{
    return plugin.controls[port] && std::isfinite(*plugin.controls[port]) ? *plugin.controls[port] : fallback;
}

int choice(const Plugin& plugin, Control port, int fallback, int last)
{
    const float value = control(plugin, port, static_cast<float>(fallback));
    return std::clamp(static_cast<int>(std::lround(value)), 0, last);
}

DeclickSettings readSettings(const Plugin& plugin)
{
    const int preset = choice(plugin, presetPort, 0, customPreset);
    DeclickSettings settings;
    if (preset < customPreset) {
        settings = declickPresets()[static_cast<std::size_t>(preset)].enginesAlone;
    } else {
        const float floorDb = std::clamp(control(plugin, floorPort, -30.0f), -120.0f, 0.0f);
        settings = customSettings(static_cast<DeclickEngineKind>(choice(plugin, enginePort, 0, 1)),
                                  std::clamp(control(plugin, sensitivityPort, 12.0f), 0.1f, 100.0f),
                                  std::pow(10.0, floorDb / 10.0));
    }
    if (choice(plugin, floorModePort, 0, 1) == 1) {
        const float floor = std::clamp(control(plugin, absoluteFloorPort, 1e-7f), 0.0f, 1.0f);
        for (DeclickPass& pass : settings.passes) pass.floor = {false, floor};
    }
    return settings;
}

DeclickListen readListen(const Plugin& plugin)
{
    if (control(plugin, enabledPort, 1.0f) <= 0.5f) return DeclickListen::bypass;
    // The listen control's values are the library's modes in their order.
    return static_cast<DeclickListen>(choice(plugin, listenPort, 0, 2));
}

LV2_Handle instantiate(const LV2_Descriptor* descriptor, double rate, const char*, const LV2_Feature* const*)
{
    try {
        return new Plugin(channelsOf(descriptor), rate);
    } catch (const std::bad_alloc&) {  // the host sees a failed instantiation, not an exception
        return nullptr;
    }
}

void connectPort(LV2_Handle handle, std::uint32_t port, void* data)
{
    auto& plugin = *static_cast<Plugin*>(handle);
    const auto channels = static_cast<std::uint32_t>(plugin.declicker.channels());
    if (port < controlCount) plugin.controls[port] = static_cast<const float*>(data);
    else if (port == latencyPort) plugin.latency = static_cast<float*>(data);
    else if (port < firstAudioPort + channels) plugin.in[port - firstAudioPort] = static_cast<const float*>(data);
    else if (port < firstAudioPort + 2 * channels) plugin.out[port - firstAudioPort - channels] = static_cast<float*>(data);
}

void activate(LV2_Handle handle)
{
    auto& plugin = *static_cast<Plugin*>(handle);
    plugin.declicker.setSettings(readSettings(plugin), readListen(plugin));
    plugin.declicker.reset();
}

void run(LV2_Handle handle, std::uint32_t sampleCount)
{
    auto& plugin = *static_cast<Plugin*>(handle);
    plugin.declicker.setSettings(readSettings(plugin), readListen(plugin));
    plugin.declicker.process(plugin.in, plugin.out, static_cast<int>(sampleCount));
    // Written after the block: a preset change may have brought in another lane in it.
    if (plugin.latency) *plugin.latency = static_cast<float>(plugin.declicker.latency());
}

void cleanup(LV2_Handle handle)
{
    delete static_cast<Plugin*>(handle);
}

const void* extensionData(const char*)
{
    return nullptr;
}

constexpr LV2_Descriptor descriptors[] = {
    {monoUri, instantiate, connectPort, activate, run, nullptr, cleanup, extensionData},
    {stereoUri, instantiate, connectPort, activate, run, nullptr, cleanup, extensionData},
};

}  // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(std::uint32_t index)
{
    return index < std::size(descriptors) ? &descriptors[index] : nullptr;
}
