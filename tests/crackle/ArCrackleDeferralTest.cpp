// The repair's waiting model estimates against estimating every block at once
// (setDeferredLimit(0)): samples, marks, model rows and the dither sequence must
// agree bit for bit on streams built to reach every way a block can leave the low
// rows of the model: silent blocks (digital silence, and levels where the dither
// alone decides), blocks whose Levinson stops at the second order (tones whose
// weighted block is a pure sinusoid at a quarter or a third of the rate, constant
// and alternating samples, huge and infinite samples), stretches without marks much
// longer than the queue, marks right after silence, resets in the middle.
#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/AdvancedFftDeCracklerOpt.h"
#include "crackle/ArCrackleRepair.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

#include "ar/ClassicRand.h"
#include "crackle/CrackleTestSignals.h"

namespace {

using cracklefixture::Channels;
using Marks = std::vector<std::vector<int>>;

constexpr int repairLatency = 360;
constexpr double twoPi = 6.283185307179586;

enum class Kind { Music, Silence, NearDither, Constant, Alternating, QuarterTone, ThirdTone, Huge, Infinite };
constexpr int kindCount = 9;

std::vector<std::uint64_t> bitsOf(const std::vector<float>& x)
{
    std::vector<std::uint64_t> bits(x.size());
    for (size_t i = 0; i < x.size(); ++i) {
        std::uint32_t b;
        std::memcpy(&b, &x[i], sizeof b);
        bits[i] = b;
    }
    return bits;
}

std::uint64_t bitsOf(double x)
{
    std::uint64_t b;
    std::memcpy(&b, &x, sizeof b);
    return b;
}

// The repair's estimate of block j weights input samples from j * blockSize - 360 on
// with a Hann window of blockSize points scaled by 1 / blockSize; the tone kinds
// divide by it, so that the weighted block is the bare sinusoid.
double analysisWindow(int k, int blockSize)
{
    return (0.5 - 0.5 * std::cos(twoPi * k / blockSize)) / blockSize;
}

float sampleOf(Kind kind, int k, int blockSize, double level, double phase, std::mt19937& rng)
{
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    const double w = analysisWindow(k, blockSize);
    switch (kind) {
    case Kind::Music: return static_cast<float>(0.3 * std::sin(twoPi * 0.013 * k + phase) + 0.01 * unit(rng));
    case Kind::Silence: return 0.0f;
    // Energies of the weighted block from well below to well above the silence
    // threshold, where the dither's own share (up to 7.7e-10) tips the balance.
    case Kind::NearDither: return static_cast<float>(level * std::sqrt(8.0 * blockSize / 3.0e9) * unit(rng));
    case Kind::Constant: return static_cast<float>(level);
    case Kind::Alternating: return static_cast<float>((k % 2 == 0 ? level : -level));
    case Kind::QuarterTone:
    case Kind::ThirdTone: {
        const double omega = kind == Kind::QuarterTone ? twoPi / 4.0 : twoPi / 3.0;
        return w > 1e-12 ? static_cast<float>(std::sin(omega * k + phase) / w * level * 1e-6) : 0.0f;
    }
    case Kind::Huge: return static_cast<float>((unit(rng) < 0.0 ? -3.0e38 : 3.0e38) * (k % 3 == 0 ? 1.0 : 0.5));
    case Kind::Infinite: return k == 7 ? std::numeric_limits<float>::infinity() : 0.0f;
    }
    return 0.0f;
}

// One channel's samples and marks, segment j covering what block j's estimate and
// scan read. Marks come in runs, with long gaps; the span-bearing segments lean to
// single-sample spans, the ones that read the second-order row.
struct Stream {
    Channels samples;
    Marks marks;
};

Stream adversarialStream(int channels, int blockSize, int blocks, unsigned seed)
{
    std::mt19937 rng(seed);
    const int count = blocks * blockSize;
    Stream s{Channels(channels, std::vector<float>(count)), Marks(channels, std::vector<int>(count))};
    std::uniform_int_distribution<int> anyKind(0, kindCount - 1);
    std::uniform_real_distribution<double> unit(0.0, 1.0);
    bool marking = false;
    int runLeft = 0;
    for (int j = 0; j <= blocks; ++j) {
        if (runLeft-- <= 0) {
            marking = !marking;
            runLeft = marking ? 1 + static_cast<int>(unit(rng) * 4) : static_cast<int>(unit(rng) * 40);
        }
        for (int c = 0; c < channels; ++c) {
            const Kind kind = static_cast<Kind>(anyKind(rng));
            const double level = std::pow(10.0, -1.0 + 2.0 * unit(rng));  // 0.1 .. 10
            const double phase = unit(rng) * twoPi;
            const bool marked = marking && unit(rng) < 0.8;
            for (int k = 0; k < blockSize; ++k) {
                const int t = j * blockSize - repairLatency + k;
                if (t < 0 || t >= count) continue;
                s.samples[c][t] = sampleOf(kind, k, blockSize, level, phase, rng);
                if (!marked) continue;
                const double u = unit(rng);
                if (u < 0.01) s.marks[c][t] = 1;
                else if (u < 0.012) s.marks[c][t] = 2;  // a mark that neither opens nor closes
            }
            if (marked && unit(rng) < 0.2) {
                const int start = j * blockSize - repairLatency + static_cast<int>(unit(rng) * blockSize);
                const int length = 1 + static_cast<int>(unit(rng) * 140);
                for (int t = std::max(start, 0); t < std::min(start + length, count); ++t) s.marks[c][t] = 1;
            }
        }
    }
    return s;
}

struct Trace {
    std::vector<std::vector<std::uint64_t>> samples;
    Marks marks;
    std::vector<std::uint64_t> ditherStates;  // the dither state after each block
    std::vector<std::uint64_t> rows;          // rows 0..8 of the table, probed and at the end
};

struct RepairSetup {
    int channels;
    int blockSize;
    int passes;
    int resetAt;     // block before which the repair is reset; -1 for none
    int probeEvery;  // read the low rows every so many blocks; 0 for never
};

void recordRows(ArCrackleRepair& repair, Trace& trace)
{
    for (int order = 8; order >= 0; --order)
        for (int j = 0; j <= order; ++j) trace.rows.push_back(bitsOf(repair.modelRow(order)[j]));
}

Trace runRepair(const Stream& stream, const RepairSetup& setup, int deferredLimit)
{
    const int n = setup.blockSize;
    const int blocks = static_cast<int>(stream.samples[0].size()) / n;
    ferrotip::srand(2024);
    ArCrackleRepair repair(setup.channels, 1, n, setup.passes);
    repair.setDeferredLimit(deferredLimit);
    Channels out = stream.samples;
    Marks marks = stream.marks;
    Trace trace;
    std::vector<float*> io(setup.channels);
    std::vector<int*> markRows(setup.channels);
    for (int b = 0; b < blocks; ++b) {
        if (b == setup.resetAt) repair.reset();
        for (int c = 0; c < setup.channels; ++c) {
            io[c] = out[c].data() + static_cast<long>(b) * n;
            markRows[c] = marks[c].data() + static_cast<long>(b) * n;
        }
        repair.process(io.data(), io.data(), markRows.data());
        trace.ditherStates.push_back(ferrotip::randState());
        if (setup.probeEvery > 0 && b % setup.probeEvery == setup.probeEvery - 1) recordRows(repair, trace);
    }
    recordRows(repair, trace);
    for (const auto& row : out) trace.samples.push_back(bitsOf(row));
    trace.marks = marks;
    return trace;
}

void expectSameTrace(const Trace& waiting, const Trace& eager)
{
    EXPECT_EQ(waiting.ditherStates, eager.ditherStates);
    EXPECT_EQ(waiting.rows, eager.rows);
    EXPECT_EQ(waiting.marks, eager.marks);
    ASSERT_EQ(waiting.samples.size(), eager.samples.size());
    for (size_t c = 0; c < waiting.samples.size(); ++c) EXPECT_TRUE(waiting.samples[c] == eager.samples[c]) << c;
}

class RepairDeferral : public testing::TestWithParam<int> {};

TEST_P(RepairDeferral, SameBitsAsEstimatingEveryBlock)
{
    const int n = GetParam();
    const int blocks = n >= 4096 ? 70 : 160;
    const RepairSetup setups[] = {
        {1, n, 2, -1, 0},
        {2, n, 2, blocks / 2, 0},
        {3, n, 1, blocks / 3, 0},
        {2, n, 3, -1, 11},
    };
    for (const RepairSetup& setup : setups) {
        SCOPED_TRACE(testing::Message() << setup.channels << " channels, " << setup.passes << " passes");
        const Stream stream = adversarialStream(setup.channels, n, blocks, 17u + static_cast<unsigned>(n));
        const Trace eager = runRepair(stream, setup, 0);
        expectSameTrace(runRepair(stream, setup, ArCrackleRepair::deferredCapacity), eager);
        expectSameTrace(runRepair(stream, setup, 3), eager);  // a short queue fills often
        expectSameTrace(runRepair(stream, setup, 1), eager);
    }
}

INSTANTIATE_TEST_SUITE_P(BlockSizes, RepairDeferral, testing::Values(100, 512, 1024, 4096));

// Whole engines: music with clicks, digital silence with clicks in it, noise near
// the dither's level, an offset and a Nyquist tone, and a reset halfway.
Channels engineStream(int channels)
{
    const int second = 44100;
    const int count = 2 * second;
    Channels x(channels, std::vector<float>(count, 0.0f));
    const Channels music = cracklefixture::musicLike(channels, count, 5);
    const Channels quiet = cracklefixture::noise(channels, count, 2e-4, 9);
    std::mt19937 rng(3);
    for (int c = 0; c < channels; ++c) {
        for (int t = 0; t < count; ++t) {
            const int part = t / (count / 8);
            float v = 0.0f;
            if (part == 0 || part == 6) v = music[c][t];
            else if (part == 2) v = quiet[c][t];
            else if (part == 3) v = quiet[c][t] * 1e-2f;
            else if (part == 4) v = 0.25f;
            else if (part == 5) v = (t % 2 == 0 ? 0.5f : -0.5f);
            x[c][t] = v;
        }
        for (int t = 1000 + c * 37; t + 8 < count; t += 2900) {
            const auto click = cracklefixture::clickShape(1 + t % 4, 0.5, rng);
            for (size_t i = 0; i < click.size(); ++i) x[c][t + i] += click[i];
        }
    }
    return x;
}

struct EngineTrace {
    std::vector<std::vector<std::uint64_t>> output;
    Marks marks;
    int markCount = 0;
};

template <typename Engine>
EngineTrace runEngine(const Channels& input, int blockSize, bool eager)
{
    const int channels = static_cast<int>(input.size());
    ferrotip::srand(77);
    Engine engine(channels, blockSize);
    // The reference estimates every block at once.
    if (eager) engine.repair().setDeferredLimit(0);
    const int blocks = static_cast<int>(input[0].size()) / blockSize;
    Channels out(channels, std::vector<float>(static_cast<size_t>(blocks) * blockSize));
    EngineTrace trace{{}, Marks(channels, std::vector<int>(static_cast<size_t>(blocks) * blockSize))};
    Channels io(channels, std::vector<float>(blockSize));
    std::vector<float*> rows(channels);
    for (int b = 0; b < blocks; ++b) {
        if (b == blocks / 2) engine.reset();
        for (int c = 0; c < channels; ++c) {
            std::copy_n(input[c].begin() + static_cast<long>(b) * blockSize, blockSize, io[c].begin());
            rows[c] = io[c].data();
        }
        engine.process(rows.data(), blockSize);
        for (int c = 0; c < channels; ++c) {
            std::copy(io[c].begin(), io[c].end(), out[c].begin() + static_cast<long>(b) * blockSize);
            std::copy_n(engine.marks(c), blockSize, trace.marks[c].begin() + static_cast<long>(b) * blockSize);
            for (int i = 0; i < blockSize; ++i) trace.markCount += engine.marks(c)[i];
        }
    }
    for (const auto& row : out) trace.output.push_back(bitsOf(row));
    return trace;
}

template <typename Engine>
class EngineDeferral : public testing::Test {};

using Engines = testing::Types<AdvancedFftDeCrackler, AdvancedFftDeCracklerOpt>;
TYPED_TEST_SUITE(EngineDeferral, Engines);

TYPED_TEST(EngineDeferral, SameBitsAsEstimatingEveryBlockAtEveryBlockSize)
{
    const Channels input = engineStream(2);
    for (int blockSize : {100, 512, 1024, 4096}) {
        SCOPED_TRACE(blockSize);
        const EngineTrace eager = runEngine<TypeParam>(input, blockSize, true);
        const EngineTrace waiting = runEngine<TypeParam>(input, blockSize, false);
        EXPECT_GT(eager.markCount, 0);
        EXPECT_EQ(waiting.marks, eager.marks);
        EXPECT_TRUE(waiting.output == eager.output);
    }
}

}  // namespace
