#include "signal/FftFrameProcessor.h"

#include "support/AllocationCounter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>
#include <vector>

namespace {

using standardLib::CBuffer2D;
using standardLib::FftFrameProcessor;
using Signal = std::vector<std::vector<float>>;  // channel, sample
using SpectrumEdit = std::function<void(float* re, float* im, int bins)>;

Signal randomSignal(int channels, int length, unsigned seed)
{
    std::mt19937 generator(seed);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    Signal signal(channels, std::vector<float>(length));
    for (auto& channel : signal)
        for (auto& sample : channel)
            sample = value(generator);
    return signal;
}

// Drives a processor one hop at a time over `input` (a whole number of hops) and
// returns its output stream; `edit` may change each spectrum between the calls.
Signal run(FftFrameProcessor& processor, const Signal& input, const SpectrumEdit& edit = {})
{
    const int hop = processor.hop(), frame = processor.frameSize();
    const int inChannels = processor.inputChannels(), outChannels = processor.outputChannels();
    const int channels = std::max(inChannels, outChannels);
    CBuffer2D<float> in(inChannels, hop), out(outChannels, hop);
    CBuffer2D<float> re(channels, frame), im(channels, frame / 2 + 1);
    const int calls = static_cast<int>(input[0].size()) / hop;
    Signal output(outChannels, std::vector<float>(static_cast<size_t>(calls) * hop));
    for (int call = 0; call < calls; ++call) {
        for (int c = 0; c < inChannels; ++c)
            std::copy_n(input[c].data() + call * hop, hop, in[c]);
        processor.forward(in.rows(), re.rows(), im.rows());
        if (edit)
            for (int c = 0; c < outChannels; ++c)
                edit(re[c], im[c], frame / 2 + 1);
        processor.inverse(out.rows(), re.rows(), im.rows());
        for (int c = 0; c < outChannels; ++c)
            std::copy_n(out[c], hop, output[c].data() + call * hop);
    }
    return output;
}

// Largest |output[t] - input[t - delay]|, input taken as zero before time 0.
float delayError(const Signal& input, const Signal& output, int delay)
{
    float worst = 0.0f;
    for (size_t c = 0; c < output.size(); ++c)
        for (size_t t = 0; t < output[c].size(); ++t) {
            const float expected = t < size_t(delay) ? 0.0f : input[c][t - delay];
            worst = std::max(worst, std::fabs(output[c][t] - expected));
        }
    return worst;
}

// Round-trip accuracy. A sample of the output is frameSize times a sum of frame
// samples, each the output of a float forward and inverse transform pair, whose
// error at the worst sample stays below 2.5 u log2(N) relative to the signal (the
// transform's own bound); the window halves sum to the frame scale within a few u.
// With |x| <= 1, u = 2^-24 and N = 2048: 2.5 u * 11 = 1.64e-6. Measured with these
// seeds: 0.64 to 0.82 u log2(N).
constexpr float identityTolerance = 2.5f * 0x1p-24f * 11;

class FrameProcessorWindow : public ::testing::TestWithParam<int> {};

TEST_P(FrameProcessorWindow, UnchangedSpectraGiveTheInputTwoCallsLater)
{
    const int window = GetParam();
    const unsigned seed = 100 + window;
    SCOPED_TRACE(::testing::Message() << "window " << window << " seed " << seed);
    FftFrameProcessor processor(2, 2, 2048, window, -1, -1);
    ASSERT_EQ(processor.hop(), 512);
    ASSERT_EQ(processor.latency(), 1024);
    const Signal input = randomSignal(2, 512 * 40, seed);
    const Signal output = run(processor, input);
    EXPECT_LE(delayError(input, output, 1024), identityTolerance);
    // The first two calls are silence (to the transform's rounding).
    for (const auto& channel : output)
        for (int t = 0; t < 1024; ++t)
            ASSERT_LE(std::fabs(channel[t]), identityTolerance) << "sample " << t;
}

INSTANTIATE_TEST_SUITE_P(Windows0To2, FrameProcessorWindow, ::testing::Values(0, 1, 2));

TEST(FftFrameProcessor, WindowHalvesOneHopApartSumToTheFrameScale)
{
    for (int window : {0, 1, 2}) {
        FftFrameProcessor processor(1, 1, 2048, window);
        const auto& w = processor.window();
        for (int i = 0; i < processor.hop(); ++i)
            ASSERT_NEAR((double(w[i]) + w[i + 512]) * 2048.0, 1.0, 2e-7)  // two roundings of 2^-24
                << "window " << window << " i " << i;
    }
}

TEST(FftFrameProcessor, WindowValuesFollowTheirFormulas)
{
    FftFrameProcessor hann(1, 1, 2048, 1), rect(1, 1, 2048, 0), hamming(1, 1, 2048, 2);
    EXPECT_EQ(hann.window()[0], 0.0f);
    EXPECT_EQ(hann.window()[512], 1.0f / 2048.0f);  // periodic: the peak at coreLength / 2
    EXPECT_EQ(rect.window()[77], 0.5f / 2048.0f);
    EXPECT_EQ(hamming.window()[0], static_cast<float>(0.08 / 2048.0 / 1.08));
    const double x = 6.283185307179586 * 300 / 1024;
    EXPECT_EQ(hann.window()[300], static_cast<float>((0.5 - 0.5 * std::cos(x)) / 2048));
}

TEST(FftFrameProcessor, BlackmanGainRipplesWithThePositionInTheHop)
{
    FftFrameProcessor processor(1, 1, 1024, 3);
    const int hop = processor.hop();
    const Signal input(1, std::vector<float>(hop * 12, 1.0f));
    const Signal output = run(processor, input);
    const auto& w = processor.window();
    float low = 2.0f, high = 0.0f;
    for (int i = 0; i < hop; ++i) {
        const float gain = output[0][hop * 10 + i];
        // The gain is frameSize times the sum of the two window halves.
        EXPECT_NEAR(gain, (double(w[i]) + w[hop + i]) * 1024.0, identityTolerance) << "i " << i;
        low = std::min(low, gain);
        high = std::max(high, gain);
    }
    EXPECT_NEAR(low, 0.68f, 1e-5f);
    EXPECT_NEAR(high, 1.0f, 1e-5f);
}

TEST(FftFrameProcessor, SpectraAreScaledByTheFrameSize)
{
    // DC of 1 under the Hann core: R0 = sum of the window = coreLength / 2 / frameSize.
    for (int frame : {256, 2048}) {
        FftFrameProcessor processor(1, 1, frame, 1);
        const int hop = processor.hop();
        CBuffer2D<float> in(1, hop), re(1, frame), im(1, frame / 2 + 1), out(1, hop);
        in.fill(1.0f);
        processor.forward(in.rows(), re.rows(), im.rows());
        processor.inverse(out.rows(), re.rows(), im.rows());
        processor.forward(in.rows(), re.rows(), im.rows());
        EXPECT_NEAR(re[0][0], 0.25f, 1e-6f) << "frame " << frame;
        EXPECT_EQ(im[0][0], 0.0f);
        EXPECT_EQ(im[0][frame / 2], 0.0f);
    }
}

TEST(FftFrameProcessor, DefaultMarginsEqualQuarterFrameMargins)
{
    FftFrameProcessor byDefault(2, 2, 1024, 1, -1, -1), explicitly(2, 2, 1024, 1, 256, 256);
    EXPECT_EQ(byDefault.frontMargin(), explicitly.frontMargin());
    EXPECT_EQ(byDefault.backMargin(), explicitly.backMargin());
    EXPECT_EQ(byDefault.coreLength(), 512);
    EXPECT_EQ(byDefault.hop(), 256);
    EXPECT_EQ(byDefault.latency(), 512);
    EXPECT_EQ(explicitly.coreLength(), 512);
    EXPECT_EQ(byDefault.window(), explicitly.window());
    const Signal input = randomSignal(2, 256 * 10, 7);
    EXPECT_EQ(run(byDefault, input), run(explicitly, input));
}

TEST(FftFrameProcessor, SelectorFourLeavesTheWindowUnfilled)
{
    FftFrameProcessor processor(1, 1, 256, 4);
    for (float value : processor.window())
        ASSERT_EQ(value, 0.0f);  // the storage's own zero
    const Signal output = run(processor, randomSignal(1, 64 * 6, 8));
    for (float sample : output[0])
        ASSERT_EQ(sample, 0.0f);
}

TEST(FftFrameProcessor, OddInputChannelCountRoundsUpForSpectrumRowsOnly)
{
    FftFrameProcessor processor(1, 3, 256, 1);
    EXPECT_EQ(processor.evenInputChannels(), 2);
    EXPECT_EQ(processor.evenOutputChannels(), 4);
    EXPECT_EQ(processor.evenChannels(), 4);
    EXPECT_EQ(processor.spectrumRows(0).rowCount(), 4);
    EXPECT_EQ(processor.spectrumRows(1).rowCount(), 4);
    EXPECT_EQ(processor.spectrumRows(0).columnCount(), 256);

    // forward reads and writes one row of each table: tables of exactly one row
    // (the sanitizer build sees any access beyond them).
    std::vector<float> in(64, 0.5f), re(256, 9.0f), im(129, 9.0f);
    std::vector<float*> inRows = {in.data()}, reRows = {re.data()}, imRows = {im.data()};
    EXPECT_EQ(processor.forward(inRows.data(), reRows.data(), imRows.data()), 0);
    EXPECT_NE(re[0], 9.0f);
}

TEST(FftFrameProcessor, OddCoreTruncatesTheHopAndLeavesTheLastFrameElement)
{
    // frameSize 256, margins 64 and 63: coreLength 129, hop 64.
    FftFrameProcessor processor(1, 1, 256, 1, 64, 63);
    EXPECT_EQ(processor.coreLength(), 129);
    EXPECT_EQ(processor.hop(), 64);
    EXPECT_EQ(processor.latency(), 128);
    EXPECT_EQ(processor.window().size(), 129u);

    const Signal input = randomSignal(1, 64, 9);
    std::vector<float> in = input[0], re(256, 0.0f), im(129, 0.0f);
    re[255] = 1234.0f;  // the one element of the frame that nothing writes
    float* inRows[] = {in.data()};
    float* reRows[] = {re.data()};
    float* imRows[] = {im.data()};
    processor.forward(inRows, reRows, imRows);
    // Above bin 128, re keeps the frame as assembled: the second half of the core
    // uses window elements 64..127 only, then 63 zeros, then the caller's element.
    const auto& w = processor.window();
    for (int i = 1; i < 64; ++i)
        EXPECT_EQ(re[128 + i], in[i] * w[64 + i]) << "core sample " << i;
    for (int i = 192; i < 255; ++i)
        EXPECT_EQ(re[i], 0.0f) << "margin sample " << i;
    EXPECT_EQ(re[255], 1234.0f);
}

TEST(FftFrameProcessor, InverseLeavesTheTimeDomainFrameInRe)
{
    FftFrameProcessor processor(1, 1, 256, 1);
    const Signal input = randomSignal(1, 128, 3);
    std::vector<float> re(256, 0.0f), im(129, 0.0f);
    float* reRows[] = {re.data()};
    float* imRows[] = {im.data()};
    const auto& w = processor.window();
    for (int call = 0; call < 2; ++call) {
        std::vector<float> in(input[0].begin() + call * 64, input[0].begin() + (call + 1) * 64);
        float* inRows[] = {in.data()};
        processor.forward(inRows, reRows, imRows);
        std::vector<float> out(64);
        float* outRows[] = {out.data()};
        processor.inverse(outRows, reRows, imRows);
        // Unchanged spectra: the frame as assembled, to float rounding.
        for (int i = 0; i < 256; ++i) {
            float expected = 0.0f;
            if (i >= 64 && i < 128 && call == 1) expected = input[0][i - 64] * w[i - 64];
            if (i >= 128 && i < 192) expected = in[i - 128] * w[i - 64];
            EXPECT_NEAR(re[i], expected, 1e-8f) << "call " << call << ", sample " << i;
        }
    }
}

TEST(FftFrameProcessor, OddCoreCarriesTheLastFrameSampleIntoTheNextFrame)
{
    // coreLength 129: forward never writes the frame's last element, so the next
    // frame holds what the last inverse left there.
    FftFrameProcessor processor(1, 1, 256, 1, 64, 63);
    std::vector<float> in(64, 0.0f), out(64), re(256, 0.0f), im(129, 0.0f);
    re[255] = 1234.0f;
    float* inRows[] = {in.data()};
    float* outRows[] = {out.data()};
    float* reRows[] = {re.data()};
    float* imRows[] = {im.data()};
    processor.forward(inRows, reRows, imRows);
    for (int bin = 0; bin < 129; ++bin) {
        re[bin] *= 0.5f;
        im[bin] *= 0.5f;
    }
    processor.inverse(outRows, reRows, imRows);
    EXPECT_NEAR(re[255], 617.0f, 1e-3f);
    processor.forward(inRows, reRows, imRows);
    EXPECT_NEAR(re[255], 617.0f, 1e-3f);
}

TEST(FftFrameProcessor, GreaterMarginsKeepTheLatencyFormula)
{
    // 80 + 80 of 256: coreLength 96, hop 48; frames are read up to 4 hop = 192 only.
    FftFrameProcessor processor(1, 1, 256, 1, 80, 80);
    EXPECT_EQ(processor.hop(), 48);
    EXPECT_EQ(processor.latency(), 128);
    const unsigned seed = 10;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    const Signal input = randomSignal(1, 48 * 40, seed);
    EXPECT_LE(delayError(input, run(processor, input), 128), identityTolerance);
}

TEST(FftFrameProcessor, MarginsBelowHalfTheFrameOverrunTheLastReadPointer)
{
    // The condition itself (inverse is not called on the short-margin objects):
    // 4 hop exceeds the frame when the margins add up to frameSize / 2 - 2 or less.
    // A sum of frameSize / 2 - 1 gives an odd core whose truncated hop still fits.
    for (int margins = 0; margins <= 256; ++margins) {
        FftFrameProcessor processor(1, 1, 256, 1, margins / 2, margins - margins / 2);
        EXPECT_EQ(4 * processor.hop() > 256, margins <= 126) << "margins " << margins;
    }
    FftFrameProcessor oddCore(1, 1, 256, 1, 63, 64);
    EXPECT_EQ(4 * oddCore.hop(), 256);
}

TEST(FftFrameProcessor, ChangedSpectraSpillIntoTheMarginsAndStillAddUp)
{
    // A linear phase shifts every frame by `shift` samples inside its margins; the
    // outer overlap terms carry what moved, so the output is the input delayed by
    // latency + shift.
    for (int shift : {100, -100, 255}) {
        const unsigned seed = 20 + (shift & 0xff);
        SCOPED_TRACE(::testing::Message() << "shift " << shift << " seed " << seed);
        FftFrameProcessor processor(1, 1, 1024, 1);
        const SpectrumEdit delayBy = [shift](float* re, float* im, int bins) {
            for (int k = 0; k < bins; ++k) {
                const double angle = -6.283185307179586 * k * shift / 1024.0;
                const double c = std::cos(angle), s = std::sin(angle);
                const double r = re[k], i = im[k];
                re[k] = static_cast<float>(r * c - i * s);
                im[k] = static_cast<float>(r * s + i * c);
            }
        };
        const Signal input = randomSignal(1, 256 * 30, seed);
        const Signal output = run(processor, input, delayBy);
        EXPECT_LE(delayError(input, output, 512 + shift), 2 * identityTolerance);
    }
}

TEST(FftFrameProcessor, ResetMidStreamSilencesTheNextTwoCalls)
{
    const unsigned seed = 31;
    SCOPED_TRACE(::testing::Message() << "seed " << seed);
    FftFrameProcessor used(2, 2, 512, 1), fresh(2, 2, 512, 1);
    run(used, randomSignal(2, 128 * 7, seed));
    used.reset();
    const Signal input = randomSignal(2, 128 * 10, seed + 1);
    const Signal afterReset = run(used, input);
    // Nothing of the old stream remains: bit for bit what a new processor gives.
    EXPECT_EQ(afterReset, run(fresh, input));
    EXPECT_LE(delayError(input, afterReset, 256), identityTolerance);
}

TEST(FftFrameProcessor, ProcessingAllocatesNothing)
{
    FftFrameProcessor processor(2, 2, 2048, 1);
    CBuffer2D<float> in(2, 512), re(2, 2048), im(2, 1025), out(2, 512);
    testsupport::AllocationScope scope;
    for (int call = 0; call < 3; ++call) {
        processor.forward(in.rows(), re.rows(), im.rows());
        processor.inverse(out.rows(), re.rows(), im.rows());
    }
    processor.reset();
    EXPECT_EQ(scope.count(), 0);
}

}  // namespace
