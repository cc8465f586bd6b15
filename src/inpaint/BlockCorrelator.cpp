#include "inpaint/BlockCorrelator.h"

#include <algorithm>

template <typename Real>
BlockCorrelator<Real>::BlockCorrelator(int maxChannels, int smallest, int largest)
    : smallest_(smallest),
      spectraRe(new Real[static_cast<std::size_t>(maxChannels) * (largest / 2 + 1)]()),
      spectraIm(new Real[static_cast<std::size_t>(maxChannels) * (largest / 2 + 1)]()),
      accRe(new Real[largest / 2 + 1]()),
      accIm(new Real[largest / 2 + 1]()),
      re(new Real[largest / 2 + 1]()),
      im(new Real[largest / 2 + 1]()),
      block(new Real[largest]())
{
    for (int n = smallest; n <= largest; n *= 2)
        transforms.push_back(std::make_unique<standardLib::standard::CFft_std<Real>>(n));
}

template <typename Real>
standardLib::standard::CFft_std<Real>& BlockCorrelator<Real>::transform(int blockSize)
{
    std::size_t index = 0;
    for (int n = smallest_; n < blockSize; n *= 2) ++index;
    return *transforms[index];
}

template <typename Real>
void BlockCorrelator<Real>::correlate(const double* const* segments, int channels, int count, int hole, int length,
                                      int border, int blockSize, double* work)
{
    standardLib::standard::CFft_std<Real>& fft = transform(blockSize);
    const int span = 2 * border + length;
    const int bins = blockSize / 2 + 1;
    for (int c = 0; c < channels; ++c) {
        const double* x = segments[c];
        std::fill_n(block.get(), blockSize, Real(0));
        std::copy_n(x + hole - border, border, block.get());
        std::copy_n(x + hole + length, border, block.get() + border + length);
        fft.realForward(block.get(), spectraRe.get() + c * bins, spectraIm.get() + c * bins);
    }
    const int windows = count - span + 1;
    const int step = blockSize - span + 1;
    for (int first = 0; first < windows; first += step) {
        std::fill_n(accRe.get(), bins, Real(0));
        std::fill_n(accIm.get(), bins, Real(0));
        const int samples = std::min(blockSize, count - first);
        for (int c = 0; c < channels; ++c) {
            std::copy_n(segments[c] + first, samples, block.get());
            std::fill(block.get() + samples, block.get() + blockSize, Real(0));
            fft.realForward(block.get(), re.get(), im.get());
            const Real* tr = spectraRe.get() + c * bins;
            const Real* ti = spectraIm.get() + c * bins;
            for (int k = 0; k < bins; ++k) {
                accRe[k] += re[k] * tr[k] + im[k] * ti[k];
                accIm[k] += im[k] * tr[k] - re[k] * ti[k];
            }
        }
        fft.realInverse(accRe.get(), accIm.get(), block.get());
        std::copy_n(block.get(), std::min(step, windows - first), work + first);
    }
}

template class BlockCorrelator<float>;
template class BlockCorrelator<double>;
