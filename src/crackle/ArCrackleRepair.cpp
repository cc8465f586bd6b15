#include "crackle/ArCrackleRepair.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "ar/ArRecursions.h"
#include "ar/ClassicRand.h"
#include "signal/PortableCosine.h"

namespace {

constexpr int correlationSize = 1024;
// Below this energy the block carries only dither: keep the last model.
constexpr double silentEnergy = 1e-9;

}  // namespace

ArCrackleRepair::ArCrackleRepair(int channels, int /*requestedMaxSpan*/, int blockSize, int passes)
    : channels_(channels),
      blockSize_(blockSize),
      inSpan_(channels),
      spanStart_(channels),
      spanEnd_(channels),
      workSamples_(channels, 5 * maxSpanLength + blockSize),
      workMarks_(channels, 5 * maxSpanLength + blockSize),
      windowedBlock_(std::min(blockSize, correlationSize)),
      ditherDraws_(std::min(blockSize, correlationSize)),
      hannWindow_(blockSize),
      autocorr_(2 * maxSpanLength + 2),
      lpcRows_(2 * maxSpanLength + 2, 2 * maxSpanLength + 2),
      context_(5 * maxSpanLength),
      spans_(blockSize / 2 + 1),
      gapSolver_(std::make_unique<ArWorkspace>(2 * maxSpanLength, maxSpanLength)),
      correlator_(std::make_unique<standardLib::Correlation<double>>(correlationSize)),
      passes_(passes),
      deferred_(deferredCapacity),
      deferredSamples_(deferredCapacity, std::min(blockSize, correlationSize)),
      replayRows_(3, 3)
{
    // Periodic Hann, scaled by 1/blockSize.
    for (int k = 0; k < blockSize_; ++k) {
        const double angle = (6.283185307179586 * k) / blockSize_;
        hannWindow_[k] = (0.5 - 0.5 * standardLib::cosine(angle)) / blockSize_;
    }
    reset();
}

void ArCrackleRepair::reset()
{
    std::fill(windowedBlock_.begin(), windowedBlock_.end(), 0.0);
    workSamples_.fill(0.0f);
    workMarks_.fill(0);
    lpcRows_.fill(0.0);
    std::fill(inSpan_.begin(), inSpan_.end(), 0);
    std::fill(spanStart_.begin(), spanStart_.end(), 0);
    std::fill(spanEnd_.begin(), spanEnd_.end(), 0);
    gapSolver_->clear();
    deferredCount_ = 0;  // their rows were cleared with the table
}

void ArCrackleRepair::setDeferredLimit(int blocks)
{
    settleDeferred(true);
    deferredLimit_ = std::clamp(blocks, 0, deferredCapacity);
}

const double* ArCrackleRepair::modelRow(int order)
{
    if (order <= 2) settleDeferred(true);
    return lpcRows_[order];
}

int ArCrackleRepair::process(float** in, float** out, int** marks)
{
    for (int c = 0; c < channels_; ++c) {
        float* samples = workSamples_[c];
        int* workMarks = workMarks_[c];
        std::copy_n(in[c], blockSize_, samples + overlap_);
        std::copy_n(marks[c], blockSize_, workMarks + overlap_);

        repairChannel(c);

        std::copy_n(samples + historyLength(), blockSize_, out[c]);
        std::copy_n(workMarks + historyLength(), blockSize_, marks[c]);
        // The last overlap_ samples become the carry of the next block.
        std::copy(samples + blockSize_, samples + blockSize_ + overlap_, samples);
        std::copy(workMarks + blockSize_, workMarks + blockSize_ + overlap_, workMarks);
    }
    return 0;
}

void ArCrackleRepair::repairChannel(int c)
{
    // The passes change samples, never marks: the spans are found once.
    int spanCount = 0;
    int longest = 0;
    scanSpans(c, [&](int start, int end) {
        spans_[spanCount++] = {start, end};
        longest = std::max(longest, end - start);
    });
    // The model order follows the longest span, so every span finds its row.
    int order = 2 * (longest > 0 ? longest : 1);
    if (order >= maxOrder_) order = maxOrder_ - 1;
    if (spanCount == 0 && deferredLimit_ > 0) {
        deferEstimates(c);
        return;
    }
    for (int pass = 0; pass < passes_; ++pass) {
        estimateModel(c, order);
        for (int s = 0; s < spanCount; ++s) solveSpan(c, spans_[s].first, spans_[s].second);
    }
}

void ArCrackleRepair::estimateModel(int c, int order)
{
    correlateBlock(workSamples_[c] + historyLength(), order);
    if (!(autocorr_[0] > silentEnergy)) {
        settleDeferred(true);  // the block keeps the whole model
        return;
    }
    const int completed = levinsonDurbinRows(autocorr_.data(), lpcRows_.rows(), order);
    // A stop at the second order leaves row 2's entry 1 as it was; any later stop
    // has rewritten everything a waiting estimate could have written.
    if (completed < 2) settleDeferred(false);
    deferredCount_ = 0;
}

