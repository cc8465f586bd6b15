// The cosine and sine against a 113-bit reference (GCC's __float128 functions):
// every result must be the reference rounded once to double or float. Exhaustive on
// every argument of the library's tables and windows, and on ten million random
// doubles (two million floats) over the whole exponent range.
#include "signal/AccurateTrig.h"
#include "signal/PortableCosine.h"

#include <gtest/gtest.h>

#include <quadmath.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <vector>

#ifndef FERROTIP_TRIG_RANDOM_DOUBLES
#define FERROTIP_TRIG_RANDOM_DOUBLES 10000000
#endif

namespace {

using standardLib::trig::Function;

constexpr double twoPi = 6.283185307179586;  // the constant of every table and window

struct Xorshift {
    std::uint64_t state;
    std::uint64_t next()
    {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
};

// The reference rounded to T. A reference within 2^-108 of a halfway point (its own
// error is below 2^-112) could round either way; such a case proves nothing and is
// counted apart. None has been seen.
template <typename T>
struct Rounded {
    T value;
    bool ambiguous;
};

template <typename T>
Rounded<T> roundedReference(__float128 reference)
{
    const T value = static_cast<T>(reference);
    if (static_cast<__float128>(value) == reference) return {value, false};
    const T infinity = std::numeric_limits<T>::infinity();
    const T neighbour = std::nextafter(value, reference > value ? infinity : -infinity);
    const __float128 halfway = (static_cast<__float128>(value) + neighbour) / 2;
    return {value, fabsq(reference - halfway) <= fabsq(reference) * static_cast<__float128>(0x1p-108)};
}

__float128 reference(Function function, __float128 x)
{
    return function == Function::cosine ? cosq(x) : sinq(x);
}

template <typename T>
T evaluate(Function function, T x)
{
    return function == Function::cosine ? standardLib::cosine(x) : standardLib::sine(x);
}

// Mismatches and ambiguous cases, with the first few arguments for the report.
struct Tally {
    long cases = 0;
    long mismatches = 0;
    long ambiguous = 0;

    template <typename T>
    void check(Function function, T x, T result, __float128 exact)
    {
        ++cases;
        const Rounded<T> expected = roundedReference<T>(exact);
        if (expected.ambiguous) {
            ++ambiguous;
            return;
        }
        if (std::bit_cast<std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>>(result) ==
            std::bit_cast<std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>>(expected.value))
            return;
        if (++mismatches <= 10) {
            ADD_FAILURE() << (function == Function::cosine ? "cos" : "sin") << std::hexfloat << "(" << x
                          << ") gives " << result << ", correctly rounded " << expected.value;
        }
    }

    template <typename T>
    void check(Function function, T x)
    {
        check(function, x, evaluate(function, x), reference(function, x));
    }

