// Test support: a minimal in-process LV2 host over lilv. It loads ferrotip.lv2 from
// the build tree (FERROTIP_LV2_BUNDLE), instantiates one plug-in at a sample rate,
// holds every control at its default until set, and runs blocks of planar audio,
// counting the allocations made inside the plug-in's run().
#pragma once

#include <lilv/lilv.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "support/AllocationCounter.h"

namespace lv2test {

using Channels = std::vector<std::vector<float>>;

inline constexpr const char* monoUri = "urn:ferrotip:lv2:declick-mono";
inline constexpr const char* stereoUri = "urn:ferrotip:lv2:declick-stereo";

class PluginHost {
public:
    PluginHost(const char* uri, double rate) : world_(lilv_world_new(), lilv_world_free)
    {
        LilvNode* bundle = lilv_new_file_uri(world_.get(), nullptr, FERROTIP_LV2_BUNDLE "/");
        lilv_world_load_bundle(world_.get(), bundle);
        lilv_node_free(bundle);
        LilvNode* name = lilv_new_uri(world_.get(), uri);
        plugin_ = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world_.get()), name);
        lilv_node_free(name);
        if (plugin_ == nullptr) throw std::runtime_error(std::string("plug-in not found: ") + uri);
        const std::uint32_t ports = lilv_plugin_get_num_ports(plugin_);
        controls_.assign(ports, 0.0f);
        lilv_plugin_get_port_ranges_float(plugin_, nullptr, nullptr, controls_.data());
        instance_ = lilv_plugin_instantiate(plugin_, rate, nullptr);
        if (instance_ == nullptr) throw std::runtime_error("instantiate failed");
        LilvNode* audio = lilv_new_uri(world_.get(), LILV_URI_AUDIO_PORT);
        LilvNode* input = lilv_new_uri(world_.get(), LILV_URI_INPUT_PORT);
        for (std::uint32_t p = 0; p < ports; ++p) {
            const LilvPort* port = lilv_plugin_get_port_by_index(plugin_, p);
            if (!lilv_port_is_a(plugin_, port, audio))
                lilv_instance_connect_port(instance_, p, &controls_[p]);
            else
                (lilv_port_is_a(plugin_, port, input) ? audioIn_ : audioOut_).push_back(p);
        }
        lilv_node_free(input);
        lilv_node_free(audio);
        lilv_instance_activate(instance_);
    }

    // Deactivates and activates again, as a host does to apply settings from the start.
    void reactivate()
    {
        lilv_instance_deactivate(instance_);
        lilv_instance_activate(instance_);
    }

    // The labels of a control's scale points, in the order of their values.
    std::vector<std::string> scaleLabels(const char* symbol)
    {
        const LilvPort* port = lilv_plugin_get_port_by_index(plugin_, index(symbol));
        LilvScalePoints* points = lilv_port_get_scale_points(plugin_, port);
        std::vector<std::pair<float, std::string>> byValue;
        LILV_FOREACH(scale_points, i, points)
        {
            const LilvScalePoint* point = lilv_scale_points_get(points, i);
            byValue.emplace_back(lilv_node_as_float(lilv_scale_point_get_value(point)),
                                 lilv_node_as_string(lilv_scale_point_get_label(point)));
        }
        lilv_scale_points_free(points);
        std::sort(byValue.begin(), byValue.end());
        std::vector<std::string> labels;
        for (const auto& [value, label] : byValue) labels.push_back(label);
        return labels;
    }

    ~PluginHost()
    {
        lilv_instance_deactivate(instance_);
        lilv_instance_free(instance_);
    }

    PluginHost(const PluginHost&) = delete;
    PluginHost& operator=(const PluginHost&) = delete;

    int channels() const { return static_cast<int>(audioIn_.size()); }

    void set(const char* symbol, float value) { controls_[index(symbol)] = value; }
    float get(const char* symbol) { return controls_[index(symbol)]; }
    int latency() { return static_cast<int>(get("latency")); }

    // Runs n samples of in[c][offset..] into out[c][offset..]; returns the number
    // of allocations made inside run().
    std::size_t run(const Channels& in, Channels& out, std::size_t offset, int n)
    {
        for (std::size_t c = 0; c < audioIn_.size(); ++c) {
            lilv_instance_connect_port(instance_, audioIn_[c], const_cast<float*>(in[c].data() + offset));
            lilv_instance_connect_port(instance_, audioOut_[c], out[c].data() + offset);
        }
        return testsupport::allocationsDuring([&] { lilv_instance_run(instance_, static_cast<std::uint32_t>(n)); });
    }

private:
    std::uint32_t index(const char* symbol)
    {
        LilvNode* name = lilv_new_string(world_.get(), symbol);
        const LilvPort* port = lilv_plugin_get_port_by_symbol(plugin_, name);
        lilv_node_free(name);
        if (port == nullptr) throw std::runtime_error(std::string("no port ") + symbol);
        return lilv_port_get_index(plugin_, port);
    }

    std::unique_ptr<LilvWorld, void (*)(LilvWorld*)> world_;
    const LilvPlugin* plugin_ = nullptr;
    LilvInstance* instance_ = nullptr;
    std::vector<float> controls_;
    std::vector<std::uint32_t> audioIn_, audioOut_;
};

// Runs all of `in` through `host` in blocks cut by `nextSize` (called once per
// block with the samples left); returns the output and adds the allocations seen
// inside run() to `allocations`.
template <typename NextSize>
Channels render(PluginHost& host, const Channels& in, NextSize nextSize, std::size_t& allocations)
{
    Channels out(in.size(), std::vector<float>(in[0].size()));
    const std::size_t total = in[0].size();
    for (std::size_t offset = 0; offset < total;) {
        const int n = static_cast<int>(std::min<std::size_t>(nextSize(total - offset), total - offset));
        allocations += host.run(in, out, offset, n);
        offset += static_cast<std::size_t>(n);
    }
    return out;
}

}  // namespace lv2test
