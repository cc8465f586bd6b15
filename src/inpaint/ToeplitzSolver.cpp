#include "inpaint/ToeplitzSolver.h"

#include <algorithm>

ToeplitzSolver::ToeplitzSolver(int maxSize, int maxRightHandSides)
    : capacity(maxSize),
      maxRhs(maxRightHandSides),
      predictor(new double[maxSize]()),
      normalised(new double[maxSize + 1]()),
      solutions(new double[static_cast<std::size_t>(maxSize) * maxRightHandSides]())
{
}

namespace {

// sum_{i=1}^{terms} r[i] v[k - i]: eight partial sums over i modulo 8, joined in a
// fixed tree, so the latency of one long chain of additions is not the limit.
double bandedDot(const double* r, const double* v, int k, int terms)
{
    double partial[8] = {};
    int i = 1;
    for (; i + 7 <= terms; i += 8)
        for (int lane = 0; lane < 8; ++lane) partial[lane] += r[i + lane] * v[k - i - lane];
    for (int lane = 0; i <= terms; ++i, ++lane) partial[lane] += r[i] * v[k - i];
    return ((partial[0] + partial[1]) + (partial[2] + partial[3])) +
           ((partial[4] + partial[5]) + (partial[6] + partial[7]));
}

// v[j] += scale * v[k - 1 - j] for j < k, both ends of each pair read before writing.
void addReversedInPlace(double* v, int k, double scale)
{
    int low = 0, high = k - 1;
    for (; low < high; ++low, --high) {
        const double a = v[low], b = v[high];
        v[low] = a + scale * b;
        v[high] = b + scale * a;
    }
    if (low == high) v[low] = v[low] + scale * v[low];
}

// x[j] += scale * y[k - 1 - j] for j < k.
void addReversed(double* x, const double* y, int k, double scale)
{
    for (int j = 0; j < k; ++j) x[j] += scale * y[k - 1 - j];
}

}  // namespace

bool ToeplitzSolver::solve(const double* column, int bandwidth, int size, double* const* rhs,
                           int rightHandSides)
{
    const int band = std::min(bandwidth, size - 1);
    const double diagonal = column[0];
    for (int k = 1; k <= band; ++k) normalised[k] = column[k] / diagonal;
    const double* r = normalised.get();
    double* y = predictor.get();
    for (int s = 0; s < rightHandSides; ++s) {
        double* x = solutions.get() + static_cast<std::size_t>(s) * capacity;
        std::fill(x, x + size, 0.0);
        x[0] = rhs[s][0] / diagonal;
    }
    bool stable = true;
    double alpha = band >= 1 ? -r[1] : 0.0;
    double beta = 1.0;
    if (size > 1) y[0] = alpha;
    for (int k = 1; k < size; ++k) {
        beta = (1.0 - alpha * alpha) * beta;
        if (!(beta > 0.0)) { stable = false; break; }
        const int terms = std::min(k, band);
        for (int s = 0; s < rightHandSides; ++s) {
            double* x = solutions.get() + static_cast<std::size_t>(s) * capacity;
            const double mu = (rhs[s][k] / diagonal - bandedDot(r, x, k, terms)) / beta;
            addReversed(x, y, k, mu);
            x[k] = mu;
        }
        if (k + 1 < size) {
            const double next = k + 1 <= band ? r[k + 1] : 0.0;
            alpha = -(next + bandedDot(r, y, k, terms)) / beta;
            addReversedInPlace(y, k, alpha);
            y[k] = alpha;
        }
    }
    for (int s = 0; s < rightHandSides; ++s)
        std::copy_n(solutions.get() + static_cast<std::size_t>(s) * capacity, size, rhs[s]);
    return stable;
}