void ArCrackleRepair::correlateBlock(const float* block, int order)
{
    // The correlator reads only the first correlationSize samples of what it is
    // given, so only those are weighted; the dither of the rest of the block is still
    // drawn (skipped over) so that the sequence moves on by one value per sample.
    const int used = std::min(blockSize_, correlationSize);
    int* draws = ditherDraws_.data();
    ferrotip::randFill(draws, used);
    ferrotip::randSkip(static_cast<std::uint64_t>(blockSize_ - used));
    double* weighted = windowedBlock_.data();
    const double* window = hannWindow_.data();
    for (int k = 0; k < used; ++k) {
        const float dither = (static_cast<float>(draws[k]) * (1.0f / 32767.0f) - 0.5f) * 3e-6f;
        weighted[k] = static_cast<double>(block[k]) * window[k] + static_cast<double>(dither);
    }
    correlator_->autocorrelate(weighted, used, autocorr_.data(), order + 1);
}

void ArCrackleRepair::deferEstimates(int c)
{
    if (passes_ <= 0) return;
    if (deferredCount_ == deferredLimit_) settleDeferred(true);
    deferred_[deferredCount_] = {ferrotip::randState(), passes_};
    std::copy_n(workSamples_[c] + historyLength(), deferredSamples_.columnCount(), deferredSamples_[deferredCount_]);
    ++deferredCount_;
    // Each pass draws one dither value per sample of the block.
    ferrotip::randSkip(static_cast<std::uint64_t>(blockSize_) * static_cast<std::uint64_t>(passes_));
}

int ArCrackleRepair::replayEstimate(int slot, int pass)
{
    // The order-2 estimate of the block's pass, into replayRows_, on the dither it
    // drew then; this thread's sequence is left where it was. 0 for a silent block,
    // else the order Levinson completed.
    const std::uint32_t current = ferrotip::randState();
    ferrotip::srand(deferred_[slot].randState);
    ferrotip::randSkip(static_cast<std::uint64_t>(blockSize_) * static_cast<std::uint64_t>(pass));
    correlateBlock(deferredSamples_[slot], 2);
    ferrotip::srand(current);
    if (!(autocorr_[0] > silentEnergy)) return 0;
    return levinsonDurbinRows(autocorr_.data(), replayRows_.rows(), 2);
}

void ArCrackleRepair::settleDeferred(bool wholeModel)
{
    // Newest first: the newest estimate that was not silent wrote rows 0 and 1 and
    // entries 0 and 2 of row 2; entry 1 of row 2 comes from the newest one that was
    // also stable at the second order. What no waiting estimate wrote stays.
    bool needEntries = wholeModel;
    for (int slot = deferredCount_ - 1; slot >= 0; --slot) {
        for (int pass = deferred_[slot].passes - 1; pass >= 0; --pass) {
            const int completed = replayEstimate(slot, pass);
            if (completed == 0) continue;
            if (needEntries) {
                lpcRows_[0][0] = replayRows_[0][0];
                lpcRows_[1][0] = replayRows_[1][0];
                lpcRows_[1][1] = replayRows_[1][1];
                lpcRows_[2][0] = replayRows_[2][0];
                lpcRows_[2][2] = replayRows_[2][2];
                needEntries = false;
            }
            if (completed >= 2) {
                lpcRows_[2][1] = replayRows_[2][1];
                deferredCount_ = 0;
                return;
            }
        }
    }
    deferredCount_ = 0;
}

template <typename OnSpan>
void ArCrackleRepair::scanSpans(int c, OnSpan onSpan)
{
    // Only 1 opens a span and only 0 closes one, so the walk jumps from one such
    // value to the next. A span still open at the block's end is followed into the
    // look-ahead as far as lookAheadLimit.
    const int* marks = workMarks_[c];
    const int* blockEnd = marks + historyLength() + blockSize_;
    inSpan_[c] = 0;
    const int* i = marks + historyLength();
    while (true) {
        i = std::find(i, blockEnd, 1);
        if (i == blockEnd) return;
        inSpan_[c] = 1;
        spanStart_[c] = static_cast<int>(i - marks);
        i = std::find(i, blockEnd, 0);
        if (i == blockEnd) break;
        inSpan_[c] = 0;
        spanEnd_[c] = static_cast<int>(i - marks);
        onSpan(spanStart_[c], spanEnd_[c]);
    }
    inSpan_[c] = 0;
    const int* limit = marks + lookAheadLimit();
    while (i < limit && *i == 1) ++i;
    spanEnd_[c] = static_cast<int>(i - marks);
    onSpan(spanStart_[c], spanEnd_[c]);
}

void ArCrackleRepair::solveSpan(int c, int start, int end)
{
    const int length = end - start;
    // A span that reached the look-ahead limit has not been seen to end.
    if (length >= maxSpan_ || end >= lookAheadLimit()) return;
    float* samples = workSamples_[c];
    const int order = 2 * length;
    float* context = context_.data();
    std::copy_n(samples + start - order, order, context);
    std::copy_n(samples + end, order, context + order);
    if (gapSolver_->interpolateGap(context, lpcRows_[order], order, length) == 0) {
        std::copy_n(context, length, samples + start);
    } else {
        fillStraightLine(samples, start, end);
    }
}

void ArCrackleRepair::fillStraightLine(float* samples, int start, int end)
{
    const int length = end - start;
    const float a = samples[start];
    const float b = samples[end];
    const float step = (b - a) / static_cast<float>(length + 1);
    for (int j = 0; j < length; ++j) samples[start + j] = static_cast<float>(j + 1) * step + a;
}
