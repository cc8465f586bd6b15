#include "inpaint/PatternSearch.h"

#include <algorithm>
#include <cmath>

#include "inpaint/ScoreKernels.h"
#include "inpaint/TransformSize.h"

PatternSearch::PatternSearch(int maxLength, int maxChannels, int maxSpan, Precision precision)
    : size(transformSizeFor(maxLength)),
      largestBlock(std::min(size, transformSizeFor(std::max(2 * maxSpan, blockMinimum)))),
      maxChannels_(maxChannels),
      work(new double[size]()),
      energy(new double[maxLength + 1]())
{
    const int smallest = std::min(blockMinimum, largestBlock);
    if (precision == Precision::ranking)
        rankingBlocks = std::make_unique<BlockCorrelator<float>>(maxChannels, smallest, largestBlock);
    else
        exactBlocks = std::make_unique<BlockCorrelator<double>>(maxChannels, smallest, largestBlock);
}

// The block for a template of `span` samples: at least twice the span, so that at
// least half of each block is new windows, and small enough to stay in cache (the
// search of a 250 ms gap over 6 s took 13-27% longer in blocks of four spans).
int PatternSearch::blockSizeFor(int span) const
{
    int blockSize = std::min(blockMinimum, largestBlock);
    while (blockSize < 2 * span && blockSize < largestBlock) blockSize *= 2;
    return blockSize;
}

void PatternSearch::begin(const double* const* segments, int channelCount, int count)
{
    channels = std::min(channelCount, maxChannels_);
    count_ = count;
    segments_ = segments;
    // The running sum stays in a register: read back from memory, each step would wait
    // for the store before it as well as for the addition.
    double running = 0.0;
    energy[0] = running;
    for (int i = 0; i < count; ++i) {
        double sum = 0.0;
        for (int c = 0; c < channels; ++c) sum += segments[c][i] * segments[c][i];
        running = running + sum;
        energy[i + 1] = running;
    }
}

// Sum of squares over the two borders of the window starting at u.
double PatternSearch::windowEnergy(int u, int length, int border) const
{
    return (energy[u + border] - energy[u]) + (energy[u + 2 * border + length] - energy[u + border + length]);
}

// work[u] = sum over channels and border samples j of t[j] x[u + j], the template t
// being the hole's borders with zeros between them, for every window u that fits;
// returns the template's energy.
double PatternSearch::correlationAt(int hole, int length, int border)
{
    const int blockSize = blockSizeFor(2 * border + length);
    if (rankingBlocks)
        rankingBlocks->correlate(segments_, channels, count_, hole, length, border, blockSize, work.get());
    else
        exactBlocks->correlate(segments_, channels, count_, hole, length, border, blockSize, work.get());
    return windowEnergy(hole - border, length, border);
}

// The score of the window starting at u, from its correlation in work[u].
double PatternSearch::scoreAt(int u, int hole, int length, int border, double templateEnergy) const
{
    if (u < hole + length && u + 2 * border + length > hole) return 0.0;
    const double e = windowEnergy(u, length, border);
    if (!(e > 1e-12 * templateEnergy)) return 0.0;
    return work[u] / std::sqrt(e * templateEnergy);
}

// The hole's borders correlated with every window (in work), shortened to the audio
// before the hole; their energy, or 0 when no source fits.
double PatternSearch::templateFor(int hole, int length, int& border)
{
    border = std::min(border, hole);
    if (border <= 0 || hole + length + border > count_ || 2 * border + length > largestBlock) return 0.0;
    return correlationAt(hole, length, border);
}

double* PatternSearch::scores(int hole, int length, int border, int& windows)
{
    windows = 0;
    const double templateEnergy = templateFor(hole, length, border);
    if (!(templateEnergy > 0.0)) return nullptr;
    const int span = 2 * border + length;
    windows = count_ - span + 1;
    // Windows that reach into the hole score 0; the others on the score kernels.
    const int overlapFrom = std::clamp(hole - span + 1, 0, windows);
    const int overlapTo = std::clamp(hole + length, overlapFrom, windows);
    inpaint_kernels::normaliseScores(path, work.get(), energy.get(), 0, overlapFrom, length, border, templateEnergy);
    std::fill(work.get() + overlapFrom, work.get() + overlapTo, 0.0);
    inpaint_kernels::normaliseScores(path, work.get(), energy.get(), overlapTo, windows, length, border,
                                     templateEnergy);
    return work.get();
}

double PatternSearch::fill(int hole, int length, int border, double* const* out)
{
    for (int c = 0; c < channels; ++c) std::fill_n(out[c], length, 0.0);
    const double templateEnergy = templateFor(hole, length, border);
    if (!(templateEnergy > 0.0)) return 0.0;
    const int span = 2 * border + length;
    int best = -1;
    double bestScore = 0.0;
    for (int u = 0; u + span <= count_; ++u) {
        const double score = scoreAt(u, hole, length, border, templateEnergy);
        if (score > bestScore) {
            bestScore = score;
            best = u;
        }
    }
    if (best < 0) return 0.0;
    const double gain = work[best] / windowEnergy(best, length, border);
    for (int c = 0; c < channels; ++c)
        for (int i = 0; i < length; ++i) out[c][i] = gain * segments_[c][best + border + i];
    return bestScore;
}
