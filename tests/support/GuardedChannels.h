// Channel arrays with guard zones on both sides, for driving process() at the edge
// of what a method may touch. Each guard holds a NaN pattern that a stray read
// would carry into the output and a stray write would change; under
// AddressSanitizer the guards are also poisoned, so any access traps at once.
// Allocates in the constructor only.
#pragma once

#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "support/InstrumentedBuild.h"
#ifdef FERROTIP_TEST_ASAN
#include <sanitizer/asan_interface.h>
#endif

namespace testsupport {

class GuardedChannels {
public:
    static constexpr std::size_t guardSamples = 4096;
    static constexpr std::uint32_t guardBits = 0x7fc0fe1du;  // a quiet NaN with a payload

    GuardedChannels(int channelCount, std::size_t length)
        : length_(length), storage_(static_cast<std::size_t>(channelCount))
    {
        for (auto& channel : storage_) {
            channel.assign(length + 2 * guardSamples, 0.0f);
            fillGuard(channel.data());
            fillGuard(channel.data() + guardSamples + length);
            pointers_.push_back(channel.data() + guardSamples);
        }
        poison(true);
    }
    ~GuardedChannels() { poison(false); }
    GuardedChannels(const GuardedChannels&) = delete;
    GuardedChannels& operator=(const GuardedChannels&) = delete;

    float** pointers() { return pointers_.data(); }
    float* channel(int c) { return pointers_[c]; }
    std::size_t length() const { return length_; }
    int channelCount() const { return static_cast<int>(pointers_.size()); }

    // True while no guard sample has changed.
    bool guardsIntact()
    {
        poison(false);
        bool intact = true;
        for (auto& channel : storage_)
            intact = intact && guardIntact(channel.data()) &&
                     guardIntact(channel.data() + guardSamples + length_);
        poison(true);
        return intact;
    }

private:
    // One guard's pattern, built once: the guards are copied and compared whole
    // (thousands of arrays in a test, also in unoptimised builds).
    static const std::vector<float>& guardPattern()
    {
        static const std::vector<float> pattern = [] {
            std::vector<float> samples(guardSamples);
            for (float& sample : samples) std::memcpy(&sample, &guardBits, sizeof(float));
            return samples;
        }();
        return pattern;
    }
    static void fillGuard(float* guard) { std::memcpy(guard, guardPattern().data(), guardSamples * sizeof(float)); }
    static bool guardIntact(const float* guard)
    {
        return std::memcmp(guard, guardPattern().data(), guardSamples * sizeof(float)) == 0;
    }
    void poison([[maybe_unused]] bool on)
    {
#ifdef FERROTIP_TEST_ASAN
        for (auto& channel : storage_) {
            float* guards[2] = {channel.data(), channel.data() + guardSamples + length_};
            for (float* guard : guards) {
                if (on) ASAN_POISON_MEMORY_REGION(guard, guardSamples * sizeof(float));
                else ASAN_UNPOISON_MEMORY_REGION(guard, guardSamples * sizeof(float));
            }
        }
#endif
    }

    std::size_t length_;
    std::vector<std::vector<float>> storage_;
    std::vector<float*> pointers_;
};

// A small portable generator for test content (the same numbers on every platform).
class TestRandom {
public:
    explicit TestRandom(std::uint64_t seed) : state_(seed * 2862933555777941757ull + 3037000493ull) {}
    std::uint32_t next()
    {
        state_ = state_ * 6364136223846793005ull + 1442695040888963407ull;
        return static_cast<std::uint32_t>(state_ >> 33);
    }
    // Uniform in [low, high], both inclusive.
    int between(int low, int high)
    {
        return low + static_cast<int>(next() % static_cast<std::uint32_t>(high - low + 1));
    }
    // Uniform in [-1, 1).
    float unit() { return static_cast<float>(next() % 65536u) / 32768.0f - 1.0f; }

private:
    std::uint64_t state_;
};

// Fills every channel with one of a few kinds of content: noise, tones, tones in
// noise, silence, or a loud burst ending in digital silence.
inline void fillRandomContent(GuardedChannels& channels, TestRandom& random)
{
    const int kind = random.between(0, 4);
    const float step = 0.001f + 0.2f * (random.unit() + 1.0f);
    for (int c = 0; c < channels.channelCount(); ++c) {
        float* x = channels.channel(c);
        const std::size_t n = channels.length();
        for (std::size_t i = 0; i < n; ++i) {
            const float tone = 0.6f * std::sin(step * static_cast<float>(i) + static_cast<float>(c));
            switch (kind) {
            case 0: x[i] = random.unit(); break;
            case 1: x[i] = tone; break;
            case 2: x[i] = tone + 0.1f * random.unit(); break;
            case 3: x[i] = 0.0f; break;
            default: x[i] = i < n / 2 ? 0.99f * random.unit() : 0.0f; break;
            }
        }
    }
}

}  // namespace testsupport
