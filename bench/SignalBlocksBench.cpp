// Per-block cost of the signal building blocks in the crackle engine's settings:
// two channels, 512-sample blocks, a 2048-point Hann frame processor, a 30-sample
// history delay with 31 of scratch, and a 1024-point double autocorrelation.
#include "signal/CBuffer2D.h"
#include "signal/CDelay.h"
#include "signal/Correlation.h"
#include "signal/DelayClass.h"
#include "signal/FftFrameProcessor.h"

#include <benchmark/benchmark.h>

#include <random>
#include <vector>

namespace {

constexpr int channels = 2;
constexpr int block = 512;

void fillNoise(standardLib::CBuffer2D<float>& buffer)
{
    std::mt19937 generator(1);
    std::uniform_real_distribution<float> value(-1.0f, 1.0f);
    for (int c = 0; c < buffer.rowCount(); ++c)
        for (int i = 0; i < buffer.columnCount(); ++i)
            buffer[c][i] = value(generator);
}

void BM_CDelayInPlace(benchmark::State& state)
{
    standardLib::CDelay<float> line(channels, static_cast<int>(state.range(0)));
    standardLib::CBuffer2D<float> audio(channels, block);
    fillNoise(audio);
    for (auto _ : state) {
        line.processSamples(audio.rows(), audio.rows(), block);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * block * channels);
}
BENCHMARK(BM_CDelayInPlace)->Arg(100)->Arg(1926);

void BM_DelayClassInPlace(benchmark::State& state)
{
    DelayClass line(channels, 30, 31);
    standardLib::CBuffer2D<float> audio(channels, block);
    fillNoise(audio);
    for (auto _ : state) {
        line.process(audio.rows(), 0, audio.rows(), 0, block);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * block * channels);
}
BENCHMARK(BM_DelayClassInPlace);

void BM_FrameProcessorHop(benchmark::State& state)
{
    standardLib::FftFrameProcessor processor(channels, channels, 2048, 1, -1, -1);
    standardLib::CBuffer2D<float> in(channels, block), out(channels, block);
    standardLib::CBuffer2D<float> re(channels, 2048), im(channels, 1025);
    fillNoise(in);
    for (auto _ : state) {
        processor.forward(in.rows(), re.rows(), im.rows());
        processor.inverse(out.rows(), re.rows(), im.rows());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * block * channels);
}
BENCHMARK(BM_FrameProcessorHop);

void BM_Autocorrelate1024(benchmark::State& state)
{
    standardLib::Correlation<double> correlation(1024);
    std::vector<double> x(512), lags(41);
    std::mt19937 generator(2);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (double& sample : x)
        sample = value(generator);
    for (auto _ : state) {
        correlation.autocorrelate(x.data(), 512, lags.data(), 41);
        benchmark::DoNotOptimize(lags.data());
    }
}
BENCHMARK(BM_Autocorrelate1024);

}  // namespace
