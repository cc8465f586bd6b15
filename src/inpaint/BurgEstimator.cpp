#include "inpaint/BurgEstimator.h"

#include <algorithm>

#include "inpaint/ToeplitzKernels.h"

BurgEstimator::BurgEstimator(int maxSamples, int maxStretches, int maxOrder)
    : maxSamples_(maxSamples),
      maxStretches_(maxStretches),
      maxOrder_(maxOrder),
      stretchStart(new int[maxStretches]()),
      stretchLength(new int[maxStretches]()),
      forward(new double[maxSamples]()),
      backward(new double[maxSamples]()),
      coefficients(new double[maxOrder + 1]())
{
}

void BurgEstimator::begin(int order)
{
    currentOrder = std::min(order, maxOrder_);
    stretches = 0;
    used = 0;
}

void BurgEstimator::add(const double* samples, int count)
{
    if (count <= currentOrder || stretches == maxStretches_ || used + count > maxSamples_) return;
    std::copy_n(samples, count, forward.get() + used);
    std::copy_n(samples, count, backward.get() + used);
    stretchStart[stretches] = used;
    stretchLength[stretches] = count;
    ++stretches;
    used += count;
}

namespace {

// Joins eight partial sums in a fixed tree.
double joined(const double* partial)
{
    return ((partial[0] + partial[1]) + (partial[2] + partial[3])) +
           ((partial[4] + partial[5]) + (partial[6] + partial[7]));
}

double reflectionOf(const double* cross, const double* energy)
{
    const double denominator = joined(energy);
    if (!(denominator > 0.0)) return 0.0;
    return -2.0 * joined(cross) / denominator;
}

}  // namespace

// -2 sum f(t) b(t-1) / sum (f(t)^2 + b(t-1)^2) over t = m .. length-1 of every stretch,
// f and b holding the errors of order m - 1.
double BurgEstimator::reflection(int m) const
{
    double cross[8] = {}, energy[8] = {};
    for (int s = 0; s < stretches; ++s) {
        const double* f = forward.get() + stretchStart[s];
        const double* b = backward.get() + stretchStart[s] - 1;
        const int end = stretchLength[s];
        int t = m;
        for (; t + 8 <= end; t += 8)
            for (int lane = 0; lane < 8; ++lane) {
                cross[lane] += f[t + lane] * b[t + lane];
                energy[lane] += f[t + lane] * f[t + lane] + b[t + lane] * b[t + lane];
            }
        for (int lane = 0; t < end; ++t, ++lane) {
            cross[lane] += f[t] * b[t];
            energy[lane] += f[t] * f[t] + b[t] * b[t];
        }
    }
    return reflectionOf(cross, energy);
}

// The next order's errors in place of these, and the reflection coefficient of the order after it from the same pass.
double BurgEstimator::update(int m, double k)
{
    double cross[8] = {}, energy[8] = {};
    for (int s = 0; s < stretches; ++s) {
        const int start = stretchStart[s];
        inpaint_kernels::updateStretch(path, forward.get() + start, backward.get() + start, m, stretchLength[s], k,
                                       cross, energy);
    }
    return reflectionOf(cross, energy);
}

const double* BurgEstimator::model()
{
    const int p = currentOrder;
    std::fill(coefficients.get(), coefficients.get() + p + 1, 0.0);
    coefficients[0] = 1.0;
    double k = reflection(1);
    for (int m = 1; m <= p && k != 0.0; ++m) {
        inpaint_kernels::addReflection(path, coefficients.get(), m, k);
        k = m < p ? update(m, k) : 0.0;
    }
    return coefficients.get();
}
