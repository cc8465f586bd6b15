// Speed of the dropout filler on one core: stereo 44.1 kHz, a gap of 5, 50 or 250 ms
// in tonal material with noise, filler built once per gap size (construction is not
// timed); BM_InpaintNearTheEnd the same 100 samples before the recording's end.
// BM_InpaintReference fills the same 50 ms gap with the plain gap-wise
// reference (Burg estimate, banded Cholesky), for the ratio of the two in one run.
// BM_RepeatSearch finds the repeat of a 50 ms gap's 90 ms borders 6 s on each side
// (coarse box sums, then the full rate); BM_RepeatSearchAtFullRate does the same with
// the full-rate transform search of long gaps, for the ratio of the two.
// BM_BurgKernel and BM_LevinsonKernels run the model's two inner loops on each
// instruction-set path (label), at the long model's size: order 1024 over 90 ms on
// each side of both channels, and Levinson's steps up to order 1024.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <vector>

#include "inpaint/BurgKernels.h"
#include "inpaint/GapFiller.h"
#include "inpaint/PatternSearch.h"
#include "inpaint/ReferenceInpainters.h"
#include "inpaint/RepeatSearch.h"
#include "inpaint/ToeplitzKernels.h"
#include "KernelPathBench.h"
#include "support/BitExact.h"

