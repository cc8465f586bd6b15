#include "waveform/CorrelationScan.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "waveform/TestSignals.h"

namespace {

using waveform_test::randomSignal;
using waveform_test::smallIntegerSignal;

// Raw dot product of lag k against the signal placed at `offset` in an endless
// run of zeros, summed exactly (small integers) in double.
double exactDot(const std::vector<float>& ref, const std::vector<float>& sig, int offset, int k)
{
    double sum = 0.0;
    for (std::size_t i = 0; i < ref.size(); ++i) {
        const long n = static_cast<long>(k) + static_cast<long>(i) - offset;
        if (n >= 0 && n < static_cast<long>(sig.size())) sum += double(ref[i]) * double(sig[n]);
    }
    return sum;
}

double exactWindowEnergy(const std::vector<float>& sig, int offset, int k, int refLen)
{
    double sum = 0.0;
    for (int i = 0; i < refLen; ++i) {
        const long n = static_cast<long>(k) + i - offset;
        if (n >= 0 && n < static_cast<long>(sig.size())) sum += double(sig[n]) * double(sig[n]);
    }
    return sum;
}

// The float score of lag k when every sum is exact: only the final steps round.
float exactFloatScore(const std::vector<float>& ref, const std::vector<float>& sig, int offset,
                      int k)
{
    const int refLen = static_cast<int>(ref.size());
    double refEnergy = 0.0;
    for (float v : ref) refEnergy += double(v) * double(v);
    const double d = std::sqrt(exactWindowEnergy(sig, offset, k, refLen) * refEnergy) + 1e-30;
    return static_cast<float>(exactDot(ref, sig, offset, k)) / static_cast<float>(d);
}

// --- numLags below 1 -------------------------------------------------------------

TEST(CorrelationScan, NoLagsLeavesOutputUntouchedForAllFourMembers)
{
    const auto refF = randomSignal(8, 1), sigF = randomSignal(32, 2);
    const std::vector<double> refD(refF.begin(), refF.end()), sigD(sigF.begin(), sigF.end());
    for (const int numLags : {0, -1, -40}) {
        SCOPED_TRACE("numLags " + std::to_string(numLags));
        std::vector<float> outF(4, 42.0f);
        std::vector<double> outD(4, 42.0);
        EXPECT_EQ(normCorrelate(refF.data(), 8, sigF.data(), 32, outF.data(), numLags, 0), 0);
        EXPECT_EQ(normCorrelate(refD.data(), 8, sigD.data(), 32, outD.data(), numLags, 0), 0);
        for (const unsigned mode : {0u, 1u, 2u, 3u}) {
            EXPECT_EQ(
                scaledCorrelate(refF.data(), 8, sigF.data(), 32, outF.data(), numLags, -2, mode),
                0);
            EXPECT_EQ(
                scaledCorrelate(refD.data(), 8, sigD.data(), 32, outD.data(), numLags, -2, mode),
                0);
        }
        for (float v : outF) EXPECT_EQ(v, 42.0f);
        for (double v : outD) EXPECT_EQ(v, 42.0);
    }
}

// --- all-zero reference ----------------------------------------------------------

TEST(CorrelationScan, ZeroReferenceScoresZeroEverywhere)
{
    const std::uint32_t seed = 5;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto sig = randomSignal(400, seed);
    const std::vector<float> ref(50, 0.0f);
    std::vector<float> out(400, 9.0f);
    normCorrelate(ref.data(), 50, sig.data(), 400, out.data(), 400, 0);
    for (float v : out) EXPECT_EQ(v, 0.0f);

    const std::vector<double> sigD(sig.begin(), sig.end()), refD(50, 0.0);
    std::vector<double> outD(400, 9.0);
    normCorrelate(refD.data(), 50, sigD.data(), 400, outD.data(), 400, 0);
    for (double v : outD) EXPECT_EQ(v, 0.0);
}

// --- reference equal to the signal's start ---------------------------------------

TEST(CorrelationScan, ReferenceEqualToSignalStartScoresNearOneAtLagZero)
{
    const std::uint32_t seed = 11;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int refLen = 1000;
    const auto sig = randomSignal(3000, seed);
    const std::vector<float> ref(sig.begin(), sig.begin() + refLen);
    std::vector<float> out(10);
    normCorrelate(ref.data(), refLen, sig.data(), 3000, out.data(), 10, 0);
    // The float dot product of positive terms carries a relative error of at most
    // refLen * 2^-24; the float squares in the energies and the final rounding add a
    // few units more. refLen * FLT_EPSILON (twice that bound) covers them.
    EXPECT_NEAR(out[0], 1.0f, refLen * FLT_EPSILON);
    for (int k = 1; k < 10; ++k) EXPECT_LT(std::fabs(out[k]), 0.2f);

    const std::vector<double> sigD(sig.begin(), sig.end()), refD(ref.begin(), ref.end());
    std::vector<double> outD(10);
    normCorrelate(refD.data(), refLen, sigD.data(), 3000, outD.data(), 10, 0);
    EXPECT_NEAR(outD[0], 1.0, refLen * DBL_EPSILON);
}

// "Close to 1" holds while the slid energy is true to its window. Squares added
// while the running sum stands in one binade and removed when it has fallen to a
// lower one leave their rounding behind; after a fading passage some 160 dB louder
// that residue is comparable with a quiet window's own energy, and the aligned
// score moves far from 1.
TEST(CorrelationScan, AlignedScoreAfterALoudPassageDriftsFromOne)
{
    const std::uint32_t seed = 13;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int refLen = 1000, at = 5000;
    const auto ref = randomSignal(refLen, seed, 1e-5f);
    auto sig = randomSignal(8000, seed + 1, 1e3f);
    for (int n = 0; n < 3000; ++n) sig[n] *= static_cast<float>(3000 - n) / 3000.0f;  // fade
    std::fill(sig.begin() + 3000, sig.end(), 0.0f);
    std::copy(ref.begin(), ref.end(), sig.begin() + at);  // the quiet copy
    std::vector<float> out(6000);
    normCorrelate(ref.data(), refLen, sig.data(), 8000, out.data(), 6000, 0);
    EXPECT_GT(std::fabs(out[at] - 1.0f), 1e-2f) << out[at];

    std::fill(sig.begin(), sig.begin() + 3000, 0.0f);  // without the loud passage
    normCorrelate(ref.data(), refLen, sig.data(), 8000, out.data(), 6000, 0);
    EXPECT_NEAR(out[at], 1.0f, refLen * FLT_EPSILON);
}

// --- lags into the zero tail ------------------------------------------------------

// Small integers keep every sum exact, so each score is known to the bit: the
// dot product shrinks and the sliding energy falls as the window leaves the signal.
TEST(CorrelationScan, LateLagsCompareAgainstTheZeroTail)
{
    const std::uint32_t seed = 21;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int refLen = 40, sigLen = 100, numLags = 100;
    const auto ref = smallIntegerSignal(refLen, seed);
    const auto sig = smallIntegerSignal(sigLen, seed + 1);
    std::vector<float> out(numLags);
    normCorrelate(ref.data(), refLen, sig.data(), sigLen, out.data(), numLags, 0);
    for (int k = 0; k < numLags; ++k) EXPECT_EQ(out[k], exactFloatScore(ref, sig, 0, k)) << k;
    EXPECT_EQ(out[numLags - 1],
              static_cast<float>(ref[0] * sig[sigLen - 1]) /
                  static_cast<float>(std::sqrt(double(sig[sigLen - 1]) * sig[sigLen - 1] *
                                               exactWindowEnergy(ref, 0, 0, refLen)) +
                                     1e-30));

    const std::vector<double> refD(ref.begin(), ref.end()), sigD(sig.begin(), sig.end());
    std::vector<double> outD(numLags);
    normCorrelate(refD.data(), refLen, sigD.data(), sigLen, outD.data(), numLags, 0);
    for (int k = 0; k < numLags; ++k) {
        const double refEnergy = exactWindowEnergy(ref, 0, 0, refLen);
        const double expected =
            exactDot(ref, sig, 0, k) /
            (std::sqrt(exactWindowEnergy(sig, 0, k, refLen) * refEnergy) + 1e-30);
        EXPECT_EQ(outD[k], expected) << k;
    }
}

// Past the signal and past the reference length everything is zero: 0 / 1e-30.
TEST(CorrelationScan, LagsBeyondTheSignalScoreZero)
{
    const auto ref = smallIntegerSignal(10, 31);
    const auto sig = smallIntegerSignal(20, 32);
    std::vector<float> out(40, 5.0f);
    normCorrelate(ref.data(), 10, sig.data(), 20, out.data(), 40, 0);
    for (int k = 20; k < 40; ++k) EXPECT_EQ(out[k], 0.0f) << k;
}

// --- refLen 0 -----------------------------------------------------------------------

// A zero-length reference is outside the contract: the energy update addresses the
// element before the working copy. Here that element is a zero of the copy's own
// padding, so the scan stays inside its storage and every score is the empty dot
// product over a zero energy, 0 / 1e-30.
TEST(CorrelationScan, ZeroLengthReferenceStaysInsideTheWorkingCopy)
{
    const auto sig = randomSignal(16, 41);
    const float ref[1] = {1.0f};
    std::vector<float> out(16, 3.0f);
    EXPECT_EQ(normCorrelate(ref, 0, sig.data(), 16, out.data(), 16, 0), 0);
    for (float v : out) EXPECT_EQ(v, 0.0f);
}

// --- shift ---------------------------------------------------------------------------

TEST(CorrelationScan, NegativeShiftPutsLeadingZerosBeforeTheSignal)
{
    const std::uint32_t seed = 51;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto ref = smallIntegerSignal(6, seed);
    const auto sig = smallIntegerSignal(30, seed + 1);
    std::vector<float> raw(30);
    scaledCorrelate(ref.data(), 6, sig.data(), 30, raw.data(), 30, -3, 0);
    // Lag 0 meets three zeros, then sig[0..2]; lag 3 is the first aligned one.
    EXPECT_EQ(raw[0], ref[3] * sig[0] + ref[4] * sig[1] + ref[5] * sig[2]);
    for (int k = 0; k < 30; ++k) EXPECT_EQ(raw[k], exactDot(ref, sig, 3, k)) << k;

    std::vector<float> scores(30);
    normCorrelate(ref.data(), 6, sig.data(), 30, scores.data(), 30, -3);
    for (int k = 0; k < 30; ++k) EXPECT_EQ(scores[k], exactFloatScore(ref, sig, 3, k)) << k;

    // The same as prefixing three zeros by hand.
    std::vector<float> padded(3, 0.0f);
    padded.insert(padded.end(), sig.begin(), sig.end());
    std::vector<float> byHand(30);
    normCorrelate(ref.data(), 6, padded.data(), 33, byHand.data(), 30, 0);
    EXPECT_EQ(waveform_test::firstBitDifference(scores.data(), byHand.data(), 30), -1);
}

TEST(CorrelationScan, PositiveShiftReadsFullSigLenFromSigShift)
{
    const std::uint32_t seed = 61;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int shift = 5, sigLen = 50;
    const auto ref = randomSignal(8, seed);
    auto sig = randomSignal(sigLen + shift, seed + 1);  // shift readable elements after sigLen
    std::vector<float> shifted(sigLen), direct(sigLen);
    normCorrelate(ref.data(), 8, sig.data(), sigLen, shifted.data(), sigLen, shift);
    normCorrelate(ref.data(), 8, sig.data() + shift, sigLen, direct.data(), sigLen, 0);
    EXPECT_EQ(waveform_test::firstBitDifference(shifted.data(), direct.data(), sigLen), -1);

    // The last element read is sig[shift + sigLen - 1], past sig[sigLen - 1]: the last
    // lag's raw sum is ref[0] times it.
    std::vector<float> raw(sigLen);
    scaledCorrelate(ref.data(), 8, sig.data(), sigLen, raw.data(), sigLen, shift, 0);
    EXPECT_EQ(raw[sigLen - 1], ref[0] * sig[shift + sigLen - 1]);
}

// --- scale modes ---------------------------------------------------------------------

class ScaledCorrelate : public ::testing::Test {
protected:
    static constexpr int refLen = 12, sigLen = 40, numLags = 30;
    std::vector<float> ref = smallIntegerSignal(refLen, 71);
    std::vector<float> sig = smallIntegerSignal(sigLen, 72);

