#include "inpaint/ReferenceInpainters.h"

#include <algorithm>
#include <cmath>

namespace inpaint_reference {

std::vector<double> autocorrelationModel(const std::vector<double>& x, int order)
{
    const int n = static_cast<int>(x.size());
    std::vector<double> r(order + 1, 0.0);
    for (int lag = 0; lag <= order; ++lag)
        for (int i = 0; i + lag < n; ++i) r[lag] += x[i] * x[i + lag];
    std::vector<double> a(order + 1, 0.0);
    a[0] = 1.0;
    double error = r[0];
    if (error <= 0.0) return a;
    for (int m = 1; m <= order; ++m) {
        double acc = r[m];
        for (int i = 1; i < m; ++i) acc += a[i] * r[m - i];
        const double k = -acc / error;
        if (std::fabs(k) >= 1.0) break;
        const std::vector<double> previous = a;
        for (int i = 1; i < m; ++i) a[i] = previous[i] + k * previous[m - i];
        a[m] = k;
        error *= 1.0 - k * k;
    }
    return a;
}

std::vector<double> burgModel(const std::vector<double>& x, int order)
{
    const int n = static_cast<int>(x.size());
    std::vector<double> forward = x, backward = x;
    std::vector<double> a(order + 1, 0.0);
    a[0] = 1.0;
    for (int m = 1; m <= order; ++m) {
        // forward[t] and backward[t - 1] for t = m .. n-1 are the errors of order m - 1.
        double numerator = 0.0, denominator = 0.0;
        for (int t = m; t < n; ++t) {
            numerator += forward[t] * backward[t - 1];
            denominator += forward[t] * forward[t] + backward[t - 1] * backward[t - 1];
        }
        if (denominator <= 0.0) break;
        const double k = -2.0 * numerator / denominator;
        for (int t = n - 1; t >= m; --t) {
            const double f = forward[t], b = backward[t - 1];
            forward[t] = f + k * b;
            backward[t] = b + k * f;
        }
        const std::vector<double> previous = a;
        for (int i = 1; i < m; ++i) a[i] = previous[i] + k * previous[m - i];
        a[m] = k;
    }
    return a;
}

void leastSquaresFill(Segment& segment, const std::vector<double>& model)
{
    const int p = static_cast<int>(model.size()) - 1;
    const int n = segment.gapLength;
    const int g = segment.gapStart;
    std::vector<double>& x = segment.samples;
    const int total = static_cast<int>(x.size());
    std::fill(x.begin() + g, x.begin() + g + n, 0.0);
    // Normal equations M u = v over every residual e(t) = sum_m a[m] x(t - m), t = p..total-1.
    const int band = p;
    std::vector<std::vector<double>> m(n, std::vector<double>(band + 1, 0.0));  // m[i][d] = M(i, i + d)
    std::vector<double> v(n, 0.0);
    for (int t = p; t < total; ++t) {
        const int first = std::max(0, t - p - g), last = std::min(n - 1, t - g);
        if (first > last) continue;
        double known = 0.0;
        for (int k = 0; k <= p; ++k) known += model[k] * x[t - k];
        for (int i = first; i <= last; ++i) {
            const double ai = model[t - g - i];
            v[i] -= ai * known;
            for (int j = i; j <= last; ++j) m[i][j - i] += ai * model[t - g - j];
        }
    }
    // Banded Cholesky: M = L L^T, L kept in m as l[i][d] = L(i + d, i).
    for (int i = 0; i < n; ++i) {
        for (int k = std::max(0, i - band); k < i; ++k) {
            const double lik = m[k][i - k];
            for (int j = i; j <= std::min(n - 1, k + band); ++j) m[i][j - i] -= lik * m[k][j - k];
        }
        const double pivot = std::sqrt(std::max(m[i][0], 1e-300));
        for (int d = 0; d <= band && i + d < n; ++d) m[i][d] /= pivot;
    }
    for (int i = 0; i < n; ++i) {  // L y = v
        for (int k = std::max(0, i - band); k < i; ++k) v[i] -= m[k][i - k] * v[k];
        v[i] /= m[i][0];
    }
    for (int i = n - 1; i >= 0; --i) {  // L^T u = y
        for (int d = 1; d <= band && i + d < n; ++d) v[i] -= m[i][d] * v[i + d];
        v[i] /= m[i][0];
    }
    std::copy(v.begin(), v.end(), x.begin() + g);
}

int classicContext(int rate) { return rate * 1400 / 44100; }
int gapwiseContext(int rate) { return rate * 90 / 1000; }

namespace {

// The segment the reference works on: its own context on each side of the gap.
Segment inner(const Segment& outer, int context)
{
    Segment s;
    s.gapStart = context;
    s.gapLength = outer.gapLength;
    s.samples.assign(outer.samples.begin() + outer.gapStart - context,
                     outer.samples.begin() + outer.gapStart + outer.gapLength + context);
    return s;
}

using Estimator = std::vector<double> (*)(const std::vector<double>&, int);

// Janssen's iteration on the reference's own segment: zeros in the gap, then `passes`
// times a model from the whole segment and the least-squares fill given it.
void janssen(Segment& outer, int context, int order44k, int passes, Estimator estimator, int rate)
{
    Segment s = inner(outer, context);
    const int order = std::min(order44k * rate / 44100, s.gapStart);
    std::fill(s.samples.begin() + s.gapStart, s.samples.begin() + s.gapStart + s.gapLength, 0.0);
    for (int pass = 0; pass < passes; ++pass) {
        // A model sharp enough to make the normal equations singular gives a fill that
        // is not finite: keep the last finite one and stop there.
        const std::vector<double> previous = s.samples;
        leastSquaresFill(s, estimator(s.samples, order));
        const bool finite = std::all_of(s.samples.begin() + s.gapStart, s.samples.begin() + s.gapStart + s.gapLength,
                                        [](double v) { return std::isfinite(v); });
        if (!finite) {
            s.samples = previous;
            break;
        }
    }
    std::copy_n(s.samples.begin() + s.gapStart, s.gapLength, outer.samples.begin() + outer.gapStart);
}

}  // namespace

void classicJanssen(Segment& segment, int rate)
{
    janssen(segment, classicContext(rate), 512, 10, autocorrelationModel, rate);
}

void gapwiseBurgJanssen(Segment& segment, int rate)
{
    janssen(segment, gapwiseContext(rate), 1024, 3, burgModel, rate);
}

}  // namespace inpaint_reference
