#include "inpaint/PatternSearch.h"

#include <algorithm>
#include <cmath>

#include "inpaint/TransformSize.h"

PatternSearch::PatternSearch(int maxLength, int maxChannels, int maxSpan)
    : size(transformSizeFor(maxLength)),
      largestBlock(std::min(size, transformSizeFor(std::max(2 * maxSpan, blockMinimum)))),
      maxChannels_(maxChannels),
      spectraRe(new double[static_cast<std::size_t>(maxChannels) * (largestBlock / 2 + 1)]()),
      spectraIm(new double[static_cast<std::size_t>(maxChannels) * (largestBlock / 2 + 1)]()),
      accRe(new double[largestBlock / 2 + 1]()),
      accIm(new double[largestBlock / 2 + 1]()),
      re(new double[largestBlock / 2 + 1]()),
      im(new double[largestBlock / 2 + 1]()),
      block(new double[largestBlock]()),
      work(new double[size]()),
      energy(new double[maxLength + 1]())
{
    for (int n = std::min(blockMinimum, largestBlock); n <= largestBlock; n *= 2)
        transforms.push_back(std::make_unique<standardLib::standard::CFft_std<double>>(n));
}

// The transform for a template of `span` samples: at least twice the span, so that at
// least half of each block is new windows, and small enough to stay in cache (the
// search of a 250 ms gap over 6 s took 13-27% longer in blocks of four spans).
standardLib::standard::CFft_std<double>& PatternSearch::transformFor(int span, int& blockSize)
{
    blockSize = std::min(blockMinimum, largestBlock);
    std::size_t index = 0;
    while (blockSize < 2 * span && blockSize < largestBlock) {
        blockSize *= 2;
        ++index;
    }
    return *transforms[index];
}

void PatternSearch::begin(const double* const* segments, int channelCount, int count)
{
    channels = std::min(channelCount, maxChannels_);
    count_ = count;
    segments_ = segments;
    energy[0] = 0.0;
    for (int i = 0; i < count; ++i) {
        double sum = 0.0;
        for (int c = 0; c < channels; ++c) sum += segments[c][i] * segments[c][i];
        energy[i + 1] = energy[i] + sum;
    }
}

// Sum of squares over the two borders of the window starting at u.
double PatternSearch::windowEnergy(int u, int length, int border) const
{
    return (energy[u + border] - energy[u]) + (energy[u + 2 * border + length] - energy[u + border + length]);
}

// work[u] = sum over channels and border samples j of t[j] x[u + j], the template t
// being the hole's borders with zeros between them, for every window u that fits;
// returns the template's energy. Each block of the segment gives the correlations of
// the windows that start in its first blockSize - span + 1 samples.
double PatternSearch::correlationAt(int hole, int length, int border)
{
    const int span = 2 * border + length;
    int blockSize = 0;
    standardLib::standard::CFft_std<double>& fft = transformFor(span, blockSize);
    const int bins = blockSize / 2 + 1;
    for (int c = 0; c < channels; ++c) {
        const double* x = segments_[c];
        std::fill_n(block.get(), blockSize, 0.0);
        std::copy_n(x + hole - border, border, block.get());
        std::copy_n(x + hole + length, border, block.get() + border + length);
        fft.realForward(block.get(), spectraRe.get() + c * bins, spectraIm.get() + c * bins);
    }
    const int windows = count_ - span + 1;
    const int step = blockSize - span + 1;
    for (int first = 0; first < windows; first += step) {
        std::fill_n(accRe.get(), bins, 0.0);
        std::fill_n(accIm.get(), bins, 0.0);
        const int samples = std::min(blockSize, count_ - first);
        for (int c = 0; c < channels; ++c) {
            std::copy_n(segments_[c] + first, samples, block.get());
            std::fill(block.get() + samples, block.get() + blockSize, 0.0);
            fft.realForward(block.get(), re.get(), im.get());
            const double* tr = spectraRe.get() + c * bins;
            const double* ti = spectraIm.get() + c * bins;
            for (int k = 0; k < bins; ++k) {
                accRe[k] += re[k] * tr[k] + im[k] * ti[k];
                accIm[k] += im[k] * tr[k] - re[k] * ti[k];
            }
        }
        fft.realInverse(accRe.get(), accIm.get(), block.get());
        std::copy_n(block.get(), std::min(step, windows - first), work.get() + first);
    }
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
    windows = count_ - (2 * border + length) + 1;
    for (int u = 0; u < windows; ++u) work[u] = scoreAt(u, hole, length, border, templateEnergy);
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
