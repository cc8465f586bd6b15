// ns per processSample of the Kalman restoration filter for signal orders 10 to 40
// and delays 0 to 20, and the covariance update alone against its dense form.
#include "kalman/Kalman.h"
#include "kalman/KalmanSteps.h"
#include "kalman/RowMatrix.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr int kLength = 1 << 14;

// A stable AR polynomial: resonant pole pairs at radius 0.95 (a real pole for odd
// orders), so the filter runs on a realistic, well-conditioned model.
std::vector<float> stablePolynomial(int order) {
    std::vector<double> poly{1.0};
    auto multiply = [&poly](std::vector<double> factor) {
        std::vector<double> out(poly.size() + factor.size() - 1, 0.0);
        for (std::size_t i = 0; i < poly.size(); ++i)
            for (std::size_t j = 0; j < factor.size(); ++j) out[i + j] += poly[i] * factor[j];
        poly = out;
    };
    for (int pair = 0; pair < order / 2; ++pair) {
        const double angle = 3.141592653589793 * (pair + 0.5) / (order / 2 + 1);
        multiply({1.0, -1.9 * std::cos(angle), 0.9025});
    }
    if (order % 2 != 0) multiply({1.0, -0.5});
    return std::vector<float>(poly.begin(), poly.end());
}

// Tones in white noise, with every fourth block of 64 samples flagged and noisier.
struct Input {
    std::vector<float> observed;
    std::vector<int> flags;
};

Input makeInput() {
    Input input;
    std::mt19937 generator(2024u);
    std::normal_distribution<float> noise(0.0f, 1.0f);
    for (int n = 0; n < kLength; ++n) {
        const int flag = (n / 64) % 4 == 3 ? 1 : 0;
        const float tones = std::sin(0.05f * static_cast<float>(n)) + 0.5f * std::sin(0.31f * static_cast<float>(n));
        input.observed.push_back(tones + (flag ? 1.0f : 0.05f) * noise(generator));
        input.flags.push_back(flag);
    }
    return input;
}

void processSample(benchmark::State& state) {
    const int p = static_cast<int>(state.range(0));
    const int delay = static_cast<int>(state.range(1));
    static const Input input = makeInput();
    const std::vector<float> signalAr = stablePolynomial(p);
    const float noiseAr[] = {1.0f, -0.5f, 0.2f};
    const std::vector<float> initial(static_cast<std::size_t>(p + delay), 0.0f);
    Kalman filter;
    filter.setModels(signalAr.data(), p + 1, noiseAr, 3);
    filter.setNoise(1.0f, 0.0025f, 1.0f, input.flags.data(), kLength);
    filter.start(delay, initial.data(), 1);
    std::size_t n = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(filter.processSample(input.observed[n]));
        n = (n + 1) % kLength;
    }
    state.counters["N"] = filter.stateSize();
    state.counters["finite"] = std::isfinite(filter.state()[0]) ? 1 : 0;
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(processSample)->ArgsProduct({{10, 20, 30, 40}, {0, 5, 10, 20}});

// The covariance update of one step, with and without its sparse form.
template <bool Dense>
void covarianceUpdate(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    const int m = n - 2;
    std::mt19937 generator(7u);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    kalman::RowMatrix correction(n, n), predictedCov(n, n), cov(n, n);
    std::vector<float> gain(static_cast<std::size_t>(n));
    for (float& g : gain) g = value(generator);
    for (int r = 0; r < n; ++r)
        for (int c = 0; c < n; ++c) predictedCov[r][c] = value(generator);
    kalman::buildCorrection(gain.data(), m, n, correction.rows());
    for (auto _ : state) {
        if constexpr (Dense)
            kalman::updateCovarianceDense(correction.rows(), predictedCov.rows(), n, cov.rows());
        else
            kalman::updateCovariance(correction.rows(), predictedCov.rows(), m, n, cov.rows());
        benchmark::DoNotOptimize(cov[0][0]);
    }
}
BENCHMARK(covarianceUpdate<false>)->Arg(12)->Arg(32)->Arg(62);
BENCHMARK(covarianceUpdate<true>)->Arg(12)->Arg(32)->Arg(62);

}  // namespace
