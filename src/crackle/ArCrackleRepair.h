// AR repair of marked spans in the residual path of a crackle engine.
//
// process(in, out, marks) takes blockSize samples and marks per channel and hands
// back the block of 360 samples earlier (getLatency), with every marked span shorter
// than 120 samples rewritten by least-squares AR interpolation from 2L samples of
// context on each side and a model of order 2L estimated from the block. A span
// whose solve fails becomes a straight line; longer spans pass unchanged. marks is
// rewritten with the marks of the samples handed back. in and out may be the same
// arrays. Construction allocates everything; process allocates nothing. The dither
// uses this thread's ferrotip::rand sequence. One thread at a time.
//
// A block without spans only ever writes rows 0..2 of the model table, which are read
// again only by a later block that keeps rows it did not write (silent, or unstable
// at the second order) or through modelRow. Such a block therefore just moves the
// dither sequence on and keeps its samples and dither state; its estimates are
// replayed, newest first, only when their rows are read or the queue is full. The
// table and the dither sequence are bit for bit those of estimating every block.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "ar/ArWorkspace.h"
#include "signal/CBuffer2D.h"
#include "signal/Correlation.h"

class ArCrackleRepair {
public:
    static constexpr int maxSpanLength = 120;

    // requestedMaxSpan is ignored: the span limit is fixed at 120, since the
    // history, look-ahead and model capacity are all sized from it.
    ArCrackleRepair(int channels, int requestedMaxSpan, int blockSize, int passes);

    int process(float** in, float** out, int** marks);
    void reset();
    void setPasses(int passes) { passes_ = passes; }
    int getLatency() const { return 3 * maxSpan_; }

    // Channel blocks without spans whose estimates may wait, up to deferredCapacity;
    // 0 estimates every block at once (the reference for the waiting path).
    static constexpr int deferredCapacity = 16;
    void setDeferredLimit(int blocks);

    // Row `order` of the model table as the last estimation left it.
    const double* modelRow(int order);
    int passes() const { return passes_; }
    // Bounds of the last span the last scan of the channel met.
    int lastSpanStart(int channel) const { return spanStart_[channel]; }
    int lastSpanEnd(int channel) const { return spanEnd_[channel]; }

    // Fallback for an unsolvable span [start, end): a line from the first marked
    // sample towards samples[end], ending one step short of it.
    static void fillStraightLine(float* samples, int start, int end);

private:
    int historyLength() const { return 2 * maxSpan_; }          // 240: no span starts before
    int lookAheadLimit() const { return 3 * maxSpan_ + blockSize_; }  // a span reaching it is unseen

    void repairChannel(int c);
    void estimateModel(int c, int order);
    void correlateBlock(const float* block, int order);
    void deferEstimates(int c);
    int replayEstimate(int slot, int pass);
    void settleDeferred(bool wholeModel);
    void solveSpan(int c, int start, int end);
    template <typename OnSpan>
    void scanSpans(int c, OnSpan onSpan);

    int channels_;
    int blockSize_;
    int maxSpan_ = maxSpanLength;
    int overlap_ = 5 * maxSpanLength;
    std::vector<int> inSpan_;
    std::vector<int> spanStart_;
    std::vector<int> spanEnd_;
    // Work rows: overlap_ carried samples followed by the new block. The first
    // overlap_ entries double as the carry between blocks.
    standardLib::CBuffer2D<float> workSamples_;
    standardLib::CBuffer2D<int> workMarks_;
    int maxOrder_ = 2 * maxSpanLength;
    std::vector<double> windowedBlock_;  // the weighted start of the block the correlator reads
    std::vector<int> ditherDraws_;
    std::vector<double> hannWindow_;
    std::vector<double> autocorr_;
    standardLib::CBuffer2D<double> lpcRows_;
    std::vector<float> context_;
    // The spans of the channel being repaired, [start, end) in work-row indices; a
    // span takes at least a marked and an unmarked sample.
    std::vector<std::pair<int, int>> spans_;
    std::unique_ptr<ArWorkspace> gapSolver_;
    std::unique_ptr<standardLib::Correlation<double>> correlator_;
    int passes_;
    // Waiting estimates, oldest first: the correlator's samples of a channel block and
    // the dither state before its first pass.
    struct DeferredBlock {
        std::uint32_t randState;
        int passes;
    };
    std::vector<DeferredBlock> deferred_;
    standardLib::CBuffer2D<float> deferredSamples_;
    int deferredCount_ = 0;
    int deferredLimit_ = deferredCapacity;
    standardLib::CBuffer2D<double> replayRows_;  // rows 0..2 of a replayed estimate
};
