#include "kalman/Kalman.h"

#include "kalman/KalmanTestSupport.h"
#include "kalman/LiteralKalman.h"
#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <new>
#include <vector>

namespace {

const std::vector<float> kSignalAr{1.0f, -0.9f, 0.4f};  // p = 2
const std::vector<float> kNoiseAr{1.0f, -0.3f, 0.1f};   // q = 2

void setUp(Kalman& k, const std::vector<int>& flags, int delay, int outputSignal,
           float signalVariance = 1.0f, float clean = 0.04f, float flagged = 100.0f,
           const std::vector<float>& signalAr = kSignalAr) {
    k.setModels(signalAr.data(), static_cast<int>(signalAr.size()), kNoiseAr.data(), 3);
    k.setNoise(signalVariance, clean, flagged, flags.data(), static_cast<int>(flags.size()));
    std::vector<float> initial(signalAr.size() - 1 + static_cast<std::size_t>(delay), 0.0f);
    for (std::size_t i = 0; i < initial.size(); ++i) initial[i] = 0.25f * static_cast<float>(i + 1);
    k.start(delay, initial.data(), outputSignal);
}

}  // namespace

// From a zero covariance the first gain is signalVariance / (signalVariance + r) at
// element 0, r / (signalVariance + r) at m and 0 elsewhere.
TEST(KalmanProcess, FirstGainFollowsTheTwoDriveVariances) {
    for (int delay : {0, 3}) {
        SCOPED_TRACE(testing::Message() << "delay " << delay);
        Kalman k;
        setUp(k, {0, 0}, delay, 1, 3.0f, 0.5f, 9.0f);
        k.processSample(0.7f);
        const int m = 2 + delay;
        for (int r = 0; r < k.stateSize(); ++r) {
            const float expected = r == 0 ? 3.0f / (3.0f + 0.5f) : r == m ? 0.5f / (3.0f + 0.5f) : 0.0f;
            EXPECT_EQ(k.gain()[static_cast<std::size_t>(r)], expected) << "element " << r;
        }
    }
}

// Edge case: y equal to the prediction gives a zero innovation, so the state is the
// predicted state exactly, while the covariance still moves.
TEST(KalmanProcess, ObservationEqualToPredictionLeavesThePredictedState) {
    Kalman k;
    setUp(k, std::vector<int>(20, 0), 2, 1);
    for (int n = 0; n < 5; ++n) k.processSample(std::cos(0.4f * static_cast<float>(n)));
    const std::vector<float> x = k.state();
    const int p = 2, m = 4;
    float signal = 0.0f;
    for (int i = 0; i < p; ++i) signal += k.signalCoeffs()[static_cast<std::size_t>(i)] * x[static_cast<std::size_t>(i)];
    float noise = 0.0f;
    for (int i = 0; i < 2; ++i) noise += x[static_cast<std::size_t>(m + i)] * k.noiseCoeffs()[static_cast<std::size_t>(i)];
    std::vector<std::vector<float>> covBefore;
    for (int r = 0; r < k.stateSize(); ++r) covBefore.emplace_back(k.cov()[r], k.cov()[r] + k.stateSize());

    k.processSample(noise + signal);
    EXPECT_EQ(k.state(), k.predictedState());
    bool covChanged = false;
    for (int r = 0; r < k.stateSize(); ++r)
        for (int c = 0; c < k.stateSize(); ++c) covChanged |= k.cov()[r][c] != covBefore[static_cast<std::size_t>(r)][static_cast<std::size_t>(c)];
    EXPECT_TRUE(covChanged);
}

