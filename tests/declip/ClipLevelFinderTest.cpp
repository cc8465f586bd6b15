#include "declip/ClipLevelFinder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "ar/ClassicRand.h"
#include "declip/DeclipMaterial.h"
#include "declip/HardClipper.h"
#include "declip/DeclipTestSignals.h"

namespace {

ClipLevels levelsOf(const std::vector<float>& signal)
{
    ClipLevelFinder finder;
    finder.add(signal.data(), static_cast<std::int64_t>(signal.size()));
    return finder.levels();
}

// One bin of the histogram at the level: how closely a plateau's level is found.
constexpr float binTolerance = 1.0f / ClipLevelFinder::binsPerOctave;

TEST(ClipLevelFinder, FindsNoClippingInAnUnclippedSignal)
{
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const ClipLevels levels = levelsOf(declipsignals::tonal(44100, seed));
        EXPECT_FALSE(levels.any()) << "seed " << seed << ": " << levels.positive << ", " << levels.negative;
    }
}

// Rounds to a grid of `step` (none when 0): a PCM file's samples.
float quantised(double x, double step) { return static_cast<float>(step > 0.0 ? std::round(x / step) * step : x); }

std::vector<float> quantised(std::vector<float> signal, double step)
{
    for (float& x : signal) x = quantised(x, step);
    return signal;
}

struct Tone {
    double hertz, amplitude, phase;
};

// One second of a sum of tones at `rate`, on a grid of `step`.
std::vector<float> tones(int rate, const std::vector<Tone>& parts, double step)
{
    std::vector<float> signal(static_cast<std::size_t>(rate));
    for (std::size_t t = 0; t < signal.size(); ++t) {
        double x = 0.0;
        for (const Tone& part : parts)
            x += part.amplitude * std::sin(2.0 * M_PI * part.hertz * static_cast<double>(t) / rate + part.phase);
        signal[t] = quantised(x, step);
    }
    return signal;
}

constexpr double pcm16 = 1.0 / 32768.0;

// A steady tone's crest piles samples up just below its peak much as a codec-spread
// clip does, but nothing lies above it.
TEST(ClipLevelFinder, FindsNoClippingInASteadyTone)
{
    for (const double hertz : {100.0, 440.0, 1000.0, 5000.0})
        for (const double amplitude : {0.5, 0.9})
            for (const double step : {0.0, pcm16}) {
                const ClipLevels levels = levelsOf(tones(44100, {{hertz, amplitude, 0.0}}, step));
                EXPECT_FALSE(levels.any()) << hertz << " Hz at " << amplitude << ", step " << step << ": "
                                           << levels.positive << ", " << levels.negative;
            }
}

// Rates and frequencies whose cycle is a whole number of samples (or a few cycles
// are): every cycle repeats the same values, so the histogram's top is a comb whose
// crest teeth crowd into one band like a clip level's pile.
struct Cycle {
    int rate;
    double hertz;
};
constexpr Cycle wholeCycles[] = {{48000, 1000.0}, {48000, 2000.0}, {48000, 8000.0}, {48000, 12000.0},
                                 {96000, 1000.0}, {44100, 441.0},  {44100, 1102.5}, {8000, 300.0},
                                 {8000, 100.0},   {16000, 3000.0}, {22050, 2205.0}};

TEST(ClipLevelFinder, FindsNoClippingInAToneOfWholeCycles)
{
    for (const Cycle& cycle : wholeCycles) {
        const double halfSample = M_PI * cycle.hertz / cycle.rate;  // the peak midway between two samples
        for (const double amplitude : {0.05, 0.3, 0.9, 0.999})
            for (const double phase : {0.0, halfSample, 1.0})
                for (const double step : {0.0, pcm16}) {
                    const ClipLevels levels = levelsOf(tones(cycle.rate, {{cycle.hertz, amplitude, phase}}, step));
                    EXPECT_FALSE(levels.any()) << cycle.hertz << " Hz at " << cycle.rate << ", amplitude " << amplitude
                                               << ", phase " << phase << ", step " << step << ": " << levels.positive
                                               << ", " << levels.negative;
                }
    }
}