    void expectAllExact(const char* what) const
    {
        std::printf("%s: %ld cases, %ld ambiguous\n", what, cases, ambiguous);
        EXPECT_EQ(mismatches, 0) << what;
        EXPECT_EQ(ambiguous, 0) << what;
    }
};

// Table sizes N = 2^3 .. 2^20 read i 2pi / N for i <= N/4; the frame windows of frame
// sizes 2^4 .. 2^20 read i 2pi / (N/2) and i 4pi / (N/2) for i < N/2, the Hann windows
// of the crackle engines i 2pi / 2048 and i 2pi / 512. All of these are j 2pi / 2^20
// for some j < 2^21 (a power-of-two scaling is exact), so this set holds every one.
bool isTableOrFrameWindowIndex(int j)
{
    return j <= (1 << 18) || (j % 2 == 0 && j < (1 << 20)) || j % 4 == 0;
}

TEST(CorrectlyRoundedTrig, EveryTableAndFrameWindowArgument)
{
    Tally tally;
    for (int j = 0; j < (1 << 21); ++j) {
        if (!isTableOrFrameWindowIndex(j)) continue;
        tally.check(Function::cosine, static_cast<double>(j) * twoPi / 1048576.0);
    }
    tally.expectAllExact("table and frame window arguments");
}

// The analysis windows, n = 1 .. 1024: Hann in double and in float, the rise and the
// fall of the asymmetric window.
TEST(CorrectlyRoundedTrig, EveryAnalysisWindowArgument)
{
    Tally wide;
    Tally narrow;
    for (int n = 1; n <= 1024; ++n) {
        for (int i = 0; i < n; ++i) {
            const double angle = static_cast<double>(i) * twoPi / static_cast<double>(n);
            wide.check(Function::cosine, angle);
            narrow.check(Function::cosine, static_cast<float>(angle));
        }
        for (int i = 0; i < static_cast<int>(n * 0.9); ++i) wide.check(Function::cosine, twoPi * i / (1.8 * n));
        for (int j = 0; j < 0.1 * n; ++j) wide.check(Function::cosine, twoPi * (0.1 * n - j) / (0.2 * n));
    }
    wide.expectAllExact("analysis windows, double");
    narrow.expectAllExact("analysis windows, float");
}

// The split-radix transform's stage twiddles: cos and sin of 2pi / 2n and 3 2pi / 2n.
TEST(CorrectlyRoundedTrig, EveryStageTwiddleArgument)
{
    Tally tally;
    for (int n = 1; n <= (1 << 20); n *= 2) {
        const double angle = twoPi / (2.0 * n);
        for (double x : {angle, 3.0 * angle}) {
            tally.check(Function::cosine, x);
            tally.check(Function::sine, x);
        }
    }
    tally.expectAllExact("stage twiddle arguments");
}

// Half the draws take any finite exponent, half an exponent from -28 to 40, where
// the reductions and the polynomials do their work; sign and significand at random.
double randomDouble(Xorshift& random, bool anyExponent)
{
    const std::uint64_t bits = random.next();
    const std::uint64_t significand = bits & ((std::uint64_t{1} << 52) - 1);
    const std::uint64_t draw = random.next();
    const std::uint64_t biased = anyExponent ? draw % 2047 : 1023 - 28 + draw % 69;
    return std::bit_cast<double>((bits & (std::uint64_t{1} << 63)) | (biased << 52) | significand);
}

float randomFloat(Xorshift& random, bool anyExponent)
{
    const std::uint64_t bits = random.next();
    const auto significand = static_cast<std::uint32_t>(bits & ((1u << 23) - 1));
    const std::uint64_t draw = random.next();
    const auto biased = static_cast<std::uint32_t>(anyExponent ? draw % 255 : 127 - 28 + draw % 59);
    const std::uint32_t sign = static_cast<std::uint32_t>(bits >> 32) & 0x80000000u;
    return std::bit_cast<float>(sign | (biased << 23) | significand);
}

// cos and sin of `count` draws against one sincosq each.
template <typename T>
void checkRandomArguments(std::uint64_t seed, long count, T (*draw)(Xorshift&, bool), const char* what)
{
    Xorshift random{seed};
    Tally tally;
    for (long i = 0; i < count; ++i) {
        const T x = draw(random, i % 2 == 0);
        __float128 s = 0, c = 0;
        sincosq(x, &s, &c);
        tally.check(Function::cosine, x, standardLib::cosine(x), c);
        tally.check(Function::sine, x, standardLib::sine(x), s);
    }
    if (tally.mismatches != 0) std::printf("%s: seed %#llx\n", what, static_cast<unsigned long long>(seed));
    tally.expectAllExact(what);
}

TEST(CorrectlyRoundedTrig, RandomDoublesOverTheExponentRange)
{
    checkRandomArguments(0x2545f4914f6cdd1dull, FERROTIP_TRIG_RANDOM_DOUBLES, randomDouble, "random doubles");
}

TEST(CorrectlyRoundedTrig, RandomFloatsOverTheExponentRange)
{
    checkRandomArguments(0x9e3779b97f4a7c15ull, FERROTIP_TRIG_RANDOM_DOUBLES / 5, randomFloat, "random floats");
}

// The slow path alone, on arguments that mostly pass the fast path's test: it must
// be exact on its own, since the random draws reach it only about once in 10^4.
TEST(CorrectlyRoundedTrig, FixedPointPathAloneIsExact)
{
    Xorshift random{0x5851f42d4c957f2dull};
    Tally wide;
    Tally narrow;
    for (int i = 0; i < 4000; ++i) {
        const double x = randomDouble(random, i % 4 == 0);
        if (std::fabs(x) < 0x1p-26) continue;  // outside the path's domain
        __float128 s = 0, c = 0;
        sincosq(x, &s, &c);
        wide.check(Function::cosine, x, standardLib::trig::accurateTrig(Function::cosine, x, 53), c);
        wide.check(Function::sine, x, standardLib::trig::accurateTrig(Function::sine, x, 53), s);
        const double xf = static_cast<float>(x);
        if (!std::isfinite(xf) || std::fabs(xf) < 0x1p-26) continue;
        sincosq(xf, &s, &c);
        narrow.check(Function::cosine, static_cast<float>(xf),
                     static_cast<float>(standardLib::trig::accurateTrig(Function::cosine, xf, 24)), c);
        narrow.check(Function::sine, static_cast<float>(xf),
                     static_cast<float>(standardLib::trig::accurateTrig(Function::sine, xf, 24)), s);
    }
    wide.expectAllExact("fixed-point path, double");
    narrow.expectAllExact("fixed-point path, float");
}

// Where the reduction cancels the most: the double nearest 29 pi/2 (6.19e-19 away,
// the closest below 2^19) and 6381956970095103 2^797 (4.69e-19 from a multiple of
// pi/2, the closest of all finite doubles), with their neighbours.
TEST(CorrectlyRoundedTrig, NextToMultiplesOfHalfPi)
{
    Tally tally;
    for (double centre : {0x1.6c6cbc45dc8dep+5, std::ldexp(6381956970095103.0, 797), 0x1.921fb54442d18p+0,
                          0x1.921fb54442d18p+1, 0x1.2d97c7f3321d2p+2, 0x1p19, 0x1.fffffffffffffp18}) {
        double x = centre;
        for (int k = 0; k < 8; ++k) x = std::nextafter(x, 0.0);
        for (int k = 0; k < 17; ++k, x = std::nextafter(x, std::numeric_limits<double>::infinity())) {
            tally.check(Function::cosine, x);
            tally.check(Function::sine, x);
        }
    }
    tally.check(Function::cosine, std::numeric_limits<double>::max());
    tally.check(Function::sine, std::numeric_limits<double>::max());
    tally.expectAllExact("next to multiples of pi/2");
}

TEST(CorrectlyRoundedTrig, SmallArgumentsAndSpecialValues)
{
    using standardLib::cosine;
    using standardLib::sine;
    const double tiny = std::numeric_limits<double>::denorm_min();
    EXPECT_EQ(cosine(tiny), 1.0);
    EXPECT_EQ(sine(tiny), tiny);
    EXPECT_EQ(std::bit_cast<std::uint64_t>(sine(-0.0)), std::bit_cast<std::uint64_t>(-0.0));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(sine(-0.0f)), std::bit_cast<std::uint32_t>(-0.0f));
    EXPECT_EQ(cosine(-0.0f), 1.0f);
    Tally tally;
    for (double x : {0x1p-27, 0x1.fffffffffffffp-28, 0x1p-26, 0x1.fffffffffffffp-27, 0x1.0000000000001p-26}) {
        tally.check(Function::cosine, x);
        tally.check(Function::sine, x);
        tally.check(Function::cosine, static_cast<float>(x));
        tally.check(Function::sine, static_cast<float>(x));
    }
    tally.expectAllExact("small arguments");
    for (double x : {std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_TRUE(std::isnan(cosine(x)));
        EXPECT_TRUE(std::isnan(sine(-x)));
        EXPECT_TRUE(std::isnan(cosine(static_cast<float>(x))));
        EXPECT_TRUE(std::isnan(sine(static_cast<float>(x))));
    }
}

}  // namespace
