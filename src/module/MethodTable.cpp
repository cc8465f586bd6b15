#include "module/MethodTable.h"

#include <cstdint>

namespace {

constexpr MethodDescription linearRow{
    "Linear Interpolation",
    "Interpolate between the first and the last selected sample with a simple straight line",
    0, 0, 10000, 1, 1, {}};
constexpr MethodDescription smallClicksRow{
    "Optimal Small Clicks",
    "Interpolate in a mathematical optimal sense, but only for clicks smaller than 1ms",
    1, 16, 1, 10, 10, {}};
constexpr MethodDescription normalClicksRow{
    "Normal Clicks",
    "Interpolate in an optimal sense, but only for clicks smaller than 3ms",
    2, 17, 3, 50, 50, {}};
constexpr MethodDescription waveformRow{
    "Waveform Replacment",
    "Replace the corrupted samples by the best fit of neighbourhood samples, Looking in both "
    "direction up to 4s",
    3, 32, 250, 4000, 4000, {}};
constexpr MethodDescription waveformNearRow{
    "Waveform Replacment Near",
    "Replace the corrupted samples by the best fit of neighbourhood samples, Looking in both "
    "direction up to 500ms",
    4, 33, 250, 500, 500, {}};
constexpr MethodDescription waveformLeftRow{
    "Waveform Replacment Left",
    "Replace the corrupted samples by the best fit of leftside neighbourhood samples, Looking in "
    "both direction up to 6s",
    5, 34, 250, 6000, 6000, {}};
constexpr MethodDescription waveformRightRow{
    "Waveform Replacment Right",
    "Replace the corrupted samples by the best fit of rightside neighbourhood samples, Looking in "
    "both direction up to 6s",
    6, 35, 250, 6000, 6000, {}};

constexpr const MethodDescription* rows[methodCount] = {
    &linearRow,       &smallClicksRow,  &normalClicksRow, &waveformRow,
    &waveformNearRow, &waveformLeftRow, &waveformRightRow};

}  // namespace

const MethodDescription& methodRow(int index) { return *rows[index]; }

namespace {

// 32-bit two's-complement arithmetic: absurd rates wrap as the host's integers do,
// instead of overflowing.
int wrap(std::int64_t value) { return static_cast<int>(static_cast<std::uint32_t>(value)); }

}  // namespace

MethodCounts deriveCounts(const MethodDescription& row, int sampleRate, int length)
{
    MethodCounts counts{};
    counts.samplesPerMs = static_cast<int>(static_cast<double>(sampleRate) * 0.001);
    // The context is formed with the negative factor; truncation toward zero makes
    // it equal to the positive form, never one sample more.
    const int negativeFactor = static_cast<int>(static_cast<double>(sampleRate) * -0.001);
    const int reach = row.contextBeforeMs + row.contextAfterMs;
    counts.contextLength = wrap(length - std::int64_t{negativeFactor} * reach);
    counts.maxGapSamples = wrap(std::int64_t{row.maxGapMs} * counts.samplesPerMs);
    return counts;
}