// Every cycle length up to 160 samples, at phases that put two crest samples in
// one bin or spread them: the crest's teeth crowd differently at each.
TEST(ClipLevelFinder, FindsNoClippingInTonesOfEveryShortCycle)
{
    const int rate = 12000;
    for (int period = 3; period <= 160; ++period)
        for (const double amplitude : {0.05, 0.3, 0.9})
            for (const double phase : {0.15, 0.45, 1.7})
                for (const double step : {0.0, pcm16}) {
                    const double hertz = static_cast<double>(rate) / period;
                    const ClipLevels levels = levelsOf(tones(rate, {{hertz, amplitude, phase}}, step));
                    EXPECT_FALSE(levels.any()) << period << " samples a cycle at " << amplitude << ", phase " << phase
                                               << ", step " << step << ": " << levels.positive << ", "
                                               << levels.negative;
                }
}

TEST(ClipLevelFinder, FindsNoClippingInTwoTonesOfWholeCycles)
{
    const struct {
        int rate;
        Tone first, second;
    } pairs[] = {{48000, {1000.0, 0.3, 0.0}, {3000.0, 0.2, 0.5}},  {48000, {1000.0, 0.4, 0.3}, {1500.0, 0.4, 1.1}},
                 {8000, {300.0, 0.25, 0.0}, {500.0, 0.25, 2.0}},   {44100, {441.0, 0.5, 0.0}, {882.0, 0.3, 0.7}},
                 {96000, {2000.0, 0.45, 1.3}, {3000.0, 0.3, 0.2}}, {16000, {1000.0, 0.3, 0.0}, {2000.0, 0.3, 0.0}}};
    for (const auto& pair : pairs)
        for (const double step : {0.0, pcm16}) {
            const ClipLevels levels = levelsOf(tones(pair.rate, {pair.first, pair.second}, step));
            EXPECT_FALSE(levels.any()) << pair.first.hertz << " + " << pair.second.hertz << " Hz at " << pair.rate
                                       << ", step " << step << ": " << levels.positive << ", " << levels.negative;
        }
}

// A naive square wave holds two values, one per polarity, and 8 kHz sampled at
// 48 kHz in phase with zero holds little more (its zeros off by a step now and
// then): no waveform rises to their level, so there is nothing to restore.
TEST(ClipLevelFinder, TakesAFlatToppedWaveNothingRisesToForUnclipped)
{
    for (const std::size_t period : {4, 48, 100}) {
        std::vector<float> square(48000);
        for (std::size_t t = 0; t < square.size(); ++t) square[t] = t % period < period / 2 ? 0.5f : -0.5f;
        const ClipLevels levels = levelsOf(square);
        EXPECT_FALSE(levels.any()) << period << ": " << levels.positive << ", " << levels.negative;
    }
    auto sixSampleCycle = tones(48000, {{8000.0, 0.5, 0.0}}, pcm16);
    for (std::size_t t = 0; t < sixSampleCycle.size(); t += 6 * 8) {
        sixSampleCycle[t] += static_cast<float>(pcm16);
        sixSampleCycle[t + 3] -= static_cast<float>(pcm16);
    }
    const ClipLevels levels = levelsOf(sixSampleCycle);
    EXPECT_FALSE(levels.any()) << levels.positive << ", " << levels.negative;
}

// Clipped deep enough, a tone of whole cycles holds many samples per cycle at the
// level, against one or two per value just below it.
TEST(ClipLevelFinder, FindsTheClipLevelOfAToneOfWholeCycles)
{
    for (const double step : {0.0, pcm16}) {
        const float level = quantised(0.35, step);
        const auto clipped = quantised(hardclip::clip(tones(48000, {{1000.0, 0.5, 0.3}}, 0.0), level), step);
        const ClipLevels found = levelsOf(clipped);
        EXPECT_NEAR(found.positive, level, level * binTolerance) << step;
        EXPECT_NEAR(found.negative, level, level * binTolerance) << step;
    }
}

