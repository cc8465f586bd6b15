#include "inpaint/BurgEstimator.h"

#include <algorithm>
#include <utility>

BurgEstimator::BurgEstimator(int maxSamples, int maxStretches, int maxOrder)
    : maxSamples_(maxSamples),
      maxStretches_(maxStretches),
      maxOrder_(maxOrder),
      stretchStart(new int[maxStretches]()),
      stretchLength(new int[maxStretches]()),
      forward(new double[maxSamples]()),
      backwardStore{std::unique_ptr<double[]>(new double[maxSamples]()),
                    std::unique_ptr<double[]>(new double[maxSamples]())},
      coefficients(new double[maxOrder + 1]()),
      previous(new double[maxOrder + 1]())
{
}

void BurgEstimator::begin(int order)
{
    currentOrder = std::min(order, maxOrder_);
    backward = backwardStore[0].get();
    nextBackward = backwardStore[1].get();
    stretches = 0;
    used = 0;
}

void BurgEstimator::add(const double* samples, int count)
{
    if (count <= currentOrder || stretches == maxStretches_ || used + count > maxSamples_) return;
    std::copy_n(samples, count, forward.get() + used);
    std::copy_n(samples, count, backward + used);
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

}  // namespace

// -2 sum f(t) b(t-1) / sum (f(t)^2 + b(t-1)^2) over t = m .. length-1 of every stretch,
// f and b holding the errors of order m - 1.
double BurgEstimator::reflection(int m) const
{
    double cross[8] = {}, energy[8] = {};
    for (int s = 0; s < stretches; ++s) {
        const double* f = forward.get() + stretchStart[s];
        const double* b = backward + stretchStart[s] - 1;
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
    const double denominator = joined(energy);
    if (!(denominator > 0.0)) return 0.0;
    return -2.0 * joined(cross) / denominator;
}

// f(t) <- f(t) + k b(t-1) in place, and the next order's b(t) = b(t-1) + k f(t).
void BurgEstimator::update(int m, double k)
{
    for (int s = 0; s < stretches; ++s) {
        double* f = forward.get() + stretchStart[s];
        const double* b = backward + stretchStart[s];
        double* next = nextBackward + stretchStart[s];
        for (int t = m; t < stretchLength[s]; ++t) {
            const double ft = f[t], bt = b[t - 1];
            f[t] = ft + k * bt;
            next[t] = bt + k * ft;
        }
    }
    std::swap(backward, nextBackward);
}

const double* BurgEstimator::model()
{
    const int p = currentOrder;
    std::fill(coefficients.get(), coefficients.get() + p + 1, 0.0);
    coefficients[0] = 1.0;
    for (int m = 1; m <= p; ++m) {
        const double k = reflection(m);
        if (k == 0.0) break;
        update(m, k);
        std::copy_n(coefficients.get(), m, previous.get());
        for (int i = 1; i < m; ++i) coefficients[i] = previous[i] + k * previous[m - i];
        coefficients[m] = k;
    }
    return coefficients.get();
}
