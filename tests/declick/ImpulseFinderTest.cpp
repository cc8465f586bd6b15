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

struct Search {
    std::vector<Found> impulses;
    std::vector<Found> fine;
};

// Every block of the signal judged as the refill judges it, silence around it.
Search searchAll(const std::vector<float>& signal, double fineThreshold)
{
    ImpulseFinder finder(threshold, fineThreshold);
    const auto total = static_cast<std::int64_t>(signal.size());
    std::vector<float> window(ImpulseFinder::window);
    std::vector<ImpulseFinder::Impulse> impulses;
    std::vector<ImpulseFinder::Impulse> fine;
    Search search;
    for (std::int64_t start = 0; start < total; start += ImpulseFinder::block) {
        const std::int64_t from = start - ImpulseFinder::context;
        for (int i = 0; i < ImpulseFinder::window; ++i)
            window[i] = from + i >= 0 && from + i < total ? signal[static_cast<std::size_t>(from + i)] : 0.0f;
        impulses.clear();
        fine.clear();
        finder.find(std::span<const float, ImpulseFinder::window>(window.data(), ImpulseFinder::window),
                    static_cast<int>(std::max<std::int64_t>(-from, 0)),
                    static_cast<int>(std::min<std::int64_t>(total - from, ImpulseFinder::window)), impulses,
                    &fine);
        for (const auto& impulse : impulses) search.impulses.push_back({start + impulse.first, start + impulse.last});
        for (const auto& crackle : fine) search.fine.push_back({start + crackle.first, start + crackle.last});
    }
    return search;
}

std::vector<Found> findAll(const std::vector<float>& signal) { return searchAll(signal, 0.0).impulses; }

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

constexpr double fineThreshold = 8.0;

// Faint clicks of one to three samples, about 20 times the music's prediction error
// (its noise) and a fifth of its rms: far below what makes an impulse.
TEST(ImpulseFinder, FindsFaintCrackleThatNoImpulseSearchWouldSee)
{
    std::vector<float> music = quietMusic(1.0);
    const int positions[] = {5000, 9100, 15003, 22222, 30500, 37777};
    for (int k = 0; k < 6; ++k)
        for (int i = 0; i <= k % 3; ++i) music[positions[k] + i] += k % 2 ? 0.04f : -0.04f;
    const Search search = searchAll(music, fineThreshold);
    EXPECT_TRUE(search.impulses.empty());
    ASSERT_EQ(search.fine.size(), 6u);
    for (int k = 0; k < 6; ++k) {
        EXPECT_LE(search.fine[k].first, positions[k]) << k;
        EXPECT_GE(search.fine[k].last, positions[k] + k % 3) << k;
        EXPECT_LT(search.fine[k].last - search.fine[k].first, ImpulseFinder::fineLongest) << k;
    }
    // Without a fine threshold none is looked for.
    EXPECT_TRUE(searchAll(music, 0.0).fine.empty());
}

// A crackle across a block's end is found once, by the block it starts in, whole.
TEST(ImpulseFinder, FindsFineCrackleAcrossABlocksEndOnce)
{
    std::vector<float> music = quietMusic(1.0);
    const int positions[] = {20 * ImpulseFinder::block - 1, 40 * ImpulseFinder::block - 2};
    for (const int at : positions)
        for (int i = 0; i < 3; ++i) music[at + i] += 0.04f;
    const Search search = searchAll(music, fineThreshold);
    ASSERT_EQ(search.fine.size(), 2u);
    for (int k = 0; k < 2; ++k) {
        EXPECT_LE(search.fine[k].first, positions[k]) << k;
        EXPECT_GE(search.fine[k].last, positions[k] + 2) << k;
        EXPECT_LT(search.fine[k].last - search.fine[k].first, ImpulseFinder::fineLongest) << k;
    }
}

TEST(ImpulseFinder, TakesNeitherCleanMusicNorASawtoothsCornersForFineCrackle)
{
    EXPECT_LE(searchAll(quietMusic(1.0), fineThreshold).fine.size(), 1u);
    // A sawtooth's drop in every cycle of 101 samples is a faint click to the model,
    // five of them in each block: a waveform, not crackle. (The last block, cut short
    // by the end of the signal, holds too few to tell.)
    std::vector<float> sawtooth = quietMusic(0.2);
    for (std::size_t n = 0; n < sawtooth.size(); ++n) sawtooth[n] += 0.05f * static_cast<float>(n % 101) / 101.0f;
    for (const Found& crackle : searchAll(sawtooth, fineThreshold).fine)
        EXPECT_GE(crackle.first, static_cast<std::int64_t>(sawtooth.size()) - ImpulseFinder::block) << crackle.first;
}

}  // namespace
