#include "kalman/Kalman.h"

#include "kalman/KalmanTestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

namespace {

const std::vector<float> kSignalAr{1.0f, -0.5f, 0.25f, -0.125f};  // p = 3
const std::vector<float> kNoiseAr{1.0f, 0.75f, -0.5f};            // q = 2

void setModels(Kalman& k, const std::vector<float>& signalAr, const std::vector<float>& noiseAr) {
    k.setModels(signalAr.data(), static_cast<int>(signalAr.size()), noiseAr.data(),
                static_cast<int>(noiseAr.size()));
}

void setNoise(Kalman& k, const std::vector<int>& flags, float signalVariance = 2.0f,
              float clean = 0.5f, float flagged = 8.0f) {
    k.setNoise(signalVariance, clean, flagged, flags.data(), static_cast<int>(flags.size()));
}

void start(Kalman& k, int delay, int outputSignal = 1) {
    const std::vector<float> initial(static_cast<std::size_t>(k.signalOrder() + delay), 0.0f);
    k.start(delay, initial.data(), outputSignal);
}

void expectRow(const kalman::RowMatrix& m, int row, const std::vector<float>& expected) {
    for (std::size_t c = 0; c < expected.size(); ++c)
        EXPECT_EQ(m[row][static_cast<int>(c)], expected[c]) << "row " << row << " column " << c;
}

}  // namespace

TEST(KalmanSetup, FreshObjectIsEmptyAndDestroysSafely) {
    Kalman k;
    EXPECT_EQ(k.stateSize(), 0);
    EXPECT_EQ(k.noiseInputs(), 0);
    EXPECT_FALSE(k.transition().isAllocated());
    EXPECT_TRUE(k.state().empty());
}

TEST(KalmanSetup, SetModelsBuildsNegatedCoefficientsAndCompanionMatrices) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    EXPECT_EQ(k.signalOrder(), 3);
    EXPECT_EQ(k.noiseOrder(), 2);
    EXPECT_EQ(k.stateSize(), 5);
    EXPECT_EQ(k.signalCoeffs(), (std::vector<float>{0.5f, -0.25f, 0.125f}));
    EXPECT_EQ(k.noiseCoeffs(), (std::vector<float>{-0.75f, 0.5f}));
    expectRow(k.signalTransition(), 0, {0.5f, -0.25f, 0.125f});
    expectRow(k.signalTransition(), 1, {1, 0, 0});
    expectRow(k.signalTransition(), 2, {0, 1, 0});
    expectRow(k.noiseTransition(), 0, {-0.75f, 0.5f});
    expectRow(k.noiseTransition(), 1, {1, 0});
    EXPECT_EQ(k.transition().rowCount(), 5);
    expectRow(k.transition(), 0, {0.5f, -0.25f, 0.125f, 0, 0});
    expectRow(k.transition(), 2, {0, 1, 0, 0, 0});
    expectRow(k.transition(), 3, {0, 0, 0, -0.75f, 0.5f});
    expectRow(k.transition(), 4, {0, 0, 0, 1, 0});
}

TEST(KalmanSetup, StartBuildsTheFullModelWithTheDelay) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    setNoise(k, {0, 1});
    const std::vector<float> initial{1, 2, 3, 4, 5};  // p + d = 5
    k.start(2, initial.data(), 7);
    const int n = 7, m = 5;
    EXPECT_EQ(k.stateSize(), n);
    EXPECT_EQ(k.delay(), 2);
    EXPECT_EQ(k.outputSignal(), 7);
    EXPECT_EQ(k.sampleIndex(), 0);
    EXPECT_EQ(k.signalInput(), (std::vector<float>{1, 0, 0, 0, 0}));
    EXPECT_EQ(k.noiseInput(), (std::vector<float>{1, 0}));
    EXPECT_EQ(k.observation(), (std::vector<float>{1, 0, 0, 0, 0, 1, 0}));
    EXPECT_EQ(k.state(), (std::vector<float>{1, 2, 3, 4, 5, 0, 0}));
    EXPECT_EQ(k.gain(), std::vector<float>(n, 0.0f));
    EXPECT_EQ(k.inputMatrix().rowCount(), n);
    for (int r = 0; r < n; ++r) {
        EXPECT_EQ(k.inputMatrix()[r][0], r == 0 ? 1.0f : 0.0f);
        EXPECT_EQ(k.inputMatrix()[r][1], r == m ? 1.0f : 0.0f);
    }
    for (const kalman::RowMatrix* matrix : {&k.cov(), &k.predictedCov(), &k.scratchA(), &k.scratchB()}) {
        ASSERT_EQ(matrix->rowCount(), n);
        ASSERT_EQ(matrix->colCount(), n);
        for (int r = 0; r < n; ++r) expectRow(*matrix, r, std::vector<float>(n, 0.0f));
    }
}

