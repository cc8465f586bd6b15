#include "inpaint/SidedLeastSquares.h"

#include <algorithm>

#include "inpaint/TransformSize.h"

namespace {

// to = x * y, or to = x * conj(y), bin by bin.
void multiply(const double* xr, const double* xi, const double* yr, const double* yi, double* toRe, double* toIm,
              int bins, bool conjugate)
{
    const double sign = conjugate ? -1.0 : 1.0;
    for (int k = 0; k < bins; ++k) {
        const double rr = xr[k] * yr[k], ii = xi[k] * yi[k];
        const double ri = xr[k] * yi[k], ir = xi[k] * yr[k];
        toRe[k] = rr - sign * ii;
        toIm[k] = ir + sign * ri;
    }
}

}  // namespace

// The transform holds the segment around the gap (length + 2 order samples): the
// errors of the rows that touch the gap then come out free of wrap-around.
SidedLeastSquares::SidedLeastSquares(int maxGap, int maxOrder)
    : size(transformSizeFor(maxGap + 2 * maxOrder + 1)),
      fft(size),
      beforeRe(new double[size / 2 + 1]()),
      beforeIm(new double[size / 2 + 1]()),
      afterRe(new double[size / 2 + 1]()),
      afterIm(new double[size / 2 + 1]()),
      column(new double[maxOrder + 1]()),
      weight(new double[static_cast<std::size_t>(maxGap) + maxOrder]()),
      work(new double[size]()),
      inRe(new double[size / 2 + 1]()),
      inIm(new double[size / 2 + 1]()),
      errorRe(new double[size / 2 + 1]()),
      errorIm(new double[size / 2 + 1]()),
      sumRe(new double[size / 2 + 1]()),
      sumIm(new double[size / 2 + 1]()),
      gradients(maxGap)
{
}

void SidedLeastSquares::transform(const double* a, double* toRe, double* toIm)
{
    std::copy_n(a, order_ + 1, work.get());
    std::fill(work.get() + order_ + 1, work.get() + size, 0.0);
    fft.realForward(work.get(), toRe, toIm);
}

// The weight of the model before the gap on the errors that touch it falls linearly
// from the gap's start to half an order past its end; the model after it takes the rest.
void SidedLeastSquares::setModels(const double* before, const double* after, int order, int length)
{
    order_ = order;
    length_ = length;
    transform(before, beforeRe.get(), beforeIm.get());
    transform(after, afterRe.get(), afterIm.get());
    // The preconditioner: the mean of the two models' autocorrelations, |A|^2 transformed back.
    const int bins = size / 2 + 1;
    for (int k = 0; k < bins; ++k) {
        const double powerBefore = beforeRe[k] * beforeRe[k] + beforeIm[k] * beforeIm[k];
        const double powerAfter = afterRe[k] * afterRe[k] + afterIm[k] * afterIm[k];
        sumRe[k] = 0.5 * powerBefore + 0.5 * powerAfter;
        sumIm[k] = 0.0;
    }
    fft.realInverse(sumRe.get(), sumIm.get(), work.get());
    std::copy_n(work.get(), order + 1, column.get());
    const double span = length + order;
    for (int t = 0; t < length + order; ++t)
        weight[t] = std::clamp((length + 0.5 * order - t) / span, 0.0, 1.0);
}

// out[0, length) = sum over both models of M^T W M d: the weighted prediction errors
// of the `count` samples d, taken back to the gap's samples. The errors that touch the
// gap are d's filtered samples from firstRow on.
void SidedLeastSquares::weightedNormal(const double* d, int count, int firstRow, double* out)
{
    const int bins = size / 2 + 1, rows = length_ + order_;
    std::copy_n(d, count, work.get());
    std::fill(work.get() + count, work.get() + size, 0.0);
    fft.realForward(work.get(), inRe.get(), inIm.get());
    for (int side = 0; side < 2; ++side) {
        const double* ar = side == 0 ? beforeRe.get() : afterRe.get();
        const double* ai = side == 0 ? beforeIm.get() : afterIm.get();
        multiply(inRe.get(), inIm.get(), ar, ai, errorRe.get(), errorIm.get(), bins, false);
        fft.realInverse(errorRe.get(), errorIm.get(), work.get());
        for (int t = 0; t < rows; ++t) {
            const double w = side == 0 ? weight[t] : 1.0 - weight[t];
            work[t] = w * work[firstRow + t];
        }
        std::fill(work.get() + rows, work.get() + size, 0.0);
        fft.realForward(work.get(), errorRe.get(), errorIm.get());
        // The errors correlated with the filter: M^T.
        if (side == 0) {
            multiply(errorRe.get(), errorIm.get(), ar, ai, sumRe.get(), sumIm.get(), bins, true);
        } else {
            multiply(errorRe.get(), errorIm.get(), ar, ai, inRe.get(), inIm.get(), bins, true);
            for (int k = 0; k < bins; ++k) {
                sumRe[k] += inRe[k];
                sumIm[k] += inIm[k];
            }
        }
    }
    fft.realInverse(sumRe.get(), sumIm.get(), work.get());
    std::copy_n(work.get(), length_, out);
}

void SidedLeastSquares::refine(ToeplitzSolver& solver, double* x, int gap, int iterations)
{
    const int n = length_, p = order_;
    // The residual of the normal equations: minus the gradient of the weighted errors' energy.
    double* residual = gradients.residual();
    weightedNormal(x + gap - p, n + 2 * p, p, residual);
    for (int i = 0; i < n; ++i) residual[i] = -residual[i];
    gradients.solve(column.get(), p, solver, x + gap, n, iterations,
                    [&](const double* direction, double* out) { weightedNormal(direction, n, 0, out); });
}
