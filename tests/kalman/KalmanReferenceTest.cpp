// Kalman against two independent references: a plain float transcription of the step
// (bit for bit) and a textbook dense filter in double built from the model's full
// matrices (within float tolerance).
#include "kalman/Kalman.h"

#include "kalman/KalmanTestSupport.h"
#include "kalman/LiteralKalman.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

using Matrix = std::vector<std::vector<double>>;

Matrix zeros(int rows, int cols) {
    return Matrix(static_cast<std::size_t>(rows), std::vector<double>(static_cast<std::size_t>(cols), 0.0));
}

Matrix multiply(const Matrix& a, const Matrix& b) {
    Matrix c = zeros(static_cast<int>(a.size()), static_cast<int>(b[0].size()));
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t k = 0; k < b.size(); ++k)
            for (std::size_t j = 0; j < b[0].size(); ++j) c[i][j] += a[i][k] * b[k][j];
    return c;
}

Matrix transpose(const Matrix& a) {
    Matrix t = zeros(static_cast<int>(a[0].size()), static_cast<int>(a.size()));
    for (std::size_t i = 0; i < a.size(); ++i)
        for (std::size_t j = 0; j < a[0].size(); ++j) t[j][i] = a[i][j];
    return t;
}

// x(n) = F x(n-1) + G u(n), y(n) = H x(n), u = (signal drive, noise drive) with
// covariance Q(n) = diag(signalVariance, variance of sample n). The textbook
// predict / update in double, with F, G and H formed in full.
class TextbookKalman {
public:
    TextbookKalman(const std::vector<float>& signalAr, const std::vector<float>& noiseAr,
                   float signalVariance, int delay)
        : p_(static_cast<int>(signalAr.size()) - 1),
          m_(p_ + delay),
          n_(m_ + 2),
          signalVariance_(signalVariance),
          f_(zeros(n_, n_)),
          g_(zeros(n_, 2)),
          h_(zeros(1, n_)),
          x_(zeros(n_, 1)),
          p0_(zeros(n_, n_)) {
        // The same float coefficients, so that only the arithmetic differs.
        for (int i = 0; i < p_; ++i) f_[0][static_cast<std::size_t>(i)] = -static_cast<double>(signalAr[static_cast<std::size_t>(i) + 1]);
        for (int r = 1; r < m_; ++r) f_[static_cast<std::size_t>(r)][static_cast<std::size_t>(r) - 1] = 1.0;
        f_[m()][m()] = -static_cast<double>(noiseAr[1]);
        f_[m()][m() + 1] = -static_cast<double>(noiseAr[2]);
        f_[m() + 1][m()] = 1.0;
        g_[0][0] = 1.0;
        g_[m()][1] = 1.0;
        h_[0][0] = 1.0;
        h_[0][m()] = 1.0;
    }

    void step(double y, double noiseVariance) {
        const Matrix ft = transpose(f_);
        x_ = multiply(f_, x_);
        Matrix q = zeros(2, 2);
        q[0][0] = signalVariance_;
        q[1][1] = noiseVariance;
        p0_ = multiply(multiply(f_, p0_), ft);
        const Matrix drive = multiply(multiply(g_, q), transpose(g_));
        for (std::size_t i = 0; i < p0_.size(); ++i)
            for (std::size_t j = 0; j < p0_.size(); ++j) p0_[i][j] += drive[i][j];
        const Matrix ph = multiply(p0_, transpose(h_));
        const double s = multiply(h_, ph)[0][0];
        const double innovation = y - multiply(h_, x_)[0][0];
        Matrix correction = zeros(n_, n_);
        for (std::size_t i = 0; i < correction.size(); ++i) {
            const double k = ph[i][0] / s;
            x_[i][0] += k * innovation;
            for (std::size_t j = 0; j < correction.size(); ++j) correction[i][j] = (i == j ? 1.0 : 0.0) - k * h_[0][j];
        }
        p0_ = multiply(correction, p0_);
    }

