#include "crackle/SpectralSplit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "support/BitExact.h"

namespace {

using testsupport::sameBits;

using spectralsplit::tonalGain;

TEST(SpectralSplit, BinWhosePowerEqualsTheFloorGoesWhollyToTheResidual)
{
    const float re = 3e-4f;
    const float im = -4e-4f;
    const float power = re * re + im * im;
    EXPECT_EQ(tonalGain(re, im, power), 0.0f);
    EXPECT_GT(tonalGain(re, im, std::nextafter(power, 0.0f)), 0.0f);

    std::vector<float> tonalRe = {re}, tonalIm = {im}, residualRe(1), residualIm(1);
    spectralsplit::splitSpectrum(tonalRe.data(), tonalIm.data(), residualRe.data(), residualIm.data(), 1, power);
    EXPECT_EQ(residualRe[0], re);
    EXPECT_EQ(residualIm[0], im);
    EXPECT_EQ(tonalRe[0], 0.0f);
    EXPECT_EQ(tonalIm[0], -0.0f);
}

TEST(SpectralSplit, GainLimits)
{
    // Vanishing bins go to the residual without a division, whatever the floor.
    EXPECT_EQ(tonalGain(1e-6f, 0.0f, 0.0f), 0.0f);
    // A strong bin passes almost whole: g = 1 - floor / P.
    EXPECT_NEAR(tonalGain(0.1f, 0.0f, 1e-7f), 1.0f - 1e-5f, 1e-7f);
    // A negative floor cannot raise the gain above 1.
    EXPECT_EQ(tonalGain(0.1f, 0.0f, -1.0f), 1.0f);
}

// Random bins around the floor and the vanishing limit, with the special values.
std::vector<float> testBins(unsigned seed, int count)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> exponent(-8.0f, 1.0f);
    std::uniform_int_distribution<int> special(0, 15);
    const float specials[] = {0.0f, -0.0f, 1e-38f, 1e-45f, std::numeric_limits<float>::infinity(),
                              -std::numeric_limits<float>::infinity(), std::numeric_limits<float>::quiet_NaN(),
                              3.16227766e-4f, 3.16227766e-6f};
    std::vector<float> bins(count);
    for (float& v : bins) {
        const int s = special(rng);
        v = s < 9 ? specials[s] : std::pow(10.0f, exponent(rng)) * (rng() % 2 != 0 ? 1.0f : -1.0f);
    }
    return bins;
}

void expectScalarBits(spectralsplit::Kernel kernel)
{
    for (unsigned seed : {1u, 2u, 3u}) {
        SCOPED_TRACE(seed);
        for (int bins : {1025, 257, 15, 7, 3}) {
            const auto re = testBins(seed, bins);
            const auto im = testBins(seed + 100, bins);
            for (float floor : {1e-7f, 0.0f, 1e-3f}) {
                std::vector<float> scalarRe = re, scalarIm = im, scalarResRe(bins), scalarResIm(bins);
                std::vector<float> vectorRe = re, vectorIm = im, vectorResRe(bins), vectorResIm(bins);
                spectralsplit::splitScalar(scalarRe.data(), scalarIm.data(), scalarResRe.data(), scalarResIm.data(), bins, floor);
                kernel(vectorRe.data(), vectorIm.data(), vectorResRe.data(), vectorResIm.data(), bins, floor);
                EXPECT_TRUE(sameBits(scalarRe, vectorRe));
                EXPECT_TRUE(sameBits(scalarIm, vectorIm));
                EXPECT_TRUE(sameBits(scalarResRe, vectorResRe));
                EXPECT_TRUE(sameBits(scalarResIm, vectorResIm));
            }
        }
    }
}

TEST(SpectralSplit, VectorKernelMatchesTheScalarKernelBitForBit)
{
    std::printf("[ kernel   ] spectral split: %s\n", spectralsplit::activeKernel());
    if (spectralsplit::splitSse2 == nullptr) GTEST_SKIP() << "no SSE2 kernel on this CPU or build";
    expectScalarBits(spectralsplit::splitSse2);
}

TEST(SpectralSplit, Avx2KernelMatchesTheScalarKernelBitForBit)
{
    if (spectralsplit::splitAvx2 == nullptr) GTEST_SKIP() << "no AVX2 kernel on this CPU or build";
    expectScalarBits(spectralsplit::splitAvx2);
}

TEST(SpectralSplit, PartsSumToTheInput)
{
    const auto re = testBins(9, 1025);
    const auto im = testBins(10, 1025);
    std::vector<float> tonalRe = re, tonalIm = im, residualRe(1025), residualIm(1025);
    spectralsplit::splitSpectrum(tonalRe.data(), tonalIm.data(), residualRe.data(), residualIm.data(), 1025, 1e-7f);
    for (int k = 0; k < 1025; ++k) {
        if (!std::isfinite(re[k]) || !std::isfinite(im[k])) continue;
        // Each part is one product with a gain in [0, 1]: the sum is within an ulp
        // or two of the input.
        EXPECT_NEAR(tonalRe[k] + residualRe[k], re[k], 2.5e-7f * std::fabs(re[k])) << k;
        EXPECT_NEAR(tonalIm[k] + residualIm[k], im[k], 2.5e-7f * std::fabs(im[k])) << k;
    }
}

}  // namespace