// Light clipping, under 1% of the samples, in float, 16-bit and 8-bit files.
TEST(ClipLevelFinder, FindsLightClippingAtAnyWordLength)
{
    for (unsigned seed = 1; seed <= 3; ++seed) {
        const auto clean = declipsignals::tonal(132300, seed);
        const float level = hardclip::levelForSdr(clean, 35.0);
        std::int64_t clippedSamples = 0;
        for (float x : clean) clippedSamples += std::fabs(x) > level;
        ASSERT_LT(clippedSamples, static_cast<std::int64_t>(clean.size() / 100)) << seed;
        for (const double step : {0.0, pcm16, 1.0 / 128.0}) {
            const auto clipped = quantised(hardclip::clip(clean, level), step);
            const ClipLevels found = levelsOf(clipped);
            const float tolerance = std::max(level * binTolerance, static_cast<float>(step));
            EXPECT_NEAR(found.positive, level, tolerance) << "seed " << seed << ", step " << step;
            EXPECT_NEAR(found.negative, level, tolerance) << "seed " << seed << ", step " << step;
        }
    }
}

TEST(ClipLevelFinder, FindsAHardClipLevelBelowFullScale)
{
    for (float level : {0.8f, 0.5f, 0.05f}) {
        const auto clipped = hardclip::clip(declipsignals::tonal(44100, 3), level);
        const ClipLevels found = levelsOf(clipped);
        EXPECT_NEAR(found.positive, level, level * binTolerance) << level;
        EXPECT_NEAR(found.negative, level, level * binTolerance) << level;
        EXPECT_LE(found.positive, level);
    }
}

// Dither after clipping at full scale leaves some of the plateau a step below the
// rest, in the bin below: that value belongs to the pile, not to the values it
// must outweigh.
TEST(ClipLevelFinder, FindsAPlateauSplitOverTwoValues)
{
    auto overdriven = declipsignals::tonal(44100, 3);
    for (float& x : overdriven) x *= 1.3f;
    auto clipped = quantised(hardclip::clip(overdriven, 1.0f), pcm16);
    std::int64_t plateau = 0;
    for (float& x : clipped)
        if (std::fabs(x) >= 1.0f && plateau++ % 3 == 0) x -= std::copysign(static_cast<float>(pcm16), x);
    const ClipLevels found = levelsOf(clipped);
    const float tolerance = binTolerance + static_cast<float>(pcm16);
    EXPECT_NEAR(found.positive, 1.0f, tolerance);
    EXPECT_NEAR(found.negative, 1.0f, tolerance);
}

// A plateau one value holds is weighed against the values just below it, though
// the densest band lie further down (here a steady tone's crest, 8-bit).
TEST(ClipLevelFinder, FindsAPlateauAboveADenserBand)
{
    const float level = 0.7f;
    auto signal = hardclip::clip(declipsignals::tonal(44100, 3), level);
    for (const float x : tones(18000, {{180.3, 0.6, 0.0}}, 0.0)) signal.push_back(x);
    const double step = 1.0 / 128.0;
    const ClipLevels found = levelsOf(quantised(signal, step));
    EXPECT_NEAR(found.positive, level, step);
    EXPECT_NEAR(found.negative, level, step);
}

TEST(ClipLevelFinder, JudgesEachPolarityOnItsOwn)
{
    auto signal = declipsignals::tonal(44100, 4);
    for (float& x : signal) x = std::min(x, 0.6f);
    const ClipLevels found = levelsOf(signal);
    EXPECT_NEAR(found.positive, 0.6f, 0.6f * binTolerance);
    EXPECT_EQ(found.negative, ClipLevels::none);
}

