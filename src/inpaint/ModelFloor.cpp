#include "inpaint/ModelFloor.h"

#include <algorithm>
#include <cmath>

#include "inpaint/ToeplitzKernels.h"
#include "inpaint/TransformSize.h"

ModelFloor::ModelFloor(int maxOrder)
    : maxOrder_(maxOrder),
      fftSize(transformSizeFor(8 * (maxOrder + 1))),
      fft(fftSize),
      padded(new double[fftSize]()),
      re(new double[fftSize / 2 + 1]()),
      im(new double[fftSize / 2 + 1]()),
      lags(new double[maxOrder + 1]()),
      coefficients(new double[maxOrder + 1]())
{
}

void ModelFloor::autocorrelationOf(const double* a, int order)
{
    std::copy_n(a, order + 1, padded.get());
    std::fill(padded.get() + order + 1, padded.get() + fftSize, 0.0);
    fft.realForward(padded.get(), re.get(), im.get());
    for (int k = 0; k <= fftSize / 2; ++k) {
        const double power = re[k] * re[k] + im[k] * im[k];
        re[k] = power > 0.0 ? 1.0 / power : 0.0;
        im[k] = 0.0;
    }
    fft.realInverse(re.get(), im.get(), padded.get());
    std::copy_n(padded.get(), order + 1, lags.get());
}

// Levinson-Durbin from lags[0..order]; a reflection of magnitude 1 or more ends it.
void ModelFloor::levinsonDurbin(int order)
{
    std::fill(coefficients.get(), coefficients.get() + order + 1, 0.0);
    coefficients[0] = 1.0;
    double error = lags[0];
    if (!(error > 0.0)) return;
    for (int m = 1; m <= order; ++m) {
        const double acc = lags[m] + inpaint_kernels::bandedDot(path, coefficients.get(), lags.get(), m, m - 1);
        const double reflection = -acc / error;
        if (!(std::fabs(reflection) < 1.0)) break;
        inpaint_kernels::addReflection(path, coefficients.get(), m, reflection);
        error *= 1.0 - reflection * reflection;
    }
}

const double* ModelFloor::floored(const double* a, int order, double floor)
{
    order = std::min(order, maxOrder_);
    autocorrelationOf(a, order);
    lags[0] *= 1.0 + floor;
    levinsonDurbin(order);
    return coefficients.get();
}