    double element(int i) const { return x_[static_cast<std::size_t>(i)][0]; }

private:
    std::size_t m() const { return static_cast<std::size_t>(m_); }

    int p_, m_, n_;
    double signalVariance_;
    Matrix f_, g_, h_, x_, p0_;
};

double rms(const std::vector<double>& v) {
    double sum = 0.0;
    for (double x : v) sum += x * x;
    return std::sqrt(sum / static_cast<double>(v.size()));
}

bool sameValue(float a, float b) {
    return kalman_test::bitsOf(a) == kalman_test::bitsOf(b) || (std::isnan(a) && std::isnan(b));
}

struct Config {
    int p, delay, outputSignal;
};

}  // namespace

// Every output, and the final state and covariance, equal the plain transcription bit
// for bit over a few thousand samples with flagged bursts.
TEST(KalmanReference, MatchesThePlainTranscriptionBitForBit) {
    const Config configs[] = {{4, 0, 1}, {4, 6, 0}, {10, 3, 1}, {1, 0, 0}, {7, 12, 1}};
    for (const Config& config : configs) {
        const std::uint32_t seed = 700u + static_cast<std::uint32_t>(config.p * 10 + config.delay);
        SCOPED_TRACE(testing::Message() << "p " << config.p << " delay " << config.delay
                                        << " outputSignal " << config.outputSignal << " seed " << seed);
        const kalman_test::Scenario s = kalman_test::makeScenario(config.p, 2000, seed);
        Kalman k;
        kalman_test::configure(k, s, config.delay, config.outputSignal);
        std::vector<float> driving;
        for (int f : s.flags) driving.push_back(f == 1 ? s.flaggedVariance : s.cleanVariance);
        const std::vector<float> initial(static_cast<std::size_t>(config.p + config.delay), 0.0f);
        kalman_test::LiteralKalman literal(s.signalAr, s.noiseAr, s.signalVariance, driving,
                                           config.delay, initial, config.outputSignal);
        for (std::size_t n = 0; n < s.observed.size(); ++n) {
            const float y = s.observed[n];
            ASSERT_EQ(kalman_test::bitsOf(k.processSample(y)), kalman_test::bitsOf(literal.step(y))) << "sample " << n;
        }
        const int size = k.stateSize();
        EXPECT_TRUE(kalman_test::sameBits(k.state().data(), literal.state().data(), size));
        for (int r = 0; r < size; ++r)
            EXPECT_TRUE(kalman_test::sameBits(k.cov()[r], literal.cov()[static_cast<std::size_t>(r)].data(), size));
    }
}

// The same with zero drive variances: the not-a-number gains of the first step run
// through the dense covariance product, in step with the transcription.
TEST(KalmanReference, MatchesThePlainTranscriptionThroughNaN) {
    kalman_test::Scenario s = kalman_test::makeScenario(5, 50, 9u);
    s.signalVariance = 0.0f;
    s.cleanVariance = 0.0f;
    s.flaggedVariance = 0.0f;
    Kalman k;
    kalman_test::configure(k, s, 2, 1);
    const std::vector<float> driving(s.flags.size(), 0.0f);
    kalman_test::LiteralKalman literal(s.signalAr, s.noiseAr, 0.0f, driving, 2, std::vector<float>(7, 0.0f), 1);
    for (float y : s.observed) {
        const float out = k.processSample(y);
        EXPECT_TRUE(std::isnan(out));
        EXPECT_TRUE(sameValue(out, literal.step(y)));
    }
    for (int r = 0; r < k.stateSize(); ++r)
        for (int c = 0; c < k.stateSize(); ++c)
            EXPECT_TRUE(sameValue(k.cov()[r][c], literal.cov()[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)]));
}