TEST(ClipLevelFinder, ToleratesRippleAroundThePlateau)
{
    // A lossy codec after clipping leaves a plateau that wobbles by a few percent.
    const float level = 0.7f;
    for (float ripple : {0.01f, 0.04f}) {
        auto clipped = hardclip::clip(declipsignals::tonal(44100, 5), level);
        std::int64_t plateau = 0, flagged = 0;
        for (std::size_t n = 0; n < clipped.size(); ++n)
            if (std::fabs(clipped[n]) >= level) {
                clipped[n] *= 1.0f + ripple * static_cast<float>(std::sin(0.9 * n));
                ++plateau;
            }
        const ClipLevels found = levelsOf(clipped);
        ASSERT_TRUE(found.any()) << ripple;
        // The lower edge of the hump, within a growth step of the ripple's trough.
        EXPECT_GE(found.positive, (1.0f - ripple - 0.005f) * level) << ripple;
        EXPECT_LE(found.positive, 1.0f * level) << ripple;
        for (float x : clipped) flagged += found.sign(x) != 0;
        EXPECT_GE(flagged, plateau * 8 / 10) << ripple;
        EXPECT_LE(flagged, plateau * 3 / 2) << ripple;  // with a few natural samples at the edge
    }
}

// Magnitudes from 2^24 up lie beyond the histogram: no pile can be told there, so
// such a polarity is taken as unclipped rather than piled up in the top bin.
TEST(ClipLevelFinder, TakesMagnitudesBeyondItsRangeForUnclipped)
{
    for (const float scale : {1e8f, 1e20f, 3e38f}) {
        auto loud = declipsignals::tonal(44100, 2);
        for (float& x : loud) x *= scale;
        const ClipLevels levels = levelsOf(loud);
        EXPECT_FALSE(levels.any()) << scale << ": " << levels.positive << ", " << levels.negative;
    }
    auto clipped = hardclip::clip(declipsignals::tonal(44100, 3), 0.5f);
    for (float& x : clipped) x *= 1e6f;
    const ClipLevels found = levelsOf(clipped);
    EXPECT_NEAR(found.positive, 0.5e6f, 0.5e6f * binTolerance);
    EXPECT_NEAR(found.negative, 0.5e6f, 0.5e6f * binTolerance);
}

// What a lossy codec leaves of a clipped signal, without a codec: the plateaus
// low-passed (ringing a few percent about the level, with Gibbs overshoot above it),
// seeded noise of half a percent of the level, and one sample in 500 overshooting
// by up to 60%, as a decoder's pre-echo does, which lifts the highest sample far
// above the pile.
std::vector<float> codecLike(const std::vector<float>& signal, float level, unsigned seed)
{
    constexpr int halfTaps = 16;
    constexpr double cutoff = 0.2;  // cycles per sample, above the signal's partials
    std::vector<double> taps;
    for (int k = -halfTaps; k <= halfTaps; ++k) {
        const double window = 0.54 + 0.46 * std::cos(M_PI * k / halfTaps);
        taps.push_back(window * (k == 0 ? 2.0 * cutoff : std::sin(2.0 * M_PI * cutoff * k) / (M_PI * k)));
    }
    ferrotip::srand(seed);
    const auto uniform = [] { return ferrotip::rand() / static_cast<double>(ferrotip::classicRandMax) - 0.5; };
    std::vector<float> out(signal.size());
    for (std::size_t n = 0; n < signal.size(); ++n) {
        double sum = 0.0;
        for (int k = -halfTaps; k <= halfTaps; ++k) {
            const auto t = static_cast<std::ptrdiff_t>(n) - k;
            if (t >= 0 && t < static_cast<std::ptrdiff_t>(signal.size())) sum += taps[k + halfTaps] * signal[t];
        }
        sum += 0.01 * level * uniform();
        if (n % 500 == 250) sum *= 1.0 + 1.2 * std::fabs(uniform());
        out[n] = static_cast<float>(sum);
    }
    return out;
}

TEST(ClipLevelFinder, FindsTheLowerEdgeOfACodecSpreadPileBelowItsOvershoot)
{
    for (unsigned seed = 1; seed <= 3; ++seed)
        for (const double sdr : {7.0, 10.0, 15.0}) {
            const auto clean = declipsignals::tonal(132300, seed);
            const float level = hardclip::levelForSdr(clean, sdr);
            const auto decoded = codecLike(hardclip::clip(clean, level), level, seed);
            float highest = 0.0f;
            for (float x : decoded) highest = std::max(highest, std::fabs(x));
            ASSERT_GT(highest, 1.45f * level) << "seed " << seed << ", " << sdr << " dB";
            const ClipLevels found = levelsOf(decoded);
            // Below the plateau's ringing, above the natural density under it.
            for (const float side : {found.positive, found.negative}) {
                EXPECT_GE(side, 0.85f * level) << "seed " << seed << ", " << sdr << " dB";
                EXPECT_LE(side, 0.99f * level) << "seed " << seed << ", " << sdr << " dB";
            }
        }
}

