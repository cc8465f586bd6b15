// The correlation of a template (a hole's two borders with zeros between them) with
// every window of one or more channels' segments, summed over the channels, by
// overlap-save in blocks of a power of two: each block's transform times the
// template's conjugate spectrum, back, gives the correlations of the windows that
// start in its first blockSize - span + 1 samples. In double, or in single precision
// where the correlations only rank candidates (half the cost of the transforms).
//
// The constructor allocates for blocks from `smallest` to `largest` samples and up to
// maxChannels channels; nothing else does. The signal library's transform gives the
// same bits on every instruction-set path. One thread at a time per object.
#pragma once

#include <memory>
#include <vector>

#include "signal/CFft_std.h"

template <typename Real>
class BlockCorrelator {
public:
    BlockCorrelator(int maxChannels, int smallest, int largest);

    // work[u] = sum over channels c and j < span of t_c[j] x_c[u + j] for u < count - span + 1,
    // t_c being x_c's samples [hole - border, hole) and [hole + length, hole + length + border)
    // with zeros between, in blocks of blockSize (a power of two from smallest to largest,
    // at least span).
    void correlate(const double* const* segments, int channels, int count, int hole, int length, int border,
                   int blockSize, double* work);

private:
    standardLib::standard::CFft_std<Real>& transform(int blockSize);

    int smallest_;
    // Every power of two from smallest to largest.
    std::vector<std::unique_ptr<standardLib::standard::CFft_std<Real>>> transforms;
    std::unique_ptr<Real[]> spectraRe, spectraIm;  // maxChannels x (largest / 2 + 1): the template's
    std::unique_ptr<Real[]> accRe, accIm, re, im;  // largest / 2 + 1
    std::unique_ptr<Real[]> block;                 // largest: one block in, its correlations out
};

extern template class BlockCorrelator<float>;
extern template class BlockCorrelator<double>;