TEST(KalmanSetup, SetNoiseBuildsTheVarianceScheduleAndNoiseCovariance) {
    Kalman k;
    setNoise(k, {1, 0, 1}, 2.0f, 0.5f, 8.0f);
    EXPECT_EQ(k.flagCount(), 3);
    EXPECT_EQ(k.flags(), (std::vector<int>{1, 0, 1}));
    EXPECT_EQ(k.drivingVariance(), (std::vector<float>{8.0f, 0.5f, 8.0f}));
    EXPECT_EQ(k.noiseInputs(), 2);
    expectRow(k.noiseCov(), 0, {2.0f, 0.0f});
    expectRow(k.noiseCov(), 1, {0.0f, 8.0f});
    EXPECT_EQ(k.sampleIndex(), 0);
}

// Edge case: flags 0, 2 and -1 all select cleanVariance; only 1 selects flaggedVariance.
TEST(KalmanSetup, OnlyFlagOneSelectsTheFlaggedVariance) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    setNoise(k, {0, 2, -1, 1}, 2.0f, 0.5f, 8.0f);
    EXPECT_EQ(k.drivingVariance(), (std::vector<float>{0.5f, 0.5f, 0.5f, 8.0f}));
    start(k, 0);
    // Each sample's variance reaches noiseCov[1][1] when the sample is processed.
    for (int n = 0; n < 4; ++n) {
        EXPECT_EQ(k.noiseCov()[1][1], k.drivingVariance()[static_cast<std::size_t>(n)]);
        k.processSample(0.1f);
    }
    const int m = 3;
    Kalman first;
    setModels(first, kSignalAr, kNoiseAr);
    setNoise(first, {2}, 2.0f, 0.5f, 8.0f);
    start(first, 0);
    first.processSample(0.0f);
    // The first step's noise gain is r / (signalVariance + r): here r is cleanVariance.
    EXPECT_EQ(first.gain()[m], 0.5f / (0.5f + 2.0f));
}

// Edge case: flagCount 0. The variance of the first sample cannot be read from an
// empty schedule; it stays at the 0 that the new noise covariance holds, and the
// filter then follows the signal drive alone.
TEST(KalmanSetup, ZeroFlagCountLeavesTheNoiseDriveAtZero) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    k.setNoise(2.0f, 0.5f, 8.0f, nullptr, 0);
    EXPECT_TRUE(k.drivingVariance().empty());
    EXPECT_EQ(k.noiseCov()[1][1], 0.0f);
    start(k, 0);
    EXPECT_EQ(k.processSample(1.0f), 1.0f);
    EXPECT_EQ(k.gain()[0], 1.0f);
    EXPECT_EQ(k.gain()[3], 0.0f);
    EXPECT_EQ(k.noiseCov()[1][1], 0.0f);
}

// The count that the schedule needs: one flag gives the first sample its variance.
TEST(KalmanSetup, OneFlagSuppliesTheFirstSample) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    setNoise(k, {1}, 2.0f, 0.5f, 8.0f);
    EXPECT_EQ(k.noiseCov()[1][1], 8.0f);
}

// Edge case: the leading element of either polynomial has no effect.
TEST(KalmanSetup, LeadingCoefficientHasNoEffect) {
    const kalman_test::Scenario s = kalman_test::makeScenario(4, 300, 11u);
    Kalman reference;
    kalman_test::configure(reference, s, 2, 1);
    for (float lead : {0.0f, -3.5f, 1e30f, std::numeric_limits<float>::quiet_NaN()}) {
        SCOPED_TRACE(testing::Message() << "leading element " << lead);
        kalman_test::Scenario changed = s;
        changed.signalAr[0] = lead;
        changed.noiseAr[0] = lead;
        Kalman k;
        kalman_test::configure(k, changed, 2, 1);
        EXPECT_EQ(k.signalCoeffs(), reference.signalCoeffs());
        EXPECT_EQ(k.noiseCoeffs(), reference.noiseCoeffs());
        Kalman again;
        kalman_test::configure(again, s, 2, 1);
        for (float y : s.observed)
            ASSERT_EQ(kalman_test::bitsOf(k.processSample(y)), kalman_test::bitsOf(again.processSample(y)));
    }
}

// Edge case: a second setModels after start with delay 0 reaches processSample at
// once, while signalTransition (and the noise rows of transition) keep the old model.
TEST(KalmanSetup, SecondSetModelsAfterStartTakesEffectAtOnce) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    setNoise(k, std::vector<int>(10, 0));
    const std::vector<float> initial{1.0f, -2.0f, 0.5f};
    k.start(0, initial.data(), 1);
    k.processSample(0.3f);
    k.processSample(-0.2f);

    const std::vector<float> newSignal{1.0f, 0.25f, -0.5f, 0.75f};
    const std::vector<float> newNoise{1.0f, -0.25f, 0.125f};
    setModels(k, newSignal, newNoise);
    EXPECT_EQ(k.stateSize(), 5);
    expectRow(k.signalTransition(), 0, {0.5f, -0.25f, 0.125f});
    expectRow(k.noiseTransition(), 0, {-0.75f, 0.5f});
    expectRow(k.transition(), 0, {-0.25f, 0.5f, -0.75f, 0, 0});
    expectRow(k.transition(), 3, {0, 0, 0, -0.75f, 0.5f});

    const std::vector<float> before = k.state();
    k.processSample(0.1f);
    const float signalPrediction = 0.0f + -0.25f * before[0] + 0.5f * before[1] + -0.75f * before[2];
    const float noisePrediction = 0.0f + before[3] * 0.25f + before[4] * -0.125f;
    EXPECT_EQ(k.predictedState()[0], signalPrediction);
    EXPECT_EQ(k.predictedState()[3], noisePrediction);
}

