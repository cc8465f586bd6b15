#include "declick/ImpulseFinder.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <random>
#include <span>
#include <vector>

#include "crackle/CrackleTestSignals.h"

namespace {

constexpr double threshold = 100.0;

struct Found {
    std::int64_t first;
    std::int64_t last;
    bool operator==(const Found&) const = default;
};

// Every block of the signal judged as the refill judges it, silence around it.
std::vector<Found> findAll(const std::vector<float>& signal)
{
    ImpulseFinder finder(threshold);
    const auto total = static_cast<std::int64_t>(signal.size());
    std::vector<float> window(ImpulseFinder::window);
    std::vector<ImpulseFinder::Impulse> impulses;
    std::vector<Found> found;
    for (std::int64_t start = 0; start < total; start += ImpulseFinder::block) {
        const std::int64_t from = start - ImpulseFinder::context;
        for (int i = 0; i < ImpulseFinder::window; ++i)
            window[i] = from + i >= 0 && from + i < total ? signal[static_cast<std::size_t>(from + i)] : 0.0f;
        impulses.clear();
        finder.find(std::span<const float, ImpulseFinder::window>(window.data(), ImpulseFinder::window),
                    static_cast<int>(std::max<std::int64_t>(-from, 0)),
                    static_cast<int>(std::min<std::int64_t>(total - from, ImpulseFinder::window)), impulses);
        for (const auto& impulse : impulses) found.push_back({start + impulse.first, start + impulse.last});
    }
    return found;
}

std::vector<float> quietMusic(double gain)
{
    std::vector<float> music = cracklefixture::musicLike(1, 44100, 3)[0];
    for (float& sample : music) sample = static_cast<float>(sample * gain);
    return music;
}

TEST(ImpulseFinder, FindsAFullScaleClickInQuietMusicExactly)
{
    for (int at : {700, 1023, 1024, 5000, 30001}) {
        std::vector<float> music = quietMusic(0.01);
        music[at] += 1.0f;
        EXPECT_EQ(findAll(music), (std::vector<Found>{{at, at}})) << at;
    }
}

TEST(ImpulseFinder, FindsAClickOfAFewSamplesFromItsFirstToItsLastSample)
{
    for (int width : {2, 3, 5}) {
        std::vector<float> music = quietMusic(0.1);
        for (int i = 0; i < width; ++i) music[12000 + i] -= 0.8f;
        EXPECT_EQ(findAll(music), (std::vector<Found>{{12000, 12000 + width - 1}})) << width;
    }
}

TEST(ImpulseFinder, LeavesMusicADrumsAttackAndDigitalSilenceAlone)
{
    EXPECT_TRUE(findAll(quietMusic(1.0)).empty());
    EXPECT_TRUE(findAll(quietMusic(1e-4)).empty());
    std::vector<float> drum = quietMusic(0.01);
    std::mt19937 rng(7);
    std::normal_distribution<double> noise(0.0, 0.3);
    for (int i = 0; i < 2205; ++i) drum[20000 + i] += static_cast<float>(noise(rng) * std::exp(-i / 441.0));
    EXPECT_TRUE(findAll(drum).empty());
    EXPECT_TRUE(findAll(std::vector<float>(10000, 0.0f)).empty());
}

TEST(ImpulseFinder, FindsALoneSampleInDigitalSilence)
{
    std::vector<float> silence(10000, 0.0f);
    silence[4321] = 0.5f;
    EXPECT_EQ(findAll(silence), (std::vector<Found>{{4321, 4321}}));
}

}  // namespace
