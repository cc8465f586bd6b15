#include "ar/ArRecursions.h"

#include <cmath>
#include <cstring>
#include <vector>

namespace {

// Sum of a[j] * r[m - j] for j = 0..m-1: the correlation of the current polynomial
// with the lags, which decides the next reflection coefficient.
double predictionCorrelation(const double* polynomial, const double* r, int m)
{
    double sum = 0.0;
    for (int j = 0; j < m; ++j) sum += polynomial[j] * r[m - j];
    return sum;
}

bool isUnstable(double reflection) { return std::fabs(reflection) >= 1.0; }

double updatedError(double error, double reflection)
{
    return error - reflection * reflection * error;
}

// Levinson-Durbin keeping every order in `rows`; errors may be null. Returns the
// highest order whose row it completed.
int levinsonDurbinTable(const double* r, double** rows, int order, double* errors)
{
    const double k1 = -r[1] / r[0];
    rows[0][0] = 1.0;
    rows[1][0] = 1.0;
    rows[1][1] = k1;
    double error = updatedError(r[0], k1);
    if (errors != nullptr) errors[1] = error;

    for (int m = 2; m <= order; ++m) {
        const double* previous = rows[m - 1];
        double* row = rows[m];
        row[0] = 1.0;
        const double k = -predictionCorrelation(previous, r, m) / error;
        if (isUnstable(k)) {
            for (int j = m; j <= order; ++j) row[j] = 0.0;
            return m - 1;
        }
        for (int j = 1; j < m; ++j) row[j] = previous[j] + k * previous[m - j];
        row[m] = k;
        error = updatedError(error, k);
        if (errors != nullptr) errors[m] = error;
    }
    return order > 1 ? order : 1;
}

}  // namespace

void autocorrelate(const double* samples, int count, double* lags, int maxLag)
{
    // Eight lags at a time, each summed in its own lane in the order of i: the bits of
    // one lag at a time, with independent chains of additions instead of one.
    typedef double Pair __attribute__((vector_size(2 * sizeof(double))));
    constexpr int width = 8;
    int k = 0;
    for (; k + width - 1 <= maxLag && k + width - 1 < count; k += width) {
        Pair sums[width / 2] = {};
        const int shared = count - k - (width - 1);  // terms every one of the lags has
        for (int i = 0; i < shared; ++i) {
            const Pair x = {samples[i], samples[i]};
            for (int pair = 0; pair < width / 2; ++pair) {
                Pair y;
                std::memcpy(&y, samples + i + k + 2 * pair, sizeof y);
                sums[pair] += x * y;
            }
        }
        for (int lane = 0; lane < width; ++lane) {
            double sum = sums[lane / 2][lane % 2];
            for (int i = shared; i < count - k - lane; ++i) sum += samples[i] * samples[i + k + lane];
            lags[k + lane] = sum;
        }
    }
    for (; k <= maxLag; ++k) {
        double sum = 0.0;
        for (int i = 0; i < count - k; ++i) sum += samples[i] * samples[i + k];
        lags[k] = sum;
    }
}

void autocorrelate(const float* samples, int count, float* lags, int maxLag)
{
    for (int k = 0; k <= maxLag; ++k) {
        float sum = 0.0f;
        for (int i = 0; i < count - k; ++i) sum += samples[i] * samples[i + k];
        lags[k] = sum;
    }
}

void levinsonDurbin(const double* r, double* coefficients, int order, double* predictionError)
{
    // The first order is always formed, whatever `order` is.
    const double k1 = -r[1] / r[0];
    coefficients[0] = 1.0;
    coefficients[1] = k1;
    double error = updatedError(r[0], k1);

    std::vector<double> reversed(order > 1 ? order + 1 : 0);
    for (int m = 2; m <= order; ++m) {
        for (int j = 1; j <= m; ++j) reversed[j] = coefficients[m - j];
        const double k = -predictionCorrelation(coefficients, r, m) / error;
        if (isUnstable(k)) {
            // An unstable step shortens the model: keep order m - 1 and its error.
            for (int j = m; j <= order; ++j) coefficients[j] = 0.0;
            break;
        }
        for (int j = 1; j < m; ++j) coefficients[j] += k * reversed[j];
        coefficients[m] = k;
        error = updatedError(error, k);
    }
    *predictionError = error;
}

void levinsonDurbinOrders(const double* r, double** rows, int order, double* orderErrors)
{
    levinsonDurbinTable(r, rows, order, orderErrors);
}

int levinsonDurbinRows(const double* r, double** rows, int order)
{
    return levinsonDurbinTable(r, rows, order, nullptr);
}

namespace {

// The lattice stages shared by both Burg forms: fills reflections[0..order-1].
// Returns false when a stage's residual energy is exactly zero.
bool burgReflections(const double* samples, int count, int order, std::vector<double>& reflections)
{
    std::vector<double> forward(samples, samples + count);
    std::vector<double> backward(samples, samples + count);
    reflections.assign(order, 0.0);
    for (int stage = 0; stage < order; ++stage) {
        const int pairs = count - 1 - stage;
        double numerator = 0.0;
        double denominator = 0.0;
        for (int i = 0; i < pairs; ++i) {
            numerator += backward[i] * forward[i + 1];
            denominator += forward[i + 1] * forward[i + 1] + backward[i] * backward[i];
        }
        if (denominator == 0.0) return false;
        const double c = 2.0 * numerator / denominator;
        reflections[stage] = c;
        // The forward residual moves one place down at each stage.
        for (int i = 0; i < pairs; ++i) {
            const double b = backward[i];
            const double f = forward[i + 1];
            backward[i] = b - c * f;
            forward[i] = f - c * b;
        }
    }
    return true;
}

// Step-up from reflection coefficients: for each order m the working polynomial w
// absorbs c[m-1] against the polynomial held in `current`, then replaces it.
// afterOrder(m) runs once `current` holds order m.
template <typename AfterOrder>
void stepUp(const std::vector<double>& c, double* current, int order, AfterOrder afterOrder)
{
    std::vector<double> work(order + 1, 0.0);
    work[0] = 1.0;
    work[1] = -c[0];
    for (int m = 2; m <= order; ++m) {
        for (int j = 0; j <= m; ++j) work[j] = work[j] - c[m - 1] * current[m - j];
        for (int j = 0; j <= m; ++j) current[j] = work[j];
        afterOrder(m);
    }
}

}  // namespace

int burg(const double* samples, int count, double* coefficients, int order)
{
    for (int j = 0; j <= order; ++j) coefficients[j] = 0.0;
    coefficients[0] = 1.0;
    std::vector<double> c;
    if (!burgReflections(samples, count, order, c)) return -1;
    if (order < 1) return 0;  // no stage ran: the trivial polynomial stands
    coefficients[1] = -c[0];
    if (order < 2) return 0;
    stepUp(c, coefficients, order, [](int) {});
    return 0;
}

int burgOrders(const double* samples, int count, double** rows, int order)
{
    for (int m = 0; m <= order; ++m)
        for (int j = 0; j <= order; ++j) rows[m][j] = 0.0;
    rows[0][0] = 1.0;
    if (order < 1) return 0;  // a table of one row holds the trivial polynomial
    rows[1][0] = 1.0;
    std::vector<double> c;
    if (!burgReflections(samples, count, order, c)) return -1;
    rows[0][1] = -c[0];
    rows[1][1] = -c[0];
    if (order < 2) return 0;
    // Row 0 is the working polynomial; each finished order is copied whole into its row.
    stepUp(c, rows[0], order, [&](int m) {
        for (int j = 0; j <= order; ++j) rows[m][j] = rows[0][j];
    });
    return 0;
}