TEST(ClipLevelFinder, FindsNoClippingInACodecLikeUnclippedSignal)
{
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const ClipLevels levels = levelsOf(codecLike(declipsignals::tonal(132300, seed), 0.9f, seed));
        EXPECT_FALSE(levels.any()) << "seed " << seed << ": " << levels.positive << ", " << levels.negative;
    }
}

// The same on recordings: music and speech excerpts, clipped or not.
TEST(ClipLevelFinder, FindsACodecSpreadPileInRecordingsAndNoneInUnclippedOnes)
{
    for (const char* material : {"music", "speech", "dialogue"})
        for (unsigned seed = 1; seed <= 3; ++seed) {
            const auto excerpt = declipmaterial::excerptOf(material, seed, 4.0);
            if (excerpt.samples.empty()) GTEST_SKIP() << "no " << material << " recordings installed";
            const ClipLevels unclipped = levelsOf(codecLike(excerpt.samples, 0.9f, seed));
            EXPECT_FALSE(unclipped.any()) << material << ", seed " << seed << ": " << unclipped.positive << ", "
                                          << unclipped.negative;
            const float level = hardclip::levelForSdr(excerpt.samples, 10.0);
            const ClipLevels found = levelsOf(codecLike(hardclip::clip(excerpt.samples, level), level, seed));
            for (const float side : {found.positive, found.negative}) {
                EXPECT_GE(side, 0.85f * level) << material << ", seed " << seed;
                EXPECT_LE(side, level) << material << ", seed " << seed;  // long plateaus keep a narrow pile
            }
        }
}

TEST(ClipLevelFinder, ResetForgetsEverything)
{
    ClipLevelFinder finder;
    const auto clipped = hardclip::clip(declipsignals::tonal(4410, 6), 0.5f);
    finder.add(clipped.data(), static_cast<std::int64_t>(clipped.size()));
    ASSERT_TRUE(finder.levels().any());
    finder.reset();
    EXPECT_FALSE(finder.levels().any());
}

// 8-bit mu-law: 16 steps per segment, so near the top a step is a few percent of
// the value, and each step piles up samples the way a clip level does.
std::vector<float> muLawQuantised(std::vector<float> signal)
{
    const double mu = 255.0;
    for (float& x : signal) {
        const double compressed = std::log1p(mu * std::min(std::fabs(x), 1.0f)) / std::log1p(mu);
        const double step = std::round(compressed * 127.0) / 127.0;
        x = static_cast<float>(std::copysign(std::expm1(step * std::log1p(mu)) / mu, x));
    }
    return signal;
}

TEST(ClipLevelFinder, TakesTheStepsOfACoarselyQuantisedSignalForNoClipping)
{
    for (unsigned seed = 1; seed <= 5; ++seed) {
        const ClipLevels levels = levelsOf(muLawQuantised(declipsignals::tonal(44100, seed)));
        EXPECT_FALSE(levels.any()) << "seed " << seed << ": " << levels.positive << ", " << levels.negative;
    }
}

TEST(ClipLevelFinder, FindsTheClipLevelOfACoarselyQuantisedSignal)
{
    const float level = 0.5f;
    const auto clipped = muLawQuantised(hardclip::clip(declipsignals::tonal(44100, 3), level));
    const ClipLevels found = levelsOf(clipped);
    ASSERT_TRUE(found.any());
    EXPECT_NEAR(found.positive, level, 0.04f * level);  // within a mu-law step
    EXPECT_NEAR(found.negative, level, 0.04f * level);
}

}  // namespace
