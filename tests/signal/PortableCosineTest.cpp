#include "signal/PortableCosine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <type_traits>

// The references are the C library's long double cosine (64-bit significand, so
// eleven bits beyond double): its own error is far below the half-ulp steps measured
// here.

namespace {

constexpr double pi = 3.141592653589793;
constexpr double twoPi = 6.283185307179586;  // the analysis windows' constant

// Error of v against the reference, in ulps of double at the reference.
double ulpError(double v, long double reference)
{
    int exponent = 0;
    std::frexp(static_cast<double>(reference), &exponent);
    const long double ulp = std::ldexp(1.0L, exponent - 53);
    return static_cast<double>(std::fabs(static_cast<long double>(v) - reference) / ulp);
}

struct Xorshift {
    std::uint64_t state = 0x9e3779b97f4a7c15ull;
    std::uint64_t next()
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    // Uniform in [0, 1), 53 bits.
    double unit() { return static_cast<double>(next() >> 11) * 0x1p-53; }
};

struct ErrorTally {
    double worst = 0.0;
    double at = 0.0;
    void add(double x)
    {
        const double error = ulpError(standardLib::cosine(x), cosl(static_cast<long double>(x)));
        if (error > worst) {
            worst = error;
            at = x;
        }
    }
};

std::uint64_t bitsOf(double v) { return std::bit_cast<std::uint64_t>(v); }
std::uint32_t bitsOf(float v) { return std::bit_cast<std::uint32_t>(v); }

// FNV-1a over the bytes of a value.
template <typename T>
std::uint64_t fnv(std::uint64_t state, T value)
{
    const auto bits = std::bit_cast<std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>>(value);
    for (unsigned i = 0; i < sizeof(T); ++i) state = (state ^ ((bits >> (8 * i)) & 0xffu)) * 0x100000001b3ull;
    return state;
}
constexpr std::uint64_t fnvStart = 0xcbf29ce484222325ull;

// The argument of the 32-bit window cosine: formed in double, narrowed to float.
float windowArgument(int i, int n)
{
    return static_cast<float>(static_cast<double>(i) * twoPi / static_cast<double>(n));
}

TEST(PortableCosine, ExactAtZero)
{
    EXPECT_EQ(bitsOf(standardLib::cosine(0.0)), bitsOf(1.0));
    EXPECT_EQ(bitsOf(standardLib::cosine(-0.0)), bitsOf(1.0));
    EXPECT_EQ(bitsOf(standardLib::cosine(0.0f)), bitsOf(1.0f));
    EXPECT_EQ(bitsOf(standardLib::cosine(-0.0f)), bitsOf(1.0f));
    EXPECT_EQ(standardLib::cosine(std::numeric_limits<double>::denorm_min()), 1.0);
    EXPECT_EQ(standardLib::cosine(0x1p-27), 1.0);  // 1 - 2^-55 rounds to 1
}

TEST(PortableCosine, WithinOneUlpOverADenseSweepOfEightTurnsEachWay)
{
    constexpr int steps = 1 << 20;
    ErrorTally tally;
    for (int i = -steps; i <= steps; ++i) tally.add(i * (8.0 * pi / steps));
    std::printf("cosine on [-8 pi, 8 pi]: largest error %.4f ulp at %a\n", tally.worst, tally.at);
    EXPECT_LE(tally.worst, 1.0) << "at " << tally.at;
}

TEST(PortableCosine, WithinOneUlpOnRandomArgumentsOfTheCodyWaiteRange)
{
    Xorshift random;
    for (double limit : {1.0, 10.0, 1e3, 1e5, 0x1p19}) {
        ErrorTally tally;
        for (int i = 0; i < 200000; ++i) tally.add(limit * random.unit());
        std::printf("cosine on [0, %g): largest error %.4f ulp at %a\n", limit, tally.worst, tally.at);
        EXPECT_LE(tally.worst, 1.0) << "at " << tally.at;
    }
}

TEST(PortableCosine, WithinOneUlpBeyondTheCodyWaiteRange)
{
    // Random bit patterns of positive doubles from 2^19 up: every exponent of the
    // large-argument reduction.
    Xorshift random;
    ErrorTally tally;
    int count = 0;
    while (count < 200000) {
        const double x = std::bit_cast<double>(random.next() & 0x7fffffffffffffffull);
        if (!(x >= 0x1p19) || !std::isfinite(x)) continue;
        tally.add(x);
        ++count;
    }
    std::printf("cosine on [2^19, max]: largest error %.4f ulp at %a\n", tally.worst, tally.at);
    EXPECT_LE(tally.worst, 1.0) << "at " << tally.at;
    for (double x : {0x1p19, 0x1.fffffffffffffp18, 0x1.0000000000001p19, 1e22,
                     std::numeric_limits<double>::max()}) {
        EXPECT_LE(ulpError(standardLib::cosine(x), cosl(static_cast<long double>(x))), 1.0) << x;
    }
}

// Arguments very close to a multiple of pi/2, where the reduction cancels the most
// bits: the result is tiny and must still be accurate to its last bit.
TEST(PortableCosine, KeepsFullPrecisionNextToMultiplesOfHalfPi)
{
    // The double nearest 29 pi/2, 6.19e-19 from it: the closest approach below 2^19.
    const double nearCodyWaite = 0x1.6c6cbc45dc8dep+5;
    // 6381956970095103 * 2^797, 4.69e-19 from a multiple of pi/2: the closest
    // approach of all finite doubles.
    const double nearPayneHanek = std::ldexp(6381956970095103.0, 797);
    for (double x : {nearCodyWaite, nearPayneHanek, 0x1.921fb54442d18p+0, 0x1.921fb54442d18p+1,
                     0x1.2d97c7f3321d2p+2}) {
        const long double reference = cosl(static_cast<long double>(x));
        EXPECT_LE(ulpError(standardLib::cosine(x), reference), 1.0) << std::hexfloat << x;
    }
    EXPECT_EQ(bitsOf(standardLib::cosine(nearCodyWaite)), bitsOf(-0x1.6d61b58c99c43p-61));
    EXPECT_EQ(bitsOf(standardLib::cosine(nearPayneHanek)), bitsOf(-0x1.14ae72e6ba22fp-61));
}

TEST(PortableCosine, IsEven)
{
    Xorshift random;
    for (int i = 0; i < 100000; ++i) {
        const double x = 64.0 * random.unit();
        ASSERT_EQ(bitsOf(standardLib::cosine(-x)), bitsOf(standardLib::cosine(x))) << x;
        const float xf = static_cast<float>(x);
        ASSERT_EQ(bitsOf(standardLib::cosine(-xf)), bitsOf(standardLib::cosine(xf))) << xf;
    }
    for (int i = 0; i < 10000; ++i) {
        const double x = std::bit_cast<double>(random.next() & 0x7fefffffffffffffull);
        ASSERT_EQ(bitsOf(standardLib::cosine(-x)), bitsOf(standardLib::cosine(x))) << x;
    }
}

TEST(PortableCosine, NotANumberForInfinitiesAndNaN)
{
    EXPECT_TRUE(std::isnan(standardLib::cosine(std::numeric_limits<double>::infinity())));
    EXPECT_TRUE(std::isnan(standardLib::cosine(-std::numeric_limits<double>::infinity())));
    EXPECT_TRUE(std::isnan(standardLib::cosine(std::numeric_limits<double>::quiet_NaN())));
    EXPECT_TRUE(std::isnan(standardLib::cosine(std::numeric_limits<float>::infinity())));
    EXPECT_TRUE(std::isnan(standardLib::cosine(std::numeric_limits<float>::quiet_NaN())));
}

// Bit patterns of this cosine, so that a platform or compiler that evaluates it
// differently (a contracted multiply-add, extended precision, another reduction)
// fails here rather than giving different repairs. Each of these is also the
// correctly rounded cosine (checked against a 300-bit evaluation).
TEST(PortableCosine, PinnedValues)
{
    struct DoubleCase {
        double x;
        double expected;
    };
    const DoubleCase doubles[] = {
        {0.5, 0x1.c1528065b7d5p-1},
        {1.0, 0x1.14a280fb5068cp-1},
        {2.0, -0x1.aa22657537205p-2},
        {3.0, -0x1.fae04be85e5d2p-1},
        {-6.0, 0x1.eb9b7097822f5p-1},
        {twoPi / 3.0, -0x1.ffffffffffffcp-2},
        {1e5, -0x1.ffac3841b3da7p-1},
        {1e10, 0x1.bf098901c931ap-1},
    };
    for (const DoubleCase& c : doubles) {
        EXPECT_EQ(bitsOf(standardLib::cosine(c.x)), bitsOf(c.expected))
            << std::hexfloat << c.x << " gives " << standardLib::cosine(c.x);
    }
    struct FloatCase {
        float x;
        float expected;
    };
    const FloatCase floats[] = {
        {windowArgument(1, 1024), 0x1.fffd88p-1f},
        {windowArgument(256, 1024), -0x1.777a5cp-25f},
        {windowArgument(341, 1023), -0x1.000002p-1f},
        {windowArgument(100, 441), 0x1.2a05fep-3f},
        {windowArgument(512, 1024), -0x1p+0f},
    };
    for (const FloatCase& c : floats) {
        EXPECT_EQ(bitsOf(standardLib::cosine(c.x)), bitsOf(c.expected))
            << std::hexfloat << c.x << " gives " << standardLib::cosine(c.x);
    }
}

// Digests of every window cosine: the 32-bit one on the window arguments above,
// and the 64-bit one on i * 2 pi / n, n = 1 .. 1024.
TEST(PortableCosine, PinnedDigestsOfTheWindowCosines)
{
    std::uint64_t narrow = fnvStart;
    std::uint64_t wide = fnvStart;
    for (int n = 1; n <= 1024; ++n) {
        for (int i = 0; i < n; ++i) {
            narrow = fnv(narrow, standardLib::cosine(windowArgument(i, n)));
            wide = fnv(wide, standardLib::cosine(static_cast<double>(i) * twoPi / static_cast<double>(n)));
        }
    }
    EXPECT_EQ(narrow, 0xd0833416699862c3ull) << std::hex << narrow;
    // The correctly rounded values; the earlier faithful cosine differed in the last
    // bit on 16,514 of these 524,800 arguments.
    EXPECT_EQ(wide, 0x9511c2f8720c8634ull) << std::hex << wide;
}

}  // namespace

