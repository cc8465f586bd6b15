// The LV2 face of the real-time declicker: a mono and a stereo plug-in over one
// descriptor table. Ports (the same indices in both): 0-7 controls, 8 the latency
// output, then the audio inputs and the audio outputs. The controls are read once
// per run() and resolved through the preset table; the declicker applies them at
// its next engine-block edge. instantiate allocates everything; run() allocates
// nothing, takes no lock and does no I/O.
#include <lv2/core/lv2.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <new>

#include "DeclickPresets.h"
#include "RealtimeDeclicker.h"

namespace {

using ferrotip::lv2::DeclickSettings;
using ferrotip::lv2::EngineKind;
using ferrotip::lv2::ListenMode;
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

struct Plugin {
    Plugin(int channels, double rate) : declicker(channels, rate) {}

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

// An unconnected control reads as its default.
float control(const Plugin& plugin, Control port, float fallback)
{
    return plugin.controls[port] ? *plugin.controls[port] : fallback;
}

int choice(const Plugin& plugin, Control port, int fallback, int last)
{
    const float value = control(plugin, port, static_cast<float>(fallback));
    return std::isfinite(value) ? std::clamp(static_cast<int>(std::lround(value)), 0, last) : fallback;
}

DeclickSettings readSettings(const Plugin& plugin)
{
    DeclickSettings custom;
    custom.engine = static_cast<EngineKind>(choice(plugin, enginePort, 0, 1));
    custom.sensitivity = std::clamp(control(plugin, sensitivityPort, 3.0f), 0.1f, 100.0f);
    const float floorDb = std::clamp(control(plugin, floorPort, -30.0f), -120.0f, 0.0f);
    custom.floorRatio = std::pow(10.0, floorDb / 10.0);
    custom.absoluteFloor = choice(plugin, floorModePort, 0, 1) == 1;
    custom.floor = std::clamp(control(plugin, absoluteFloorPort, 1e-7f), 0.0f, 1.0f);
    const bool enabled = control(plugin, enabledPort, 1.0f) > 0.5f;
    custom.listen = enabled ? static_cast<ListenMode>(choice(plugin, listenPort, 0, 2)) : ListenMode::bypass;
    const int presetDefault = 2;  // "Gentle"
    return ferrotip::lv2::applyPreset(choice(plugin, presetPort, presetDefault, ferrotip::lv2::presetCount),
                                      custom);
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
    plugin.declicker.setSettings(readSettings(plugin));
    plugin.declicker.reset();
}

void run(LV2_Handle handle, std::uint32_t sampleCount)
{
    auto& plugin = *static_cast<Plugin*>(handle);
    if (plugin.latency) *plugin.latency = static_cast<float>(plugin.declicker.latency());
    plugin.declicker.setSettings(readSettings(plugin));
    plugin.declicker.process(plugin.in, plugin.out, static_cast<int>(sampleCount));
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