    std::vector<float> raw() const
    {
        std::vector<float> out(numLags);
        for (int k = 0; k < numLags; ++k) out[k] = static_cast<float>(exactDot(ref, sig, 0, k));
        return out;
    }
};

TEST_F(ScaledCorrelate, ModesZeroAndFourLeaveRawSums)
{
    for (const unsigned mode : {0u, 4u, 1000u}) {
        std::vector<float> out(numLags);
        scaledCorrelate(ref.data(), refLen, sig.data(), sigLen, out.data(), numLags, 0, mode);
        EXPECT_EQ(out, raw()) << "mode " << mode;
    }
}

TEST_F(ScaledCorrelate, ModeOneScalesByTheInverseTotalLength)
{
    std::vector<float> out(numLags);
    scaledCorrelate(ref.data(), refLen, sig.data(), sigLen, out.data(), numLags, 0, 1);
    const float factor = static_cast<float>(1.0 / 52.0);
    for (int k = 0; k < numLags; ++k) EXPECT_EQ(out[k], raw()[k] * factor) << k;

    const std::vector<double> refD(ref.begin(), ref.end()), sigD(sig.begin(), sig.end());
    std::vector<double> outD(numLags);
    scaledCorrelate(refD.data(), refLen, sigD.data(), sigLen, outD.data(), numLags, 0, 1);
    for (int k = 0; k < numLags; ++k) EXPECT_EQ(outD[k], double(raw()[k]) * (1.0 / 52.0)) << k;
}

TEST_F(ScaledCorrelate, ModeTwoScalesEachLagByItsOwnInverse)
{
    std::vector<float> out(numLags);
    scaledCorrelate(ref.data(), refLen, sig.data(), sigLen, out.data(), numLags, 0, 2);
    for (int k = 0; k < numLags; ++k)
        EXPECT_EQ(out[k], raw()[k] * static_cast<float>(1.0 / double(52 - k))) << k;
}

// The divisor goes int -> float -> double before the inversion: 16777217 becomes
// 16777216 = 2^24 in float, so the factor is exactly 2^-24 and not the rounded
// inverse of 16777217.
TEST(CorrelationScan, ScaleFactorPassesThroughFloat)
{
    const int sigLen = (1 << 24) - 1;  // refLen 2 + sigLen = 2^24 + 1
    std::vector<float> sig(2, 0.0f);
    sig.resize(static_cast<std::size_t>(sigLen), 0.0f);
    sig[0] = 3.0f;
    sig[1] = 5.0f;
    const float ref[2] = {1.0f, 1.0f};
    float out[1];
    scaledCorrelate(ref, 2, sig.data(), sigLen, out, 1, 0, 1);
    EXPECT_EQ(out[0], 8.0f * 0x1p-24f);
    EXPECT_NE(0x1p-24f, static_cast<float>(1.0 / 16777217.0));  // what skipping float would give
}

// Mode 3: the first pass walks the scores for the peak, the second carries on past
// them and multiplies the next numLags elements by the peak.
TEST_F(ScaledCorrelate, ModeThreeMultipliesTheElementsAfterTheScoresByThePeak)
{
    std::vector<float> out(2 * numLags);
    for (int j = 0; j < numLags; ++j) out[numLags + j] = 0.25f * static_cast<float>(j + 1);
    scaledCorrelate(ref.data(), refLen, sig.data(), sigLen, out.data(), numLags, 0, 3);
    float peak = 0.0f;
    for (float v : raw()) peak = std::max(peak, std::fabs(v));
    ASSERT_GT(peak, 1.0f);
    for (int k = 0; k < numLags; ++k) EXPECT_EQ(out[k], raw()[k]) << k;
    for (int j = 0; j < numLags; ++j)
        EXPECT_EQ(out[numLags + j], 0.25f * static_cast<float>(j + 1) * peak) << j;

    const std::vector<double> refD(ref.begin(), ref.end()), sigD(sig.begin(), sig.end());
    std::vector<double> outD(2 * numLags, 2.0);
    scaledCorrelate(refD.data(), refLen, sigD.data(), sigLen, outD.data(), numLags, 0, 3);
    for (int j = 0; j < numLags; ++j) EXPECT_EQ(outD[numLags + j], 2.0 * peak) << j;
}

// Lag k = refLen + sigLen divides by zero in 64 bits: the factor is infinite and the
// score an infinity times the sum (NaN when that sum is zero). With shift -(refLen+2)
// the signal still lies under that lag, so its sum is not zero.
TEST(CorrelationScan, ModeTwoAtLagRefLenPlusSigLenMultipliesByInfinity)
{
    const float ref[2] = {1.0f, 2.0f};
    const float sig[3] = {1.0f, 1.0f, 3.0f};
    float out[6];
    scaledCorrelate(ref, 2, sig, 3, out, 6, -4, 2);
    // Working copy: 0 0 0 0 1 1 3 0 ...; lag 5 sees 1 and 3: sum 7, times +inf.
    EXPECT_EQ(out[5], std::numeric_limits<float>::infinity());

    float zeroTail[6];
    scaledCorrelate(ref, 2, sig, 3, zeroTail, 6, 0, 2);
    EXPECT_TRUE(std::isnan(zeroTail[5]));  // 0 * inf

    const double refD[2] = {1.0, -2.0}, sigD[3] = {1.0, 1.0, 3.0};
    double outD[6];
    scaledCorrelate(refD, 2, sigD, 3, outD, 6, -4, 2);
    EXPECT_EQ(outD[5], -std::numeric_limits<double>::infinity());
}

// --- against a direct double computation -----------------------------------------

struct DirectScores {
    std::vector<double> scores;
};

DirectScores directScores(const std::vector<float>& ref, const std::vector<float>& sig, int numLags)
{
    DirectScores direct;
    double refEnergy = 0.0;
    for (float v : ref) refEnergy += double(v) * double(v);
    for (int k = 0; k < numLags; ++k) {
        double dot = 0.0, energy = 0.0;
        for (std::size_t i = 0; i < ref.size(); ++i) {
            const std::size_t n = k + i;
            const double w = n < sig.size() ? double(sig[n]) : 0.0;
            dot += double(ref[i]) * w;
            energy += w * w;
        }
        direct.scores.push_back(dot / std::sqrt(refEnergy * energy));
    }
    return direct;
}

TEST(CorrelationScan, FloatScanAgreesWithDirectDoubleComputation)
{
    for (const std::uint32_t seed : {101u, 102u, 103u}) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        const int refLen = 1000, sigLen = 2500;
        const auto sig = randomSignal(sigLen, seed);
        const auto ref = randomSignal(refLen, seed + 50);
        std::vector<float> out(sigLen - refLen);
        normCorrelate(ref.data(), refLen, sig.data(), sigLen, out.data(), sigLen - refLen, 0);
        const auto direct = directScores(ref, sig, sigLen - refLen);
        // |float dot - exact| <= refLen * 2^-24 * sum|ref*w| <= refLen * 2^-24 * sqrt(Ea*Eb)
        // (Cauchy-Schwarz), so the score's absolute error is at most refLen * 2^-24; the
        // float squares, the slid energy and the last rounding add a few units.
        const double tolerance = (refLen + 8) * 0x1p-24;
        for (int k = 0; k < sigLen - refLen; ++k)
            ASSERT_NEAR(out[k], direct.scores[k], tolerance) << "lag " << k;

        const std::vector<double> refD(ref.begin(), ref.end()), sigD(sig.begin(), sig.end());
        std::vector<double> outD(sigLen - refLen);
        normCorrelate(refD.data(), refLen, sigD.data(), sigLen, outD.data(), sigLen - refLen, 0);
        // The same bound at 2^-53, plus the slid energy's drift of one rounding per lag.
        const double toleranceD = (refLen + sigLen) * 0x1p-52;
        for (int k = 0; k < sigLen - refLen; ++k)
            ASSERT_NEAR(outD[k], direct.scores[k], toleranceD) << "lag " << k;
    }
}

