#include "signal/PortableCosine.h"

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "signal/AccurateTrig.h"
#include "signal/DoubleDouble.h"
#include "signal/TrigConstants.h"

// Every operation below is a single IEEE-754 double operation or integer
// arithmetic, written in the order it is to be evaluated; the build keeps the
// compiler from contracting a*b+c into a fused multiply-add (-ffp-contract=off),
// which would change the bits.

namespace standardLib {
namespace {

using trig::Function;

// pi/2 = pio2a + pio2b + pio2c + pio2d: three 33-bit parts and a 53-bit tail
// (together 152 bits; the rest is 7.4e-49). A count below 2^20 times a 33-bit part
// is exact in double.
constexpr double pio2a = 0x1.921fb544p+0;
constexpr double pio2b = 0x1.0b4611a6p-34;
constexpr double pio2c = 0x1.3198a2ep-69;
constexpr double pio2d = 0x1.b839a252049c1p-104;

// pi/2 as a double-double, for scaling the fraction of the large-argument reduction.
constexpr double pio2Hi = 0x1.921fb54442d18p+0;
constexpr double pio2Lo = 0x1.1a62633145c07p-54;

constexpr double twoOverPi = 0x1.45f306dc9c883p-1;

// Below this the Cody-Waite reduction applies: k < 2^19 there.
constexpr double codyWaiteLimit = 0x1p19;
constexpr int windowWords = 8;

// Error bound of the double-double value, relative. The derivation gives 2^-74:
//  - reduction: below 2^19 the tail of pi/2 and the rounding of k pio2d leave
//    2^-137 absolute, and |r| >= 2^-61 (the closest a double in this range comes to
//    a multiple of pi/2 is 6.19e-19), so 2^-76 relative; above, the 256-bit window and
//    the double-double sum leave 2^-100 relative;
//  - Taylor tails: r^24/24! and r^24/25! relative, below 2^-86;
//  - the terms from r^10 on in double (with hi(r^2)): 2^-51 of r^10/10! <= 2^-25;
//  - double-double steps: 2^-100 each.
// The test uses 2^-68, which also absorbs the roundings of the test itself.
constexpr double fastRelativeError = 0x1p-68;

// (-1)^k / (2k)! and (-1)^k / (2k+1)!, k = 1 .. 4 as double-doubles, k = 5 .. 11 as doubles.
constexpr DoubleDouble cosLead[] = {
    {-0x1p-1, 0.0},
    {0x1.5555555555555p-5, 0x1.5555555555555p-59},
    {-0x1.6c16c16c16c17p-10, 0x1.f49f49f49f49fp-65},
    {0x1.a01a01a01a01ap-16, 0x1.a01a01a01a01ap-76},
};
constexpr double cosTail[] = {
    -0x1.27e4fb7789f5cp-22, 0x1.1eed8eff8d898p-29, -0x1.93974a8c07c9dp-37, 0x1.ae7f3e733b81fp-45,
    -0x1.6827863b97d97p-53, 0x1.e542ba4020225p-62, -0x1.0ce396db7f853p-70,
};
constexpr DoubleDouble sinLead[] = {
    {-0x1.5555555555555p-3, -0x1.5555555555555p-57},
    {0x1.1111111111111p-7, 0x1.1111111111111p-63},
    {-0x1.a01a01a01a01ap-13, -0x1.a01a01a01a01ap-73},
    {0x1.71de3a556c734p-19, -0x1.c154f8ddc6c00p-73},
};
constexpr double sinTail[] = {
    -0x1.ae64567f544e4p-26, 0x1.6124613a86d09p-33, -0x1.ae7f3e733b81fp-41, 0x1.952c77030ad4ap-49,
    -0x1.2f49b46814157p-57, 0x1.71b8ef6dcf572p-66, -0x1.761b41316381ap-75,
};

struct Reduced {
    DoubleDouble r;     // x - quadrant * pi/2, |r| <= pi/4 (plus rounding)
    unsigned quadrant;  // modulo 4
};

// 0 <= ax < 2^19.
Reduced reduceCodyWaite(double ax)
{
    const auto k = static_cast<std::int32_t>(ax * twoOverPi + 0.5);
    const double dk = static_cast<double>(k);
    // ax and dk * pio2a are within a factor of two of each other, or dk is 0: exact.
    const double a = ax - dk * pio2a;
    const DoubleDouble first = twoSum(a, -(dk * pio2b));
    const DoubleDouble second = twoSum(first.hi, -(dk * pio2c));
    const double tail = (first.lo + second.lo) - dk * pio2d;
    return {twoSum(second.hi, tail), static_cast<unsigned>(k) & 3u};
}

// 2^19 <= ax, finite. ax = m 2^e with m a 53-bit integer; x 2/pi modulo 4 is formed
// as m times a 256-bit window of 2/pi, in 32-bit limbs.
Reduced reducePayneHanek(double ax)
{
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(ax);
    const std::uint64_t m = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
    const int e = static_cast<int>(bits >> 52) - 1075;  // >= -33

    // Bits of 2/pi at positions <= e - 2 give multiples of 4 and are left out.
    const int first = e - 2 >= 0 ? (e - 2) / 32 : 0;
    // The product is m * window * 2^(e - 32 (first + windowWords)): its binary
    // point lies `point` bits up from the bottom.
    const int point = 32 * (first + windowWords) - e;

    constexpr int limbCount = windowWords + 2;
    std::uint32_t product[limbCount] = {};
    const std::uint32_t mParts[2] = {static_cast<std::uint32_t>(m), static_cast<std::uint32_t>(m >> 32)};
    for (int j = 0; j < 2; ++j) {
        std::uint64_t carry = 0;
        for (int i = 0; i < windowWords; ++i) {
            const std::uint64_t word = trig::twoOverPiBits[first + windowWords - 1 - i];
            const std::uint64_t t = word * mParts[j] + product[i + j] + carry;
            product[i + j] = static_cast<std::uint32_t>(t);
            carry = t >> 32;
        }
        product[windowWords + j] = static_cast<std::uint32_t>(carry);
    }

    // 32 bits of the product starting at bit `pos` (bits outside it are zero).
    const auto bitsAt = [&product](int pos) -> std::uint32_t {
        const int limb = pos >= 0 ? pos / 32 : -((31 - pos) / 32);
        const int shift = pos - 32 * limb;
        const auto at = [&product](int i) -> std::uint64_t {
            return i >= 0 && i < limbCount ? product[i] : 0u;
        };
        const std::uint64_t pair = at(limb) | (at(limb + 1) << 32);
        return static_cast<std::uint32_t>(pair >> shift);
    };

    unsigned quadrant = bitsAt(point) & 3u;
    bool negative = false;
    if ((bitsAt(point - 1) & 1u) != 0) {
        // Fraction >= 1/2: round the count up and keep 1 - fraction, which is the
        // two's complement of the product below the point.
        quadrant = (quadrant + 1u) & 3u;
        negative = true;
        std::uint64_t carry = 1;
        for (std::uint32_t& limb : product) {
            const std::uint64_t t = static_cast<std::uint64_t>(~limb) + carry;
            limb = static_cast<std::uint32_t>(t);
            carry = t >> 32;
        }
    }

    // The fraction, summed from its least significant 32-bit piece up: every piece
    // is exact in double and all are non-negative, so nothing cancels.
    const int pieces = (point + 31) / 32;
    double scale = 1.0;
    for (int c = 0; c < pieces; ++c) scale *= 0x1p-32;
    DoubleDouble f{0.0, 0.0};
    for (int c = pieces - 1; c >= 0; --c) {
        const double piece = static_cast<double>(bitsAt(point - 32 * (c + 1))) * scale;
        const DoubleDouble s = twoSum(f.hi, piece);
        f = {s.hi, f.lo + s.lo};
        scale *= 0x1p32;
    }
    f = fastTwoSum(f.hi, f.lo);

    // r = f * pi/2 in double-double.
    const DoubleDouble r = ddMul(f, {pio2Hi, pio2Lo});
    return {negative ? DoubleDouble{-r.hi, -r.lo} : r, quadrant};
}

Reduced reduce(double ax)
{
    return ax < codyWaiteLimit ? reduceCodyWaite(ax) : reducePayneHanek(ax);
}

// lead[0] + z (lead[1] + ... + z (lead[3] + z tail(z))), the tail in double from
// the high part of z.
template <std::size_t LeadCount, std::size_t TailCount>
DoubleDouble series(DoubleDouble z, const DoubleDouble (&lead)[LeadCount], const double (&tail)[TailCount])
{
    double q = tail[TailCount - 1];
    for (std::size_t k = TailCount - 1; k-- > 0;) q = tail[k] + z.hi * q;
    DoubleDouble p{q, 0.0};
    for (std::size_t k = LeadCount; k-- > 0;) p = ddAdd(lead[k], ddMul(z, p));
    return p;
}

// cos r = 1 + z (-1/2 + z (1/24 - ...)), z = r^2.
DoubleDouble cosPolynomial(DoubleDouble r)
{
    const DoubleDouble z = ddMul(r, r);
    return ddAdd({1.0, 0.0}, ddMul(z, series(z, cosLead, cosTail)));
}

// sin r = r + r z (-1/6 + z (1/120 - ...)), z = r^2.
DoubleDouble sinPolynomial(DoubleDouble r)
{
    const DoubleDouble z = ddMul(r, r);
    return ddAdd(r, ddMul(r, ddMul(z, series(z, sinLead, sinTail))));
}

DoubleDouble negated(DoubleDouble v)
{
    return {-v.hi, -v.lo};
}

// cos or sin of +-ax from its reduction, as a double-double; the sine takes x's sign.
DoubleDouble fastValue(Function function, double x)
{
    const double ax = x < 0.0 ? -x : x;
    const Reduced reduced = reduce(ax);
    // sin x = cos(x - pi/2): one quarter turn less; then cos(r + phase pi/2).
    const unsigned phase = (reduced.quadrant + (function == Function::sine ? 3u : 0u)) & 3u;
    DoubleDouble v = (phase & 1u) != 0 ? sinPolynomial(reduced.r) : cosPolynomial(reduced.r);
    if (phase == 1u || phase == 2u) v = negated(v);
    return function == Function::sine && x < 0.0 ? negated(v) : v;
}

double magnitude(double v)
{
    return v < 0.0 ? -v : v;
}

double powerOfTwo(int exponent)
{
    return std::bit_cast<double>(static_cast<std::uint64_t>(exponent + 1023) << 52);
}

// Half the distance from v (normal, not tiny) to its neighbour of `precision` bits,
// on the side away from zero or toward it; toward zero it is half as far from a
// power of two.
double halfGap(double v, int precision, bool towardZero)
{
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(v) & ~(std::uint64_t{1} << 63);
    const int exponent = static_cast<int>(bits >> 52) - 1023;
    const bool powerOfTwoValue = (bits & ((std::uint64_t{1} << 52) - 1)) == 0;
    return powerOfTwo(exponent - precision - (towardZero && powerOfTwoValue ? 1 : 0));
}

// Ziv's rounding test. The true value lies within `error` of y.hi + y.lo; if every
// value there rounds to the same number of `precision` bits, that number.
// A power of two compared with a rounded sum: if the exact sum reaches it, so
// does the rounded one, so the comparison never errs toward acceptance.
std::optional<double> roundedIfSafe(DoubleDouble y, double error, int precision)
{
    if (!(magnitude(y.hi) >= 0x1p-100)) return std::nullopt;
    const double candidate = precision == 53 ? y.hi : static_cast<double>(static_cast<float>(y.hi));
    // y.hi - candidate is exact (both multiples of ulp(y.hi), within a float ulp); the
    // addition's own rounding is far below the margin in `error`.
    const double offset = (y.hi - candidate) + y.lo;
    const bool towardZero = offset != 0.0 && ((offset < 0.0) != (candidate < 0.0));
    if (magnitude(offset) + error < halfGap(candidate, precision, towardZero)) return candidate;
    return std::nullopt;
}

double correctlyRounded(Function function, double x, int precision)
{
    const DoubleDouble y = fastValue(function, x);
    if (const std::optional<double> v = roundedIfSafe(y, magnitude(y.hi) * fastRelativeError, precision))
        return *v;
    return trig::accurateTrig(function, x, precision);
}

bool finite(double x)
{
    return magnitude(x) <= 0x1.fffffffffffffp+1023;
}

// Below 2^-27 the cosine rounds to 1 in both precisions (1 - x^2/2 is within a
// quarter ulp of 1); below 2^-26 the sine rounds to x (x^3/6 is below half an ulp
// of x, also next to a power of two).
constexpr double cosineIsOneBelow = 0x1p-27;
constexpr double sineIsArgumentBelow = 0x1p-26;

}  // namespace

double cosine(double x) noexcept
{
    if (!finite(x)) return x - x;  // infinity or NaN: NaN
    if (magnitude(x) < cosineIsOneBelow) return 1.0;
    return correctlyRounded(Function::cosine, x, 53);
}

double sine(double x) noexcept
{
    if (!finite(x)) return x - x;
    if (magnitude(x) < sineIsArgumentBelow) return x;  // -0 included
    return correctlyRounded(Function::sine, x, 53);
}

float cosine(float x) noexcept
{
    const double wide = x;
    if (!finite(wide)) return x - x;
    if (magnitude(wide) < cosineIsOneBelow) return 1.0f;
    return static_cast<float>(correctlyRounded(Function::cosine, wide, 24));
}

float sine(float x) noexcept
{
    const double wide = x;
    if (!finite(wide)) return x - x;
    if (magnitude(wide) < sineIsArgumentBelow) return x;
    return static_cast<float>(correctlyRounded(Function::sine, wide, 24));
}

}  // namespace standardLib
