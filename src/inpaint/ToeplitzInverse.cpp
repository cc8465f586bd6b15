#include "inpaint/ToeplitzInverse.h"

#include <algorithm>

#include "inpaint/TransformSize.h"

ToeplitzInverse::ToeplitzInverse(int minSize, int maxSize) : minTransform(transformSizeFor(2 * std::max(1, minSize)))
{
    const int largest = transformSizeFor(2 * std::max(minSize, maxSize));
    for (int length = minTransform; length <= largest; length *= 2) transforms.push_back(std::make_unique<Fft>(length));
    const int bins = largest / 2 + 1;
    work.reset(new double[largest]());
    reversed.reset(new double[std::max(1, maxSize)]());
    for (auto* spectrum : {&lowRe, &lowIm, &upRe, &upIm, &bRe, &bIm, &cRe, &cIm, &dRe, &dIm})
        spectrum->reset(new double[bins]());
}

void ToeplitzInverse::forward(const double* x, double* re, double* im)
{
    std::copy_n(x, n, work.get());
    std::fill(work.get() + n, work.get() + size, 0.0);
    fft->realForward(work.get(), re, im);
}

namespace {

// Bin k of the product of two spectra.
struct Bin {
    double re, im;
};
Bin product(const double* aRe, const double* aIm, const double* xRe, const double* xIm, int k)
{
    return {aRe[k] * xRe[k] - aIm[k] * xIm[k], aRe[k] * xIm[k] + aIm[k] * xRe[k]};
}

}  // namespace

void ToeplitzInverse::multiply(const double* aRe, const double* aIm, const double* xRe, const double* xIm,
                               double* re, double* im)
{
    for (int k = 0; k <= size / 2; ++k) {
        const Bin p = product(aRe, aIm, xRe, xIm, k);
        re[k] = p.re;
        im[k] = p.im;
    }
}

void ToeplitzInverse::inverseReversed(const double* re, const double* im, double* out)
{
    fft->realInverse(re, im, work.get());
    for (int i = 0; i < n; ++i) out[i] = work[n - 1 - i];
}

void ToeplitzInverse::setPredictor(const double* y, int size_n, double diagonal, double beta)
{
    n = size_n;
    size = transformSizeFor(2 * n);
    std::size_t index = 0;
    for (int length = minTransform; length < size; length *= 2) ++index;
    fft = transforms[index].get();
    scale = 1.0 / (diagonal * beta);
    double* column = reversed.get();
    column[0] = 1.0;
    std::copy_n(y, n - 1, column + 1);
    forward(column, lowRe.get(), lowIm.get());
    column[0] = 0.0;
    for (int i = 1; i < n; ++i) column[i] = y[n - 1 - i];
    forward(column, upRe.get(), upIm.get());
}

// L^T b and U^T b are the products of L and U with b reversed, reversed; then
// L (L^T b) - U (U^T b) in one inverse transform.
void ToeplitzInverse::apply(double* b)
{
    double* r = reversed.get();
    for (int i = 0; i < n; ++i) r[i] = b[n - 1 - i];
    forward(r, bRe.get(), bIm.get());
    multiply(lowRe.get(), lowIm.get(), bRe.get(), bIm.get(), cRe.get(), cIm.get());
    multiply(upRe.get(), upIm.get(), bRe.get(), bIm.get(), dRe.get(), dIm.get());
    inverseReversed(cRe.get(), cIm.get(), r);
    forward(r, cRe.get(), cIm.get());
    inverseReversed(dRe.get(), dIm.get(), r);
    forward(r, dRe.get(), dIm.get());
    for (int k = 0; k <= size / 2; ++k) {
        const Bin low = product(lowRe.get(), lowIm.get(), cRe.get(), cIm.get(), k);
        const Bin up = product(upRe.get(), upIm.get(), dRe.get(), dIm.get(), k);
        cRe[k] = low.re - up.re;
        cIm[k] = low.im - up.im;
    }
    fft->realInverse(cRe.get(), cIm.get(), work.get());
    for (int i = 0; i < n; ++i) b[i] = scale * work[i];
}
