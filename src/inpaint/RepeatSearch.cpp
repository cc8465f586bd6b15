#include "inpaint/RepeatSearch.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "inpaint/BorderKernels.h"
#include "inpaint/BoxSumKernels.h"

// A span of s samples covers at most s / hop + 3 blocks (its ends reach into one more
// block each, and the hole's first block starts one early).
RepeatSearch::RepeatSearch(int maxLength, int hop, int maxSpan)
    : maxLength_(maxLength),
      hop_(std::max(1, hop)),
      blocks(new double[maxLength / hop_ + 1]()),
      stretchBest(new int[(maxLength / hop_ + 1) / stretch + 1]()),
      blockSearch(maxLength / hop_ + 1, 1, maxSpan / hop_ + 3, PatternSearch::Precision::ranking),
      product(new double[2 * hop_ + 1]()),
      energy(new double[2 * hop_ + 1]())
{
}

using kernel_paths::Path;

namespace {

int ceilDiv(int a, int b) { return a >= 0 ? (a + b - 1) / b : -((-a) / b); }
int floorDiv(int a, int b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

// The first index of the highest score above zero in [from, to); -1 if none is.
int firstHighest(const double* score, int from, int to)
{
    int best = -1;
    double bestScore = 0.0;
    for (int u = from; u < to; ++u)
        if (score[u] > bestScore) {
            bestScore = score[u];
            best = u;
        }
    return best;
}

}  // namespace

// blocks[m] += the sum of x[m h .. m h + h) (the hole's samples as silence), in
// ascending order from zero, for m < count: the blocks clear of the hole by the box
// sum kernel, those that reach into it one at a time.
void RepeatSearch::addHalfBlocks(const float* x, int from, int count, int hole, int length)
{
    const int h = hop_;
    const int before = std::clamp(floorDiv(hole - from, h), 0, count);            // wholly before the hole
    const int after = std::clamp(ceilDiv(hole + length - from, h), before, count);  // the first wholly after it
    inpaint_kernels::addBoxSums(path, x, before, h, blocks.get());
    for (int m = before; m < after; ++m) {
        double sum = 0.0;
        const int first = from + m * h;
        for (int j = 0; j < h; ++j)
            sum += first + j >= hole && first + j < hole + length ? 0.0 : static_cast<double>(x[m * h + j]);
        blocks[m] += sum;
    }
    inpaint_kernels::addBoxSums(path, x + static_cast<std::ptrdiff_t>(after) * h, count - after, h,
                                blocks.get() + after);
}

// The shifts of the best few matches of the borders' box sums, at least a quarter of
// the template apart, best first.
RepeatSearch::Coarse RepeatSearch::coarseShifts(const float* const* channels, int channelCount, int from, int to,
                                                int hole, int length, int border)
{
    Coarse coarse{{}, 0};
    // Block m sums samples from + m h to from + m h + 2 h - 1: boxes twice the hop,
    // so that a repeat between two hops still lines up with a block within a
    // quarter of its width.
    const int h = hop_;
    const int count = std::max(0, (to - from - 2 * h) / h + 1);
    // Each block is two half blocks of one hop, each summed once; the hole counts as
    // silence.
    std::fill_n(blocks.get(), count + 1, 0.0);
    for (int c = 0; c < channelCount && count > 0; ++c) addHalfBlocks(channels[c] + from, from, count + 1, hole, length);
    for (int m = 0; m < count; ++m) blocks[m] += blocks[m + 1];
    // The hole in blocks: from the first block that reaches into it to the first
    // wholly after it; the borders: as many blocks as lie wholly within both sides.
    const int holeFrom = floorDiv(hole - from, h) - 1, holeTo = ceilDiv(hole + length - from, h);
    const int blockBorder = std::min(holeFrom - std::max(0, ceilDiv(hole - border - from, h)),
                                     floorDiv(hole + length + border - from, h) - 1 - holeTo);
    if (holeFrom < 0 || blockBorder <= 0) return coarse;
    const double* blockRows[1] = {blocks.get()};
    blockSearch.begin(blockRows, 1, count);
    int windows = 0;
    double* score = blockSearch.scores(holeFrom, holeTo - holeFrom, blockBorder, windows);
    if (!score) return coarse;
    const int separation = std::max(2, (2 * blockBorder + holeTo - holeFrom) / 4);
    // The first of the highest positive scores, again and again, each time clearing
    // the scores around it; each stretch of scores keeps its own first highest, and
    // only those of the stretches cleared are found again.
    const int stretches = (windows + stretch - 1) / stretch;
    for (int i = 0; i < stretches; ++i) stretchBest[i] = firstHighest(score, i * stretch, std::min(windows, (i + 1) * stretch));
    for (; coarse.count < shortlist; ++coarse.count) {
        int best = -1;
        for (int i = 0; i < stretches; ++i)
            if (stretchBest[i] >= 0 && (best < 0 || score[stretchBest[i]] > score[best])) best = stretchBest[i];
        if (best < 0) break;
        coarse.shifts[coarse.count] = (best - (holeFrom - blockBorder)) * h;
        const int clearFrom = std::max(0, best - separation), clearTo = std::min(windows, best + separation + 1);
        std::fill(score + clearFrom, score + clearTo, 0.0);
        for (int i = clearFrom / stretch; i * stretch < clearTo; ++i)
            stretchBest[i] = firstHighest(score, i * stretch, std::min(windows, (i + 1) * stretch));
    }
    return coarse;
}

// The sums over the hole's borders of x(t) x(t + s) and x(t + s)^2 for every shift s
// in [first, first + count), into product[] and energy[] from index `at`, eight
// shifts a call where there are eight.
void RepeatSearch::borderSumsOf(const float* const* channels, int channelCount, int hole, int length, int border,
                                int first, int count, int at) const
{
    for (int i = 0; i < count; i += inpaint_kernels::borderShiftLanes) {
        const int n = std::min(inpaint_kernels::borderShiftLanes, count - i);
        inpaint_kernels::borderSums(path, channels, channelCount, hole, length, border, first + i, n,
                                    product.get() + at + i, energy.get() + at + i);
    }
}

// The best shift within a hop of `shift`, by the borders' exact correlation.
RepeatSearch::Match RepeatSearch::refine(const float* const* channels, int channelCount, int from, int to, int hole,
                                         int length, int border, int shift, double templateEnergy) const
{
    // The shifts whose borders lie within [from, to): [low, high], less those that overlap the hole.
    const int low = std::max(shift - hop_, from - (hole - border));
    const int high = std::min(shift + hop_, to - (hole + border + length));
    const int clear = length + border;  // |s| < clear overlaps the hole
    for (int s = low; s <= high;) {
        if (s > -clear && s < clear) {
            s = clear;
            continue;
        }
        const int runEnd = s < 0 ? std::min(high + 1, -clear + 1) : high + 1;
        borderSumsOf(channels, channelCount, hole, length, border, s, runEnd - s, s - (shift - hop_));
        s = runEnd;
    }
    Match best;
    for (int s = low; s <= high; ++s) {
        if (s > -clear && s < clear) continue;
        const double p = product[s - (shift - hop_)], e = energy[s - (shift - hop_)];
        if (!(e > 1e-12 * templateEnergy)) continue;
        const double score = p / std::sqrt(e * templateEnergy);
        if (score > best.correlation) best = {hole + s, p / e, score};
    }
    return best;
}

RepeatSearch::Match RepeatSearch::find(const float* const* channels, int channelCount, int from, int to, int hole,
                                       int length, int border)
{
    to = std::min(to, from + maxLength_);
    border = std::min({border, hole - from, to - hole - length});
    if (border <= 0 || channelCount <= 0) return {};
    double templateEnergy = 0.0, unused = 0.0;
    inpaint_kernels::borderSums(Path::plain, channels, channelCount, hole, length, border, 0, 1, &unused,
                                &templateEnergy);
    if (!(templateEnergy > 0.0)) return {};
    const Coarse coarse = coarseShifts(channels, channelCount, from, to, hole, length, border);
    Match best;
    for (int k = 0; k < coarse.count; ++k) {
        const Match m =
            refine(channels, channelCount, from, to, hole, length, border, coarse.shifts[k], templateEnergy);
        if (m.correlation > best.correlation) best = m;
    }
    return best;
}