// Filtered and fixed-lag estimates of the signal, and the noise estimates, agree with
// the textbook filter in double. Tolerance: the float filter rounds each operation at
// 6e-8 relative; the covariance recursion is contractive for these stable models, so
// the errors do not build up, but each estimate is an N-element sum of values up to
// the AR signal's peak (a few times its RMS) through gains that amplify rounding by
// the ratio of signal to innovation variance (about 10 in the clean stretches): some
// 1e-5 of the signal's RMS at most (3e-6 is seen). A bound of 1e-4 keeps a margin;
// a wrong index or lag misses it by orders of magnitude.
TEST(KalmanReference, AgreesWithTheTextbookFilterInDouble) {
    for (int p : {4, 8}) {
        for (int delay : {0, 3, 10}) {
            const std::uint32_t seed = 1000u + static_cast<std::uint32_t>(p * 100 + delay);
            SCOPED_TRACE(testing::Message() << "p " << p << " delay " << delay << " seed " << seed);
            const kalman_test::Scenario s = kalman_test::makeScenario(p, 3000, seed);
            const double tolerance = 1e-4 * rms(s.signal);
            Kalman signal, noise;
            kalman_test::configure(signal, s, delay, 1);
            kalman_test::configure(noise, s, delay, 0);
            TextbookKalman textbook(s.signalAr, s.noiseAr, s.signalVariance, delay);
            const int lag = delay > 0 ? p + delay - 1 : 0;
            const int noiseElement = delay > 0 ? p + delay + 1 : p;
            double worst = 0.0;
            for (std::size_t n = 0; n < s.observed.size(); ++n) {
                const double variance = s.flags[n] == 1 ? s.flaggedVariance : s.cleanVariance;
                textbook.step(s.observed[n], variance);
                const float signalOut = signal.processSample(s.observed[n]);
                const float noiseOut = noise.processSample(s.observed[n]);
                worst = std::max(worst, std::fabs(signalOut - textbook.element(lag)));
                worst = std::max(worst, std::fabs(noiseOut - textbook.element(noiseElement)));
                worst = std::max(worst, std::fabs(signal.state()[0] - textbook.element(0)));
            }
            EXPECT_LT(worst, tolerance);
            RecordProperty("worst_p" + std::to_string(p) + "_d" + std::to_string(delay), std::to_string(worst / rms(s.signal)));
        }
    }
}

// The fixed-lag output, which has seen p + d - 1 later samples, is closer to the true
// signal than the filtered output, over the run and inside the flagged bursts.
TEST(KalmanReference, FixedLagIsCloserToTheSignalThanFiltering) {
    const int p = 6, length = 4000;
    const std::uint32_t seed = 4242u;
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    const kalman_test::Scenario s = kalman_test::makeScenario(p, length, seed);
    Kalman filtered;
    kalman_test::configure(filtered, s, 0, 1);
    std::vector<float> filteredOut;
    for (float y : s.observed) filteredOut.push_back(filtered.processSample(y));
    for (int delay : {2, 8}) {
        SCOPED_TRACE(testing::Message() << "delay " << delay);
        Kalman smoothed;
        kalman_test::configure(smoothed, s, delay, 1);
        const int lag = p + delay - 1;
        std::vector<double> filteredError, smoothedError, filteredBurst, smoothedBurst;
        for (int n = 0; n < length; ++n) {
            const float out = smoothed.processSample(s.observed[static_cast<std::size_t>(n)]);
            const int t = n - lag;  // the sample the fixed-lag output estimates
            if (t < 100) continue;
            const std::size_t i = static_cast<std::size_t>(t);
            filteredError.push_back(filteredOut[i] - s.signal[i]);
            smoothedError.push_back(out - s.signal[i]);
            if (s.flags[i] == 1) {
                filteredBurst.push_back(filteredError.back());
                smoothedBurst.push_back(smoothedError.back());
            }
        }
        EXPECT_LT(rms(smoothedError), rms(filteredError));
        EXPECT_LT(rms(smoothedBurst), rms(filteredBurst));
        RecordProperty("rms_ratio_d" + std::to_string(delay), std::to_string(rms(smoothedBurst) / rms(filteredBurst)));
    }
}
