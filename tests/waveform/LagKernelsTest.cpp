// Every instruction-set path of the lag kernel against the plain loop, bit for bit.
#include "waveform/LagKernels.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include "waveform/CorrelationScan.h"
#include "waveform/TestSignals.h"

namespace {

using waveform_test::audioLikeSignal;
using waveform_test::firstBitDifference;
using waveform_test::randomSignal;

class LagKernelPath : public ::testing::TestWithParam<ScanPath> {
protected:
    void SetUp() override
    {
        if (!scanPathSupported(GetParam()))
            GTEST_SKIP() << scanPathName(GetParam()) << " is not available on this CPU";
    }

    // Runs the path and the plain loop on the same operands; their bits must agree.
    static void expectSameAsPlain(const std::vector<float>& ref, const std::vector<float>& w,
                                  int numLags)
    {
        const int refLen = static_cast<int>(ref.size());
        std::vector<float> fast(static_cast<std::size_t>(numLags) + 1, -7.0f);
        std::vector<float> plain(fast);
        correlateLags(GetParam(), ref.data(), refLen, w.data(), fast.data(), numLags);
        plainCorrelateLags(ref.data(), refLen, w.data(), plain.data(), numLags);
        EXPECT_EQ(firstBitDifference(fast.data(), plain.data(), fast.size()), -1)
            << "refLen " << refLen << ", numLags " << numLags;
    }
};

// Lag counts around every block boundary of every path (4, 8 and 16 lanes, eight
// vectors per block), so wide blocks, single vectors and single lags all run.
const int lagCounts[] = {0, 1, 3, 4, 5, 15, 16, 17, 31, 33, 64, 127, 128, 129, 257, 300};

TEST_P(LagKernelPath, MatchesPlainLoopOnRandomInput)
{
    for (const int refLen : {1, 2, 7, 100, 1000}) {
        for (const int numLags : lagCounts) {
            const std::uint32_t seed = 1000u + static_cast<std::uint32_t>(refLen * 7 + numLags);
            SCOPED_TRACE("seed " + std::to_string(seed));
            const auto ref = randomSignal(static_cast<std::size_t>(refLen), seed);
            const auto w = randomSignal(static_cast<std::size_t>(numLags + refLen), seed + 1);
            expectSameAsPlain(ref, w, numLags);
        }
    }
}

TEST_P(LagKernelPath, MatchesPlainLoopOnAudioLikeInput)
{
    const std::uint32_t seed = 77;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto audio = audioLikeSignal(12000, seed);
    const std::vector<float> ref(audio.begin() + 3000, audio.begin() + 4000);
    for (const int numLags : {129, 5001, 10999})
        expectSameAsPlain(ref, std::vector<float>(audio.begin(), audio.begin() + numLags + 1000),
                          numLags);
}

// Huge and tiny magnitudes: sums that overflow to infinity, and products and sums
// in the subnormal range, must round the same way on every path.
TEST_P(LagKernelPath, MatchesPlainLoopAcrossTheExponentRange)
{
    for (const float scale : {1e19f, 1e-20f}) {
        const std::uint32_t seed = 4242;
        SCOPED_TRACE("seed " + std::to_string(seed) + ", scale " + std::to_string(scale));
        expectSameAsPlain(randomSignal(300, seed, scale), randomSignal(300 + 200, seed + 1, scale),
                          200);
    }
}

// The whole scan on a path against the scan on the plain loop: the same bits, also
// for lags that run into the zero tail and for both signs of shift.
TEST_P(LagKernelPath, ScansMatchPlainLoopIncludingTheZeroTail)
{
    const std::uint32_t seed = 99;
    SCOPED_TRACE("seed " + std::to_string(seed));
    const auto sig = audioLikeSignal(6000, seed);
    const auto noise = randomSignal(6000, seed + 1);
    const std::vector<float> ref(sig.begin() + 1500, sig.begin() + 2500);
    for (const auto* signal : {&sig, &noise}) {
        for (const int shift : {0, -3, 17}) {
            // sigLen leaves shift readable elements after the signal for positive shifts;
            // numLags == sigLen takes the last thousand lags into the zero tail.
            const int sigLen = 5000;
            std::vector<float> fast(sigLen, 0.0f), plain(sigLen, 0.0f);
            normCorrelate(GetParam(), ref.data(), 1000, signal->data(), sigLen, fast.data(), sigLen,
                          shift);
            normCorrelate(ScanPath::plain, ref.data(), 1000, signal->data(), sigLen, plain.data(),
                          sigLen, shift);
            EXPECT_EQ(firstBitDifference(fast.data(), plain.data(), fast.size()), -1)
                << "normCorrelate, shift " << shift;

            for (const unsigned mode : {0u, 1u, 2u, 3u}) {
                std::vector<float> fastRaw(2 * sigLen, 1.5f), plainRaw(2 * sigLen, 1.5f);
                scaledCorrelate(GetParam(), ref.data(), 1000, signal->data(), sigLen,
                                fastRaw.data(), sigLen, shift, mode);
                scaledCorrelate(ScanPath::plain, ref.data(), 1000, signal->data(), sigLen,
                                plainRaw.data(), sigLen, shift, mode);
                EXPECT_EQ(firstBitDifference(fastRaw.data(), plainRaw.data(), fastRaw.size()), -1)
                    << "scaledCorrelate mode " << mode << ", shift " << shift;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(AllPaths, LagKernelPath, ::testing::ValuesIn(allScanPaths),
                         [](const auto& info) { return std::string(scanPathName(info.param)); });

TEST(LagKernels, FastestPathIsTheWidestSupported)
{
    const ScanPath fastest = fastestScanPath();
    EXPECT_TRUE(scanPathSupported(fastest));
    for (const ScanPath path : allScanPaths) {
        if (scanPathSupported(path)) {
            EXPECT_GE(static_cast<int>(fastest), static_cast<int>(path));
        }
    }
    ::testing::Test::RecordProperty("active_scan_path", scanPathName(fastest));
    std::printf("active scan path: %s\n", scanPathName(fastest));
}

}  // namespace
