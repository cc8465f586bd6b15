#include "inpaint/EdgeLeastSquares.h"

#include <algorithm>

EdgeLeastSquares::EdgeLeastSquares(int maxGap, int maxOrder)
    : maxGap_(maxGap),
      gradients(maxGap),
      saved(new double[maxGap]()),
      rowErrors(new double[static_cast<std::size_t>(maxGap) + maxOrder]()),
      reversed(new double[maxOrder + 1]())
{
}

// e(t) for the kept rows, from samples x[i - offset] for i in [from, to) and zeros
// elsewhere.
void EdgeLeastSquares::errors(const double* c, int order, const double* x, int offset, int from, int to,
                              Rows rows) const
{
    for (int t = rows.from; t < rows.to; ++t) {
        const int first = std::max(0, t - to + 1), last = std::min(order, t - from);
        double sum = 0.0;
        for (int k = first; k <= last; ++k) sum += c[k] * x[t - k - offset];
        rowErrors[t - rows.from] = sum;
    }
}

// out[i] = sum over the kept rows t of c[t - gap - i] e(t): the errors taken back to
// the gap's samples.
void EdgeLeastSquares::transposed(const double* c, int order, Rows rows, int gap, int length, double* out) const
{
    for (int i = 0; i < length; ++i) {
        const int at = gap + i;
        const int first = std::max(rows.from, at), last = std::min(rows.to - 1, at + order);
        double sum = 0.0;
        for (int t = first; t <= last; ++t) sum += c[t - at] * rowErrors[t - rows.from];
        out[i] = sum;
    }
}

double EdgeLeastSquares::energy(const double* c, int order, const double* x, Span known, Rows rows) const
{
    errors(c, order, x, 0, known.from, known.to, rows);
    double sum = 0.0;
    for (int t = rows.from; t < rows.to; ++t) sum += rowErrors[t - rows.from] * rowErrors[t - rows.from];
    return sum;
}

// The model's extrapolation across the gap from the side the recording goes on (the
// exact fill when nothing lies beyond the gap) replaces the given fill if its kept
// errors are smaller: a start from which few iterations remain.
void EdgeLeastSquares::startFromExtrapolation(const double* a, const double* c, int order, double* x, Span gap,
                                              Span known, Rows rows, bool backwards)
{
    const double given = energy(c, order, x, known, rows);
    const int length = gap.to - gap.from;
    std::copy_n(x + gap.from, length, saved.get());
    for (int i = 0; i < length; ++i) {
        const int t = backwards ? gap.to - 1 - i : gap.from + i, toward = backwards ? 1 : -1;
        double sum = 0.0;
        for (int k = 1; k <= order; ++k) sum += a[k] * x[t + toward * k];
        x[t] = -sum;
    }
    if (!(energy(c, order, x, known, rows) < given)) std::copy_n(saved.get(), length, x + gap.from);
}

void EdgeLeastSquares::refine(const double* a, int order, const double* column, ToeplitzSolver& solver, double* x,
                              int gap, int length, int knownFrom, int knownTo, int iterations)
{
    const Rows rows{std::max(gap, knownFrom + order), std::min(gap + length + order, knownTo)};
    if (rows.to <= rows.from || length > maxGap_) return;
    // Near the start the errors are taken backwards (the polynomial reversed): each
    // kept row then predicts its earliest sample from the recording after it, as the
    // forward errors predict a sample from the recording before it near the end.
    const bool backwards = knownFrom > gap - order && knownTo >= gap + length + order;
    std::reverse_copy(a, a + order + 1, reversed.get());
    const double* c = backwards ? reversed.get() : a;
    const Span known{knownFrom, knownTo};
    startFromExtrapolation(a, c, order, x, {gap, gap + length}, known, rows, backwards);
    // The residual of the normal equations: minus the gradient of the kept errors' energy.
    errors(c, order, x, 0, knownFrom, knownTo, rows);
    double* residual = gradients.residual();
    transposed(c, order, rows, gap, length, residual);
    for (int i = 0; i < length; ++i) residual[i] = -residual[i];
    gradients.solve(column, order, solver, x + gap, length, iterations, [&](const double* direction, double* out) {
        errors(c, order, direction, gap, gap, gap + length, rows);
        transposed(c, order, rows, gap, length, out);
    });
}
