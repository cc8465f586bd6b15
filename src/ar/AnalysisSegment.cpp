#include "ar/AnalysisSegment.h"

#include "signal/PortableCosine.h"

#include <array>
#include <limits>
#include <memory>

namespace {

constexpr double twoPi = 6.283185307179586;
constexpr float twoToMinus32 = 0x1p-32f;

// The windows take their cosines from standardLib::cosine rather than the C library:
// C libraries round cos and cosf differently in the last bit on some of these
// arguments (and one library's cos even depends on whether the CPU has FMA), so a
// repair would change bits from one platform to the next. The portable cosine uses
// plain IEEE arithmetic only and gives the same bits everywhere.

void buildHann(int n, float* window, HannPrecision precision)
{
    for (int i = 0; i < n; ++i) {
        const double angle = static_cast<double>(i) * twoPi / static_cast<double>(n);
        if (precision == HannPrecision::float32) {
            const float c = standardLib::cosine(static_cast<float>(angle));
            window[i] = (0.5f - 0.5f * c) / static_cast<float>(n);
        } else {
            window[i] = static_cast<float>((0.5 - 0.5 * standardLib::cosine(angle)) / static_cast<double>(n));
        }
    }
}

// Rise over 0.9 n samples (half a cosine period of 1.8 n) then a fall over 0.1 n.
float riseValue(int i, int n)
{
    return static_cast<float>(0.5 - 0.5 * standardLib::cosine(twoPi * i / (1.8 * n)));
}

float fallValue(int j, int n)
{
    return static_cast<float>(0.5 - 0.5 * standardLib::cosine(twoPi * (0.1 * n - j) / (0.2 * n)));
}

// Mode 3 takes the rise's end and the fall's loop test in double.
void buildRiseFall(int n, float* window)
{
    const int knee = static_cast<int>(n * 0.9);
    for (int i = 0; i < knee; ++i) window[i] = riseValue(i, n);
    for (int j = 0; j < 0.1 * n; ++j) window[knee + j] = fallValue(j, n);
}

// Mode 4 forms the rise's end and the fall's loop test in float, while the fall
// starts at the double knee; over n <= 1024 both knees agree and n points are set.
void buildFallRise(int n, float* window)
{
    std::array<float, maxAnalysisLength> shape{};
    const int riseEnd = static_cast<int>(static_cast<float>(n) * 0.9f);
    const int knee = static_cast<int>(n * 0.9);
    for (int i = 0; i < riseEnd; ++i) shape[i] = riseValue(i, n);
    for (int j = 0; static_cast<float>(j) < static_cast<float>(n) * 0.1f; ++j)
        shape[knee + j] = fallValue(j, n);
    for (int i = 0; i < n; ++i) window[i] = shape[n - 1 - i];
}

}  // namespace

void buildAnalysisWindow(int mode, int n, float* window, HannPrecision precision)
{
    if (mode == 3) buildRiseFall(n, window);
    else if (mode == 4) buildFallRise(n, window);
    else buildHann(n, window, precision);
}

int windowedSegmentOffset(int mode, int n, int gapLength)
{
    if (mode == 3) return gapLength;
    if (mode == 4) return n;
    return n - n / 2;
}

void windowSpan(int mode, int n, int gapLength, float* span, HannPrecision precision)
{
    // The window of the thread's last call: repairs come with the same mode and length
    // again and again, and the exactly rounded cosines are the costly part of a window.
    struct Window {
        int mode = 0;
        int n = -1;
        HannPrecision precision = HannPrecision::float32;
        std::array<float, maxAnalysisLength> values{};
    };
    // On the heap: a module's thread-local block must stay a few bytes to fit the
    // static TLS reserve that initial-exec variables take (see ClassicRand.h).
    thread_local std::unique_ptr<Window> lastWindow;
    if (!lastWindow) lastWindow = std::make_unique<Window>();
    Window& last = *lastWindow;
    if (last.mode != mode || last.n != n || last.precision != precision) {
        last.values.fill(0.0f);
        buildAnalysisWindow(mode, n, last.values.data(), precision);
        last.mode = mode;
        last.n = n;
        last.precision = precision;
    }
    const std::array<float, maxAnalysisLength>& window = last.values;
    const float* segment = span + windowedSegmentOffset(mode, n, gapLength);
    std::array<float, maxAnalysisLength> windowed{};
    for (int i = 0; i < n; ++i) windowed[i] = window[i] * segment[i];
    for (int i = 0; i < n; ++i) span[i] = windowed[i];
}

void applyIntegerNoise(float* span, int count, std::uint32_t seed, std::uint32_t multiplier,
                       float sign)
{
    std::uint32_t s = seed;
    for (int i = 0; i < count; ++i) {
        s *= multiplier;
        if (s == 0) s = static_cast<std::uint32_t>(i);
        const float noise = static_cast<float>(s) * twoToMinus32;
        span[i] = sign > 0.0f ? span[i] + noise : span[i] - noise;
    }
}

std::int32_t truncateToInt32(double value)
{
    constexpr double limit = 2147483648.0;
    if (!(value > -limit - 1.0 && value < limit)) return std::numeric_limits<std::int32_t>::min();
    return static_cast<std::int32_t>(value);
}

std::int64_t truncateToInt64(double value)
{
    constexpr double limit = 9223372036854775808.0;
    if (!(value >= -limit && value < limit)) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(value);
}

namespace {

// seedValue as a float, times the factor in double, truncated; low 32 bits kept.
std::uint32_t scaledSeed(int seedValue, double factor)
{
    const double product = static_cast<double>(static_cast<float>(seedValue)) * factor;
    return static_cast<std::uint32_t>(truncateToInt64(product));
}

}  // namespace

std::uint32_t noiseSeed(int seedValue) { return scaledSeed(seedValue, 1000.0); }

std::uint32_t noiseMultiplier(int seedValue) { return scaledSeed(seedValue, 10000.0); }
