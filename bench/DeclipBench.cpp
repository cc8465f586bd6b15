// Throughput of the declippers (the sparse one in long frames and in short ones, the
// autoregressive fill blended into them in lightly clipped channels, and the
// restoration by social sparsity in blocks with 5-70% clipped) on 5 s of
// seeded real music (lmms-common samples), hard clipped to the input SDRs of the usual
// evaluation. Only frames that hold a clipped sample cost anything, so light clipping
// is the fast end.
#include <benchmark/benchmark.h>

#include <vector>

#include "declip/DeclipMaterial.h"
#include "declip/ArDeclipper.h"
#include "declip/Declipper.h"
#include "declip/HardClipper.h"
#include "declip/SocialDeclipper.h"
#include "signal/SpreadOverThreads.h"

namespace {

constexpr double seconds = 5.0;

const declipmaterial::Excerpt& music()
{
    static const auto excerpt = declipmaterial::excerpt(declipmaterial::musicFiles(), 20, seconds);
    return excerpt;
}

// Times `restore(clipped, length, level, restored)` on the excerpt clipped to the
// state's input SDR.
template <typename Restore>
void timeRestoration(benchmark::State& state, Restore&& restore)
{
    const auto& excerpt = music();
    if (excerpt.samples.empty()) {
        state.SkipWithError("lmms-common is not installed");
        return;
    }
    const float level = hardclip::levelForSdr(excerpt.samples, static_cast<double>(state.range(0)));
    const auto clipped = hardclip::clip(excerpt.samples, level);
    const auto length = static_cast<std::int64_t>(clipped.size());
    std::vector<float> restored(clipped.size());
    for (auto _ : state) {
        restore(clipped.data(), length, ClipLevels::symmetric(level), restored.data());
        benchmark::DoNotOptimize(restored.data());
    }
    state.counters["x_realtime"] = benchmark::Counter(static_cast<double>(length) / excerpt.sampleRate,
                                                      benchmark::Counter::kIsIterationInvariantRate);
}

void restoreClipped(benchmark::State& state)
{
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(music().sampleRate));
    timeRestoration(state, [&](const float* clipped, std::int64_t length, ClipLevels levels, float* restored) {
        declipper.restore(clipped, length, 0, levels, 0, length, restored);
    });
}

// The second restoration, in frames half as long, which joins the first.
void restoreClippedInShortFrames(benchmark::State& state)
{
    Declipper declipper(FrameDeclipper::Settings::shorterFor(music().sampleRate));
    timeRestoration(state, [&](const float* clipped, std::int64_t length, ClipLevels levels, float* restored) {
        declipper.restore(clipped, length, 0, levels, 0, length, restored);
    });
}

// The same on every hardware thread (wall-clock time): the frames of a call are
// solved in parallel, with the same bits.
void restoreClippedOnAllThreads(benchmark::State& state)
{
    Declipper declipper(FrameDeclipper::Settings::forSampleRate(music().sampleRate), hardwareThreads());
    timeRestoration(state, [&](const float* clipped, std::int64_t length, ClipLevels levels, float* restored) {
        declipper.restore(clipped, length, 0, levels, 0, length, restored);
    });
    state.counters["threads"] = hardwareThreads();
}

void fillClippedAutoregressively(benchmark::State& state)
{
    ArDeclipper declipper(ArDeclipper::Settings::forSampleRate(music().sampleRate));
    timeRestoration(state, [&](const float* clipped, std::int64_t length, ClipLevels levels, float* restored) {
        declipper.restore(clipped, length, 0, levels, 0, length, restored);
    });
}

// Only blocks with 5-70% of their samples clipped are solved: at light clipping none
// is, at 1 dB few.
void restoreBySocialSparsity(benchmark::State& state)
{
    SocialDeclipper declipper(SocialDeclipper::Settings::forSampleRate(music().sampleRate));
    std::vector<float> share(music().samples.size());
    timeRestoration(state, [&](const float* clipped, std::int64_t length, ClipLevels levels, float* restored) {
        declipper.restore(clipped, length, 0, levels, 0, length, restored, share.data());
    });
}

BENCHMARK(restoreClipped)->ArgName("input_sdr_db")->Arg(1)->Arg(3)->Arg(5)->Arg(7)->Arg(10)->Arg(15)->Arg(20)->Unit(benchmark::kMillisecond);
BENCHMARK(restoreClippedInShortFrames)->ArgName("input_sdr_db")->Arg(1)->Arg(3)->Arg(5)->Arg(7)->Arg(10)->Arg(15)->Arg(20)->Unit(benchmark::kMillisecond);
BENCHMARK(restoreClippedOnAllThreads)->ArgName("input_sdr_db")->Arg(1)->Arg(3)->Arg(5)->Arg(7)->Arg(10)->Arg(15)->Arg(20)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(fillClippedAutoregressively)->ArgName("input_sdr_db")->Arg(1)->Arg(3)->Arg(5)->Arg(7)->Arg(10)->Arg(15)->Arg(20)->Unit(benchmark::kMillisecond);
BENCHMARK(restoreBySocialSparsity)->ArgName("input_sdr_db")->Arg(1)->Arg(3)->Arg(5)->Arg(7)->Arg(10)->Arg(15)->Arg(20)->Unit(benchmark::kMillisecond);

}  // namespace
