// Test support: music-like audio with clicks of 1 to 40 samples every 1500 to 4500
// samples on every channel, seeded, for the plug-in tests and benchmark.
#pragma once

#include <random>

#include "crackle/CrackleTestSignals.h"

namespace lv2test {

inline cracklefixture::Channels clickedMusic(int channels, int count, unsigned seed)
{
    cracklefixture::Channels x = cracklefixture::musicLike(channels, count, seed);
    std::mt19937 rng(seed);
    for (auto& row : x) {
        for (int at = 2500; at + 64 < count; at += 1500 + static_cast<int>(rng() % 3000)) {
            const auto shape = cracklefixture::clickShape(1 + static_cast<int>(rng() % 40), 0.3, rng);
            for (std::size_t i = 0; i < shape.size(); ++i) row[at + i] += shape[i];
        }
    }
    return x;
}

}  // namespace lv2test
