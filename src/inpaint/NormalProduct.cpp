#include "inpaint/NormalProduct.h"

#include <algorithm>

#include "inpaint/TransformSize.h"

NormalProduct::NormalProduct(int maxLength, int maxOrder)
    : size(transformSizeFor(std::max(maxLength, 2 * maxOrder + 1))),
      fft(size),
      power(new double[size / 2 + 1]()),
      work(new double[size]()),
      re(new double[size / 2 + 1]()),
      im(new double[size / 2 + 1]()),
      autocorrelation(new double[maxOrder + 1]())
{
}

void NormalProduct::setModel(const double* a, int order)
{
    std::copy_n(a, order + 1, work.get());
    std::fill(work.get() + order + 1, work.get() + size, 0.0);
    fft.realForward(work.get(), re.get(), im.get());
    for (int k = 0; k <= size / 2; ++k) {
        power[k] = re[k] * re[k] + im[k] * im[k];
        re[k] = power[k];
        im[k] = 0.0;
    }
    fft.realInverse(re.get(), im.get(), work.get());
    std::copy_n(work.get(), order + 1, autocorrelation.get());
}

void NormalProduct::apply(const double* x, int count, double* q)
{
    std::copy_n(x, count, work.get());
    std::fill(work.get() + count, work.get() + size, 0.0);
    fft.realForward(work.get(), re.get(), im.get());
    for (int k = 0; k <= size / 2; ++k) {
        re[k] = re[k] * power[k];
        im[k] = im[k] * power[k];
    }
    fft.realInverse(re.get(), im.get(), work.get());
    std::copy_n(work.get(), count, q);
}