namespace {

constexpr int rate = 44100;

std::vector<std::vector<float>> stereoMaterial(int count)
{
    std::mt19937 generator(19);
    std::normal_distribution<double> noise(0.0, 0.01);
    const double pi = 3.14159265358979323846;
    std::vector<std::vector<float>> channels(2, std::vector<float>(count));
    for (int n = 0; n < count; ++n) {
        const double t = n / double(rate);
        const double tone = 0.4 * std::sin(2 * pi * 220.0 * t) + 0.2 * std::sin(2 * pi * 661.0 * t + 1.0) +
                            0.1 * std::sin(2 * pi * 1503.0 * t + 2.0);
        channels[0][n] = static_cast<float>(tone + noise(generator));
        channels[1][n] = static_cast<float>(0.8 * tone + noise(generator));
    }
    return channels;
}

void BM_Inpaint(benchmark::State& state)
{
    const int gap = static_cast<int>(state.range(0) * rate / 1000);
    // A trust no match reaches: long gaps pay for the search and the models, their worst case.
    InpaintSettings settings;
    settings.patternTrust = settings.patternLongTrust = 2.0;
    GapFiller filler(rate, gap, 2, settings);
    const int context = filler.contextLength(gap);
    auto original = stereoMaterial(2 * context + gap);
    auto channels = original;
    float* pointers[2] = {channels[0].data(), channels[1].data()};
    for (auto _ : state) {
        filler.fill(pointers, 2, context, gap);
        benchmark::DoNotOptimize(channels[0][context]);
    }
}
BENCHMARK(BM_Inpaint)->Arg(5)->Arg(50)->Arg(250)->Unit(benchmark::kMillisecond);

// A gap ending 100 samples before the recording's end: the fill that minimises only the
// prediction errors within the recording (conjugate gradients on top of the usual solve).
void BM_InpaintNearTheEnd(benchmark::State& state)
{
    const int gap = static_cast<int>(state.range(0) * rate / 1000);
    GapFiller filler(rate, gap, 2);
    const int context = filler.contextLength(gap);
    auto channels = stereoMaterial(2 * context + gap);
    float* pointers[2] = {channels[0].data(), channels[1].data()};
    for (auto _ : state) {
        filler.fill(pointers, 2, context, gap, context, 100);
        benchmark::DoNotOptimize(channels[0][context]);
    }
}
BENCHMARK(BM_InpaintNearTheEnd)->Arg(5)->Arg(20)->Arg(40)->Unit(benchmark::kMillisecond);

void BM_InpaintReference(benchmark::State& state)
{
    const int gap = static_cast<int>(state.range(0) * rate / 1000);
    const int context = inpaint_reference::gapwiseContext(rate);
    const auto original = stereoMaterial(2 * context + gap);
    for (auto _ : state) {
        for (const auto& channel : original) {
            inpaint_reference::Segment s{std::vector<double>(channel.begin(), channel.end()), context, gap};
            inpaint_reference::gapwiseBurgJanssen(s, rate);
            benchmark::DoNotOptimize(s.samples[context]);
        }
    }
}
BENCHMARK(BM_InpaintReference)->Arg(50)->Unit(benchmark::kMillisecond)->Iterations(1);

// 6 s on each side of a 50 ms gap, as doubles; the gap's 90 ms borders.
struct RepeatSetup {
    static constexpr int gap = rate / 20, reach = 6 * rate, border = 90 * rate / 1000;
    RepeatSetup()
    {
        audio = stereoMaterial(2 * reach + gap);
        for (int c = 0; c < 2; ++c) {
            samples[c].assign(audio[c].begin(), audio[c].end());
            std::fill_n(samples[c].begin() + reach, gap, 0.0);
            rows[c] = samples[c].data();
            audioRows[c] = audio[c].data();
        }
    }
    int count() const { return static_cast<int>(samples[0].size()); }
    std::vector<std::vector<float>> audio;  // as recorded, which the repeat search reads
    std::vector<double> samples[2];         // with the gap silent, for the full-rate search
    const double* rows[2];
    const float* audioRows[2];
};

void BM_RepeatSearch(benchmark::State& state)
{
    RepeatSetup s;
    RepeatSearch search(s.count(), rate / 5000);
    for (auto _ : state)
        benchmark::DoNotOptimize(search.find(s.audioRows, 2, 0, s.count(), s.reach, s.gap, s.border));
}
BENCHMARK(BM_RepeatSearch)->Unit(benchmark::kMillisecond);

void BM_RepeatSearchAtFullRate(benchmark::State& state)
{
    RepeatSetup s;
    PatternSearch search(s.count(), 2);
    std::vector<double> out[2] = {std::vector<double>(s.gap), std::vector<double>(s.gap)};
    double* outRows[2] = {out[0].data(), out[1].data()};
    for (auto _ : state) {
        search.begin(s.rows, 2, s.count());
        benchmark::DoNotOptimize(search.fill(s.reach, s.gap, s.border, outRows));
    }
}
BENCHMARK(BM_RepeatSearchAtFullRate)->Unit(benchmark::kMillisecond);

constexpr int longOrder = 1024;

void BM_BurgKernel(benchmark::State& state)
{
    const kernel_paths::Path path = benchPath(state);
    constexpr int stretch = 3969, stretches = 4;  // 90 ms at 44.1 kHz, each side of two channels
    const auto errors = testsupport::gaussianNoise(stretch * stretches, 5);
    auto f = errors, b = errors;
    for (auto _ : state) {
        double cross[8] = {}, energy[8] = {};
        for (int m = 1; m < longOrder; ++m)
            for (int s = 0; s < stretches; ++s)
                inpaint_kernels::updateStretch(path, f.data() + s * stretch, b.data() + s * stretch, m, stretch, 0.001,
                                               cross, energy);
        benchmark::DoNotOptimize(cross);
        benchmark::DoNotOptimize(energy);
    }
}
BENCHMARK(BM_BurgKernel)->DenseRange(0, 3)->Unit(benchmark::kMillisecond);

void BM_LevinsonKernels(benchmark::State& state)
{
    const kernel_paths::Path path = benchPath(state);
    const auto r = testsupport::gaussianNoise(longOrder + 1, 6);
    auto x = testsupport::gaussianNoise(longOrder, 8), v = testsupport::gaussianNoise(longOrder, 9);
    double* solutions[1] = {x.data()};
    const double steps[1] = {1e-4};
    for (auto _ : state) {
        double dot = 0.0;
        for (int k = 1; k <= longOrder; ++k) {
            dot += inpaint_kernels::bandedDot(path, r.data(), v.data(), k, k - 1);
            inpaint_kernels::levinsonStep(path, v.data(), k, true, 1e-4, solutions, steps, 1);
        }
        benchmark::DoNotOptimize(dot);
    }
}
BENCHMARK(BM_LevinsonKernels)->DenseRange(0, 3)->Unit(benchmark::kMicrosecond);

}  // namespace