// --- the sliding energy has no clamp ----------------------------------------------

// A loud sample followed by a quiet one: their squares do not survive the 64-bit
// sum (1e16 + 1 rounds to 1e16), so sliding past them leaves the energy at -1. The
// silence that follows scores 0 / NaN.
TEST(CorrelationScan, LoudPassageEndingInSilenceCanScoreNaN)
{
    std::vector<float> sig(20, 0.0f);
    sig[1] = 1e8f;
    sig[2] = 1.0f;
    const std::vector<float> ref(4, 1.0f);
    std::vector<float> out(12);
    normCorrelate(ref.data(), 4, sig.data(), 20, out.data(), 12, 0);
    EXPECT_TRUE(std::isnan(out[3])) << out[3];
    EXPECT_TRUE(std::isnan(out[11])) << out[11];
    // One lag earlier the slid energy is 0 while the window still holds the 1.0:
    // 1 / 1e-30. Scores stay within about -1 .. 1 only while the slid energy is true
    // to its window.
    EXPECT_EQ(out[2], 1.0f / static_cast<float>(1e-30));
}

// Level does not enter the score: scaling by powers of two changes no bit (every
// rounding scales with it), other factors move a score by a few float units.
TEST(CorrelationScan, ScoresDoNotDependOnLevel)
{
    const std::uint32_t seed = 121;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const int refLen = 200, sigLen = 1200;
    const auto ref = randomSignal(refLen, seed);
    const auto sig = randomSignal(sigLen, seed + 1);
    auto scaled = [](std::vector<float> x, float factor) {
        for (float& v : x) v *= factor;
        return x;
    };
    std::vector<float> base(sigLen), powerOfTwo(sigLen), arbitrary(sigLen);
    normCorrelate(ref.data(), refLen, sig.data(), sigLen, base.data(), sigLen, 0);
    const auto ref4 = scaled(ref, 4.0f), sigHalf = scaled(sig, 0.5f);
    normCorrelate(ref4.data(), refLen, sigHalf.data(), sigLen, powerOfTwo.data(), sigLen, 0);
    // The last lag's window holds one sample: there the guard 1e-30 is not negligible
    // against the root only if that sample is tiny, which it is not for this seed.
    EXPECT_EQ(waveform_test::firstBitDifference(base.data(), powerOfTwo.data(), sigLen), -1);

    const auto ref3 = scaled(ref, 3.1f), sig7 = scaled(sig, 0.07f);
    normCorrelate(ref3.data(), refLen, sig7.data(), sigLen, arbitrary.data(), sigLen, 0);
    // Scaling rounds each input once (2^-24 relative); through refLen products and
    // the sum that moves a score by at most about refLen * 2^-23 absolute.
    for (int k = 0; k < sigLen; ++k) ASSERT_NEAR(arbitrary[k], base[k], refLen * 0x1p-23) << k;
}

}  // namespace