// Edge case: start adds the delay to stateSize, so two starts without setModels
// between count the delay twice. The arrays follow the grown size, and the filter
// stays within them.
TEST(KalmanSetup, TwoStartsWithoutSetModelsCountTheDelayTwice) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    setNoise(k, std::vector<int>(50, 0));
    start(k, 4);
    EXPECT_EQ(k.stateSize(), 3 + 2 + 4);
    start(k, 4);
    EXPECT_EQ(k.stateSize(), 3 + 2 + 8);
    EXPECT_EQ(k.state().size(), 13u);
    EXPECT_EQ(k.cov().rowCount(), 13);
    EXPECT_EQ(k.signalInput().size(), 7u);  // p + d, with d the stored delay
    EXPECT_EQ(k.observation()[7], 1.0f);
    for (int n = 0; n < 50; ++n) EXPECT_TRUE(std::isfinite(k.processSample(std::sin(0.3f * n))));
}

// Edge case: initialState is read for p + d elements, also with delay 0; the noise
// block starts at 0. The vectors are exactly that long, so an over-read would show
// in the sanitizer build.
TEST(KalmanSetup, InitialStateFillsTheSignalBlock) {
    for (int delay : {0, 3}) {
        SCOPED_TRACE(testing::Message() << "delay " << delay);
        Kalman k;
        setModels(k, kSignalAr, kNoiseAr);
        setNoise(k, {0});
        std::vector<float> initial;
        for (int i = 0; i < 3 + delay; ++i) initial.push_back(1.5f + static_cast<float>(i));
        k.start(delay, initial.data(), 1);
        for (int i = 0; i < 3 + delay; ++i) EXPECT_EQ(k.state()[static_cast<std::size_t>(i)], initial[static_cast<std::size_t>(i)]);
        EXPECT_EQ(k.state()[static_cast<std::size_t>(3 + delay)], 0.0f);
        EXPECT_EQ(k.state()[static_cast<std::size_t>(4 + delay)], 0.0f);
    }
}

TEST(KalmanSetup, SetNoiseMayComeBeforeOrAfterSetModels) {
    const kalman_test::Scenario s = kalman_test::makeScenario(3, 200, 5u);
    Kalman after;
    kalman_test::configure(after, s, 1, 0);
    Kalman before;
    before.setNoise(s.signalVariance, s.cleanVariance, s.flaggedVariance, s.flags.data(),
                    static_cast<int>(s.flags.size()));
    before.setModels(s.signalAr.data(), 4, s.noiseAr.data(), 3);
    const std::vector<float> initial(4, 0.0f);
    before.start(1, initial.data(), 0);
    for (float y : s.observed)
        ASSERT_EQ(kalman_test::bitsOf(before.processSample(y)), kalman_test::bitsOf(after.processSample(y)));
}

// setModels then start with other sizes restarts the filter: state and covariance
// cleared, the filter's arrays made anew for the new size.
TEST(KalmanSetup, RestartWithOtherSizesRebuildsTheFilter) {
    const kalman_test::Scenario s = kalman_test::makeScenario(6, 300, 21u);
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    setNoise(k, std::vector<int>(300, 0));
    start(k, 5);
    for (int n = 0; n < 40; ++n) k.processSample(s.observed[static_cast<std::size_t>(n)]);
    kalman_test::configure(k, s, 2, 1);
    EXPECT_EQ(k.stateSize(), 6 + 2 + 2);
    EXPECT_EQ(k.cov().rowCount(), 10);
    EXPECT_EQ(k.sampleIndex(), 0);
    Kalman fresh;
    kalman_test::configure(fresh, s, 2, 1);
    // Only the signal row of the full transition follows a later model; the filter
    // itself runs on the new coefficients exactly as a fresh object does.
    for (float y : s.observed)
        ASSERT_EQ(kalman_test::bitsOf(k.processSample(y)), kalman_test::bitsOf(fresh.processSample(y)));
}

// An object destroyed after setModels without start releases everything it owns.
TEST(KalmanSetup, DestroyAfterSetModelsAlone) {
    Kalman k;
    setModels(k, kSignalAr, kNoiseAr);
    setNoise(k, {0, 0});
    SUCCEED();
}