// Edge case: a long run flagged 1 with flaggedVariance far above cleanVariance. The
// gain moves to the noise block, the noise estimate takes up the observation and the
// signal runs on by its prediction. Thresholds: with r / signalVariance = 1e4 the
// signal gain settles near (predicted signal variance) / r, about 2e-4 for this
// model; 1e-3 leaves room for its growth during the run. The noise estimate equals
// y - state[0] up to the rounding of gain[0] + gain[m] = 1 (a few ulps, 2e-7) times
// the innovation, plus one rounding of the subtraction: 1e-5 of |e| + |y| covers both.
TEST(KalmanProcess, LongFlaggedRunMovesTheGainToTheNoise) {
    const int length = 600;
    std::vector<int> flags(length, 0);
    for (int n = 200; n < 500; ++n) flags[static_cast<std::size_t>(n)] = 1;
    Kalman k;
    setUp(k, flags, 0, 1, 1.0f, 0.01f, 1e4f);
    const int m = 2;
    std::mt19937 generator(42u);
    SCOPED_TRACE("seed 42");
    std::normal_distribution<float> sample(0.0f, 1.0f);
    for (int n = 0; n < length; ++n) {
        const float y = flags[static_cast<std::size_t>(n)] == 1 ? 100.0f * sample(generator) : sample(generator);
        k.processSample(y);
        if (n == 210 || n == 350 || n == 499) {
            SCOPED_TRACE(testing::Message() << "sample " << n);
            EXPECT_LT(std::fabs(k.gain()[0]), 1e-3f);
            EXPECT_GT(k.gain()[m], 1.0f - 1e-3f);
            const float innovation = y - (k.predictedState()[m] + k.predictedState()[0]);
            EXPECT_LT(std::fabs(k.state()[0] - k.predictedState()[0]), 1e-3f * std::fabs(innovation) + 1e-6f);
            EXPECT_NEAR(k.state()[m], y - k.state()[0], 1e-5f * (std::fabs(innovation) + std::fabs(y)));
        }
    }
}

// Edge case: m of 1 (p 1, d 0). The shift loops of the prediction do nothing and the
// step still matches the plain transcription bit for bit.
TEST(KalmanProcess, SmallestModelWithMOfOne) {
    const std::vector<float> signalAr{1.0f, -0.8f};
    const std::vector<int> flags{0, 0, 1, 1, 0, 0, 0, 1};
    Kalman k;
    setUp(k, flags, 0, 1, 1.0f, 0.04f, 100.0f, signalAr);
    EXPECT_EQ(k.stateSize(), 3);
    std::vector<float> driving;
    for (int f : flags) driving.push_back(f == 1 ? 100.0f : 0.04f);
    kalman_test::LiteralKalman literal(signalAr, kNoiseAr, 1.0f, driving, 0, {0.25f}, 1);
    const float ys[] = {0.5f, -0.25f, 3.0f, -4.0f, 0.125f, 0.0f, 1.0f, 2.0f};
    for (float y : ys) {
        const std::vector<float> x = k.state();
        const float out = k.processSample(y);
        EXPECT_EQ(k.predictedState()[0], 0.0f + 0.8f * x[0]);
        EXPECT_EQ(k.predictedState()[1], 0.0f + x[1] * 0.3f + x[2] * -0.1f);
        EXPECT_EQ(k.predictedState()[2], x[1]);
        EXPECT_EQ(kalman_test::bitsOf(out), kalman_test::bitsOf(literal.step(y)));
    }
}

// Edge case: the last sample. After flagCount samples the next variance would lie
// past the schedule; the variance of the last sample stays, however many follow.
TEST(KalmanProcess, VarianceStaysPastTheLastFlag) {
    Kalman k;
    setUp(k, {0, 0, 1}, 1, 1, 1.0f, 0.04f, 100.0f);
    for (int n = 0; n < 3; ++n) k.processSample(0.5f);
    EXPECT_EQ(k.sampleIndex(), 3);
    EXPECT_EQ(k.noiseCov()[1][1], 100.0f);
    for (int n = 0; n < 10; ++n) k.processSample(-0.5f);
    EXPECT_EQ(k.sampleIndex(), 13);
    EXPECT_EQ(k.noiseCov()[1][1], 100.0f);
    EXPECT_TRUE(std::isfinite(k.state()[0]));
}

