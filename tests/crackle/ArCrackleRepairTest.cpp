#include "crackle/ArCrackleRepair.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "ar/ArWorkspace.h"
#include "ar/ClassicRand.h"
#include "crackle/CrackleTestSignals.h"
#include "support/AllocationCounter.h"

namespace {

constexpr int blockSize = 512;
constexpr int latency = 360;
constexpr int history = 240;  // work-row index of the first sample handed out

// Block b scans, and hands out, input samples [b * 512 - 360, b * 512 + 152).
int scanStart(int block) { return block * blockSize - latency; }
int scanEnd(int block) { return scanStart(block) + blockSize; }

// Drives a one-channel repair block by block over a whole signal and its marks.
struct RepairRun {
    std::vector<float> samples;
    std::vector<int> marks;
};

RepairRun runRepair(ArCrackleRepair& repair, std::vector<float> samples, std::vector<int> marks)
{
    const int blocks = static_cast<int>(samples.size()) / blockSize;
    for (int b = 0; b < blocks; ++b) {
        float* io = samples.data() + b * blockSize;
        int* m = marks.data() + b * blockSize;
        repair.process(&io, &io, &m);
    }
    return {samples, marks};
}

// A sinusoid is predictable: an AR model of the block reconstructs a gap in it.
std::vector<float> tone(int count)
{
    return cracklefixture::sine(1, count, 441.0, 0.5)[0];
}

void markSpan(std::vector<int>& marks, int start, int length)
{
    for (int i = start; i < start + length; ++i) marks[i] = 1;
}

void corrupt(std::vector<float>& samples, int start, int length)
{
    for (int i = start; i < start + length; ++i) samples[i] += 0.4f * ((i % 2) != 0 ? 1.0f : -1.0f);
}

double maxErrorOver(const std::vector<float>& out, const std::vector<float>& clean, int start, int length)
{
    double worst = 0.0;
    for (int i = start; i < start + length; ++i)
        worst = std::max(worst, std::fabs(double(out[i + latency]) - clean[i]));
    return worst;
}

TEST(ArCrackleRepair, LatencyIsThreeMaximumSpans)
{
    ArCrackleRepair repair(1, 1, blockSize, 1);
    EXPECT_EQ(repair.getLatency(), 360);
}

TEST(ArCrackleRepair, BlockWithoutMarksIsHandedOutUnchanged360SamplesLater)
{
    ArCrackleRepair repair(2, 1, blockSize, 2);
    auto input = cracklefixture::musicLike(2, 8 * blockSize, 7);
    auto io = input;
    std::vector<std::vector<int>> marks(2, std::vector<int>(io[0].size(), 0));
    for (int b = 0; b < 8; ++b) {
        float* rows[2] = {io[0].data() + b * blockSize, io[1].data() + b * blockSize};
        int* markRows[2] = {marks[0].data() + b * blockSize, marks[1].data() + b * blockSize};
        repair.process(rows, rows, markRows);
    }
    for (int c = 0; c < 2; ++c) {
        for (int t = 0; t < 8 * blockSize; ++t) {
            const float expected = t < latency ? 0.0f : input[c][t - latency];
            ASSERT_EQ(io[c][t], expected) << "channel " << c << " sample " << t;
        }
    }
}

TEST(ArCrackleRepair, MarksHandedBackLineUpWithTheSamples)
{
    ArCrackleRepair repair(1, 1, blockSize, 2);
    const auto clean = tone(8 * blockSize);
    std::vector<int> marks(clean.size(), 0);
    std::vector<float> damaged = clean;
    for (int start : {700, 1500, 2049, 3000}) {
        markSpan(marks, start, 7);
        corrupt(damaged, start, 7);
    }
    const auto run = runRepair(repair, damaged, marks);
    for (int t = 0; t < static_cast<int>(clean.size()); ++t) {
        const int expected = t < latency ? 0 : marks[t - latency];
        ASSERT_EQ(run.marks[t], expected) << t;
    }
    // And the marked samples handed back are the repaired ones.
    EXPECT_LT(maxErrorOver(run.samples, clean, 1500, 7), 0.01);
}

TEST(ArCrackleRepair, SpanOf119IsSolvedAndSpanOf120KeepsItsSamples)
{
    for (int length : {119, 120}) {
        SCOPED_TRACE(length);
        ArCrackleRepair repair(1, 1, blockSize, 2);
        const auto clean = tone(8 * blockSize);
        std::vector<int> marks(clean.size(), 0);
        std::vector<float> damaged = clean;
        // Wholly inside the scan of block 4.
        const int start = scanStart(4) + 100;
        markSpan(marks, start, length);
        corrupt(damaged, start, length);
        const auto run = runRepair(repair, damaged, marks);
        if (length == 119) {
            // The corruption is 0.4; a solved span of a pure tone is far closer.
            EXPECT_LT(maxErrorOver(run.samples, clean, start, length), 0.01);
        }
        if (length == 120) {
            for (int i = start; i < start + length; ++i) ASSERT_EQ(run.samples[i + latency], damaged[i]) << i;
        }
    }
}

TEST(ArCrackleRepair, TailOfALongSpanCrossingTheBlockEndIsSolvedAsAShortSpan)
{
    // A 120-sample span opening 30 samples before block 4's scan ends is too long
    // in block 4, but block 5 meets its last 90 samples as a span at index 240 and
    // rewrites them (from a left context that still holds the damaged head).
    ArCrackleRepair repair(1, 1, blockSize, 2);
    const auto clean = tone(8 * blockSize);
    std::vector<int> marks(clean.size(), 0);
    std::vector<float> damaged = clean;
    const int start = scanEnd(4) - 30;
    markSpan(marks, start, 120);
    corrupt(damaged, start, 120);
    const auto run = runRepair(repair, damaged, marks);
    for (int i = start; i < scanEnd(4); ++i) ASSERT_EQ(run.samples[i + latency], damaged[i]) << i;
    int rewritten = 0;
    for (int i = scanEnd(4); i < start + 120; ++i) rewritten += run.samples[i + latency] != damaged[i];
    EXPECT_EQ(rewritten, 90);
}

TEST(ArCrackleRepair, SpanClosingInTheLookAheadIsSolvedInThatBlock)
{
    ArCrackleRepair repair(1, 1, blockSize, 1);
    const auto clean = tone(6 * blockSize);
    std::vector<int> marks(clean.size(), 0);
    std::vector<float> damaged = clean;
    // Opens 10 samples before block 2's scan ends, closes 20 into its look-ahead.
    const int start = scanEnd(2) - 10;
    markSpan(marks, start, 30);
    corrupt(damaged, start, 30);
    std::vector<float> io = damaged;
    std::vector<int> m = marks;
    for (int b = 0; b < 3; ++b) {
        float* rows = io.data() + b * blockSize;
        int* markRows = m.data() + b * blockSize;
        repair.process(&rows, &rows, &markRows);
    }
    EXPECT_EQ(repair.lastSpanEnd(0) - repair.lastSpanStart(0), 30);
    // The head of the span, handed out by block 2, is already repaired.
    for (int i = start; i < scanEnd(2); ++i) EXPECT_NEAR(io[i + latency], clean[i], 0.01) << i;
}

TEST(ArCrackleRepair, SpanStillOpenAtTheEndOfTheLookAheadIsSkippedAndMetAgainAt240)
{
    ArCrackleRepair repair(1, 1, blockSize, 1);
    const auto clean = tone(6 * blockSize);
    std::vector<int> marks(clean.size(), 0);
    std::vector<float> damaged = clean;
    // Opens 5 samples before block 2's scan ends and is still marked at the
    // look-ahead limit, 120 samples past the scan. Such a span is always at least
    // 121 long, so its tail (125 samples) is again too long in block 3.
    const int start = scanEnd(2) - 5;
    markSpan(marks, start, 130);
    corrupt(damaged, start, 130);
    std::vector<float> io = damaged;
    std::vector<int> m = marks;
    for (int b = 0; b < 4; ++b) {
        float* rows = io.data() + b * blockSize;
        int* markRows = m.data() + b * blockSize;
        repair.process(&rows, &rows, &markRows);
        if (b == 2) {
            EXPECT_EQ(repair.lastSpanStart(0), history + blockSize - 5);
            EXPECT_EQ(repair.lastSpanEnd(0), 3 * 120 + blockSize);  // reached the limit
        }
        if (b == 3) {
            EXPECT_EQ(repair.lastSpanStart(0), history);  // the tail, from 240
        }
    }
    for (int i = start; i < scanEnd(3); ++i) ASSERT_EQ(io[i + latency], damaged[i]) << i;
}

TEST(ArCrackleRepair, StraightLineFromTheFirstMarkedSample)
{
    std::vector<float> samples = {9.0f, 0.0f, 5.0f, 5.0f, 1.0f};
    ArCrackleRepair::fillStraightLine(samples.data(), 1, 4);
    EXPECT_EQ(samples, (std::vector<float>{9.0f, 0.25f, 0.5f, 0.75f, 1.0f}));
}

// After a reset the model is all zeros, and a block whose windowed energy is only
// dither (about 512 * 7.5e-13 = 3.8e-10, below 1e-9) keeps it, so every solve is
// singular and takes the straight line. The span 0.0 .. | 1.0 sits at work indices
// 240..242 with the 1.0 at 243, where the window is below 1e-6.
std::vector<float> straightLineThroughProcess(int passes)
{
    ferrotip::srand(1);
    ArCrackleRepair repair(1, 1, blockSize, passes);
    std::vector<float> samples(3 * blockSize, 0.0f);
    std::vector<int> marks(samples.size(), 0);
    // Work index 240 of block 1 holds input 240 + 512 - 600 = 152.
    markSpan(marks, 152, 3);
    samples[155] = 1.0f;
    const auto run = runRepair(repair, samples, marks);
    for (int order = 0; order <= 6; ++order)
        for (int j = 0; j <= order; ++j) EXPECT_EQ(repair.modelRow(order)[j], 0.0);
    return {run.samples.begin() + 152 + latency, run.samples.begin() + 155 + latency};
}

TEST(ArCrackleRepair, FailedSolveGivesQuarterStepsInOnePass)
{
    EXPECT_EQ(straightLineThroughProcess(1), (std::vector<float>{0.25f, 0.5f, 0.75f}));
}

TEST(ArCrackleRepair, FailedSolveTwiceWithTheEnginesTwoPasses)
{
    // The second pass anchors on the first pass's 0.25: step 0.75 / 4.
    EXPECT_EQ(straightLineThroughProcess(2), (std::vector<float>{0.4375f, 0.625f, 0.8125f}));
}

TEST(ArCrackleRepair, SilentBlockSolvesWithTheLastModel)
{
    ferrotip::srand(1);
    ArCrackleRepair repair(1, 1, blockSize, 1);
    // A tone up to the start of block 3's scan, silence after. Block 2 estimates a
    // model of order 8 from the tone (its span is 4 long).
    std::vector<float> samples = tone(5 * blockSize);
    std::fill(samples.begin() + scanStart(3), samples.end(), 0.0f);
    std::vector<int> marks(samples.size(), 0);
    markSpan(marks, scanStart(2) + 200, 4);
    // A span of zeros at the start of block 3's window, whose weight there is
    // below 1e-6, so the windowed energy stays at the dither's 3.8e-10.
    const int span = scanStart(3);
    markSpan(marks, span, 4);

    std::vector<float> io = samples;
    std::vector<int> m = marks;
    auto runBlock = [&](int b) {
        float* rows = io.data() + b * blockSize;
        int* markRows = m.data() + b * blockSize;
        repair.process(&rows, &rows, &markRows);
    };
    for (int b = 0; b < 3; ++b) runBlock(b);
    const std::vector<double> model(repair.modelRow(8), repair.modelRow(8) + 9);
    ASSERT_NE(model[1], 0.0);

    // The same solve by hand: tone on the left, silence on the right.
    std::vector<float> context(5 * 120, 0.0f);
    std::copy_n(samples.begin() + span - 8, 8, context.begin());
    ArWorkspace solver(240, 120);
    ASSERT_EQ(solver.interpolateGap(context.data(), model.data(), 8, 4), 0);

    runBlock(3);
    EXPECT_EQ(std::vector<double>(repair.modelRow(8), repair.modelRow(8) + 9), model);
    for (int j = 0; j < 4; ++j) EXPECT_EQ(io[span + j + latency], context[j]) << j;
}

TEST(ArCrackleRepair, ResetClearsTheModelAndTheCarry)
{
    ArCrackleRepair repair(1, 1, blockSize, 2);
    auto samples = tone(blockSize);
    std::vector<int> marks(blockSize, 0);
    markSpan(marks, 300, 5);
    float* io = samples.data();
    int* m = marks.data();
    repair.process(&io, &io, &m);
    repair.reset();
    for (int j = 0; j <= 10; ++j) EXPECT_EQ(repair.modelRow(10)[j], 0.0);
    std::vector<float> zeros(blockSize, 0.0f);
    std::vector<int> noMarks(blockSize, 0);
    io = zeros.data();
    m = noMarks.data();
    repair.process(&io, &io, &m);
    for (float v : zeros) ASSERT_EQ(v, 0.0f);
    EXPECT_EQ(repair.passes(), 2);
}

TEST(ArCrackleRepair, ProcessAllocatesNothing)
{
    ArCrackleRepair repair(2, 1, blockSize, 2);
    auto input = cracklefixture::musicLike(2, blockSize, 3);
    std::vector<std::vector<int>> marks(2, std::vector<int>(blockSize, 0));
    markSpan(marks[0], 100, 50);
    markSpan(marks[1], 440, 60);
    float* rows[2] = {input[0].data(), input[1].data()};
    int* markRows[2] = {marks[0].data(), marks[1].data()};
    EXPECT_EQ(testsupport::allocationsDuring([&] { repair.process(rows, rows, markRows); }), 0u);
}

}  // namespace