namespace {

double worstSineError(double from, double to, int points)
{
    double worst = 0.0;
    for (int i = 0; i <= points; ++i) {
        const double x = from + (to - from) * i / points;
        worst = std::max(worst, ulpError(standardLib::sine(x), sinl(static_cast<long double>(x))));
    }
    return worst;
}

TEST(PortableSine, WithinOneUlpOverADenseSweep)
{
    // Away from its zeros the sine has the cosine's accuracy; at a zero the ulp of the
    // reference shrinks, so the sweep skips exact multiples of pi.
    EXPECT_LT(worstSineError(-8.0 * pi + 1e-3, 8.0 * pi - 1e-3, 200001), 1.0);
    EXPECT_LT(worstSineError(1e-6, 1.5, 100001), 1.0);
}

TEST(PortableSine, IsOddAndExactAtZero)
{
    EXPECT_EQ(bitsOf(standardLib::sine(0.0)), bitsOf(0.0));
    EXPECT_EQ(bitsOf(standardLib::sine(-0.0)), bitsOf(-0.0));
    for (double x : {0.1, 1.0, 2.5, 100.0, 1e6, 1e300})
        EXPECT_EQ(bitsOf(standardLib::sine(-x)), bitsOf(-standardLib::sine(x))) << x;
    EXPECT_TRUE(std::isnan(standardLib::sine(std::numeric_limits<double>::infinity())));
}

TEST(PortableSine, MatchesTheCosineShiftedByAQuarterTurnOnExactQuadrants)
{
    // sin(x + pi/2 * k) reads the other kernel; check the pairing on a grid where the
    // reduction is the same for both.
    for (int i = 1; i < 1000; ++i) {
        const double x = i * 1e-3;
        EXPECT_NEAR(standardLib::sine(x), std::sin(x), 2e-16);
        EXPECT_NEAR(standardLib::cosine(x), std::cos(x), 2e-16);
    }
}

}  // namespace