// Edge case: delay 0 and outputSignal 0 return element p, the current noise, and not
// element N - 1. Together with the other three rows of the output table.
TEST(KalmanProcess, OutputTableWithItsTwoLags) {
    const int p = 2;
    struct Row {
        int outputSignal, delay, element;
    };
    const Row rows[] = {{1, 0, 0}, {5, 3, p + 3 - 1}, {0, 0, p}, {0, 3, p + 3 + 2 - 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << "outputSignal " << row.outputSignal << " delay " << row.delay);
        Kalman k;
        setUp(k, std::vector<int>(8, 0), row.delay, row.outputSignal);
        for (int n = 0; n < 8; ++n) {
            const float out = k.processSample(std::sin(0.9f * static_cast<float>(n)));
            EXPECT_EQ(kalman_test::bitsOf(out), kalman_test::bitsOf(k.state()[static_cast<std::size_t>(row.element)]));
        }
        if (row.outputSignal == 0 && row.delay == 0) {
            EXPECT_NE(k.state()[p], k.state()[static_cast<std::size_t>(k.stateSize() - 1)]);
        }
    }
}

// Both drive variances 0 on the first call: the innovation variance is 0 and the
// gains are not numbers; they stay in state and covariance.
TEST(KalmanProcess, ZeroInnovationVarianceGivesPersistentNaN) {
    Kalman k;
    setUp(k, std::vector<int>(6, 0), 1, 1, 0.0f, 0.0f, 0.0f);
    k.processSample(1.0f);
    EXPECT_TRUE(std::isnan(k.gain()[0]));
    for (int n = 0; n < 5; ++n) EXPECT_TRUE(std::isnan(k.processSample(1.0f)));
    EXPECT_TRUE(std::isnan(k.cov()[0][0]));
}

// With a noise order above 2 the step still writes only the first two noise elements;
// the further ones keep their initial value of 0.
TEST(KalmanProcess, NoiseElementsPastTheSecondStayAtTheirInitialValue) {
    const std::vector<float> noiseAr{1.0f, -0.3f, 0.1f, 0.2f};
    Kalman k;
    k.setModels(kSignalAr.data(), 3, noiseAr.data(), 4);
    const std::vector<int> flags(40, 0);
    k.setNoise(1.0f, 0.04f, 100.0f, flags.data(), 40);
    const float initial[] = {0.5f, -0.5f};
    k.start(0, initial, 1);
    for (int n = 0; n < 40; ++n) {
        k.processSample(std::sin(0.7f * static_cast<float>(n)));
        EXPECT_EQ(k.state()[4], 0.0f);
    }
}

// Noise orders below 2 fall outside the model; the two-tap recursion then works on a
// padded noise block and stays inside the object's storage.
TEST(KalmanProcess, NoiseOrderBelowTwoStaysInBounds) {
    for (int noiseLen : {1, 2}) {
        SCOPED_TRACE(testing::Message() << "noiseLen " << noiseLen);
        const float noiseAr[] = {1.0f, -0.5f};
        Kalman k;
        k.setModels(kSignalAr.data(), 3, noiseAr, noiseLen);
        const std::vector<int> flags(20, 0);
        k.setNoise(1.0f, 0.04f, 100.0f, flags.data(), 20);
        const float initial[] = {0.5f, -0.5f, 0.0f};
        k.start(1, initial, 1);
        for (int n = 0; n < 20; ++n) EXPECT_TRUE(std::isfinite(k.processSample(std::sin(0.7f * static_cast<float>(n)))));
    }
}

// A step allocates nothing.
TEST(KalmanProcess, ProcessSampleDoesNotAllocate) {
    const kalman_test::Scenario s = kalman_test::makeScenario(12, 500, 3u);
    Kalman k;
    kalman_test::configure(k, s, 6, 1);
    const long before = testsupport::allocationCount();
    float sum = 0.0f;
    for (float y : s.observed) sum += k.processSample(y);
    EXPECT_EQ(testsupport::allocationCount(), before);
    EXPECT_TRUE(std::isfinite(sum));
}
