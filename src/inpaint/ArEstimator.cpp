#include "inpaint/ArEstimator.h"

#include <algorithm>
#include <cmath>

#include "inpaint/TransformSize.h"

ArEstimator::ArEstimator(int maxStretch, int maxOrder)
    : maxOrder_(maxOrder),
      fftSize(transformSizeFor(maxStretch + maxOrder + 1)),
      fft(fftSize),
      padded(new double[fftSize]()),
      re(new double[fftSize / 2 + 1]()),
      im(new double[fftSize / 2 + 1]()),
      lags(new double[maxOrder + 1]()),
      windowed(new double[maxOrder + 1]()),
      coefficients(new double[maxOrder + 1]()),
      previous(new double[maxOrder + 1]())
{
}

void ArEstimator::begin(int order)
{
    currentOrder = std::min(order, maxOrder_);
    std::fill(lags.get(), lags.get() + currentOrder + 1, 0.0);
}

void ArEstimator::add(const double* samples, int count)
{
    if (count <= 0) return;
    std::copy_n(samples, count, padded.get());
    std::fill(padded.get() + count, padded.get() + fftSize, 0.0);
    fft.realForward(padded.get(), re.get(), im.get());
    for (int k = 0; k <= fftSize / 2; ++k) {
        re[k] = re[k] * re[k] + im[k] * im[k];
        im[k] = 0.0;
    }
    fft.realInverse(re.get(), im.get(), padded.get());
    for (int lag = 0; lag <= currentOrder; ++lag) lags[lag] += padded[lag];
}

void ArEstimator::setModelSpectrum(const double* a, int order)
{
    currentOrder = std::min(order, maxOrder_);
    std::copy_n(a, currentOrder + 1, padded.get());
    std::fill(padded.get() + currentOrder + 1, padded.get() + fftSize, 0.0);
    fft.realForward(padded.get(), re.get(), im.get());
    for (int k = 0; k <= fftSize / 2; ++k) {
        const double power = re[k] * re[k] + im[k] * im[k];
        re[k] = power > 0.0 ? 1.0 / power : 0.0;
        im[k] = 0.0;
    }
    fft.realInverse(re.get(), im.get(), padded.get());
    std::copy_n(padded.get(), currentOrder + 1, lags.get());
}

const double* ArEstimator::model(double lagScale, double whiteFloor)
{
    const int p = currentOrder;
    for (int lag = 0; lag <= p; ++lag) {
        const double ratio = lagScale > 0.0 ? lag / lagScale : 0.0;
        windowed[lag] = lags[lag] * std::exp(-0.5 * ratio * ratio);
    }
    windowed[0] *= 1.0 + whiteFloor;
    std::fill(coefficients.get(), coefficients.get() + p + 1, 0.0);
    coefficients[0] = 1.0;
    double error = windowed[0];
    if (!(error > 0.0)) return coefficients.get();
    // Levinson-Durbin; a reflection of magnitude 1 or more ends the recursion.
    for (int m = 1; m <= p; ++m) {
        double acc = windowed[m];
        for (int i = 1; i < m; ++i) acc += coefficients[i] * windowed[m - i];
        const double reflection = -acc / error;
        if (!(std::fabs(reflection) < 1.0)) break;
        std::copy_n(coefficients.get(), m, previous.get());
        for (int i = 1; i < m; ++i) coefficients[i] = previous[i] + reflection * previous[m - i];
        coefficients[m] = reflection;
        error *= 1.0 - reflection * reflection;
    }
    return coefficients.get();
}
