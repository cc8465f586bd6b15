#include "signal/PortableCosine.h"

#include <bit>
#include <cmath>
#include <cstdint>

// Every operation below is a single IEEE-754 double operation or integer
// arithmetic, written in the order it is to be evaluated; the build keeps the
// compiler from contracting a*b+c into a fused multiply-add (-ffp-contract=off),
// which would change the bits.

namespace standardLib {
namespace {

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

// cos r = 1 - r^2/2 + r^4 (c1 + c2 r^2 + ... + c6 r^10): minimax on [-pi/4, pi/4],
// absolute error below 2^-59.
constexpr double c1 = 0x1.555555555554cp-5;
constexpr double c2 = -0x1.6c16c16c15177p-10;
constexpr double c3 = 0x1.a01a019cb1590p-16;
constexpr double c4 = -0x1.27e4f809c52adp-22;
constexpr double c5 = 0x1.1ee9ebdb4b1c4p-29;
constexpr double c6 = -0x1.8fae9be8838d4p-37;

// sin r = r + r^3 (s1 + s2 r^2 + ... + s6 r^10): minimax on [-pi/4, pi/4], error of
// sin(r)/r below 2^-57.9.
constexpr double s1 = -0x1.5555555555549p-3;
constexpr double s2 = 0x1.111111110f8a6p-7;
constexpr double s3 = -0x1.a01a019c161d5p-13;
constexpr double s4 = 0x1.71de357b1fe7dp-19;
constexpr double s5 = -0x1.ae5e68a2b9cebp-26;
constexpr double s6 = 0x1.5d93a5acfd57cp-33;

// Bits of 2/pi after the binary point, 32 to a word, most significant first
// (2/pi = 0.a2f9836e 4e441529 ... in hexadecimal). Enough for the exponent of the
// largest finite double plus the 256-bit window of the reduction.
constexpr std::uint32_t twoOverPiBits[] = {
    0xa2f9836e, 0x4e441529, 0xfc2757d1, 0xf534ddc0, 0xdb629599, 0x3c439041,
    0xfe5163ab, 0xdebbc561, 0xb7246e3a, 0x424dd2e0, 0x06492eea, 0x09d1921c,
    0xfe1deb1c, 0xb129a73e, 0xe88235f5, 0x2ebb4484, 0xe99c7026, 0xb45f7e41,
    0x3991d639, 0x835339f4, 0x9c845f8b, 0xbdf9283b, 0x1ff897ff, 0xde05980f,
    0xef2f118b, 0x5a0a6d1f, 0x6d367ecf, 0x27cb09b7, 0x4f463f66, 0x9e5fea2d,
    0x7527bac7, 0xebe5f17b, 0x3d0739f7, 0x8a5292ea, 0x6bfb5fb1, 0x1f8d5d08,
    0x56033046, 0xfc7b6bab,
};
constexpr int windowWords = 8;

struct DoubleDouble {
    double hi;
    double lo;
};

// a + b = s + e exactly, for any a, b (Knuth).
DoubleDouble twoSum(double a, double b)
{
    const double s = a + b;
    const double bv = s - a;
    const double av = s - bv;
    return {s, (a - av) + (b - bv)};
}

// a + b = s + e exactly when |a| >= |b| (Dekker).
DoubleDouble fastTwoSum(double a, double b)
{
    const double s = a + b;
    return {s, b - (s - a)};
}

// a = hi + lo with hi and lo of at most 26 significant bits (Veltkamp).
DoubleDouble split(double a)
{
    const double c = 134217729.0 * a;  // 2^27 + 1
    const double hi = c - (c - a);
    return {hi, a - hi};
}

// a * b = p + e exactly (Dekker), without a fused multiply-add.
DoubleDouble twoProduct(double a, double b)
{
    const double p = a * b;
    const DoubleDouble as = split(a);
    const DoubleDouble bs = split(b);
    const double e = (((as.hi * bs.hi - p) + as.hi * bs.lo) + as.lo * bs.hi) + as.lo * bs.lo;
    return {p, e};
}

struct Reduced {
    DoubleDouble r;  // x - quadrant * pi/2, |r| <= pi/4 (plus rounding)
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
            const std::uint64_t word = twoOverPiBits[first + windowWords - 1 - i];
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
    const DoubleDouble p = twoProduct(f.hi, pio2Hi);
    const double low = p.lo + (f.hi * pio2Lo + f.lo * pio2Hi);
    DoubleDouble r = fastTwoSum(p.hi, low);
    if (negative) r = {-r.hi, -r.lo};
    return {r, quadrant};
}

// cos(x + y) for |x| <= pi/4 (and a little), |y| <= ulp(x)/2.
double cosKernel(double x, double y)
{
    const double z = x * x;
    const double poly = z * (c1 + z * (c2 + z * (c3 + z * (c4 + z * (c5 + z * c6)))));
    const double halfZ = 0.5 * z;
    const double w = 1.0 - halfZ;
    // 1 - z/2 is split into w and its exact rounding error, which joins the small terms;
    // -x y is the first-order effect of the low part.
    return w + (((1.0 - w) - halfZ) + (z * poly - x * y));
}

// sin(x + y) for |x| <= pi/4 (and a little), |y| <= ulp(x)/2.
double sinKernel(double x, double y)
{
    const double z = x * x;
    const double v = z * x;
    const double poly = s2 + z * (s3 + z * (s4 + z * (s5 + z * s6)));
    // x + v s1 + v z poly + y (1 - z/2), with the small terms gathered first.
    return x - ((z * (0.5 * y - v * poly) - y) - v * s1);
}

}  // namespace

double cosine(double x) noexcept
{
    const double ax = x < 0.0 ? -x : x;
    if (!(ax <= 0x1.fffffffffffffp+1023)) return x - x;  // infinity or NaN: NaN
    const Reduced red = ax < codyWaiteLimit ? reduceCodyWaite(ax) : reducePayneHanek(ax);
    const double hi = red.r.hi;
    const double lo = red.r.lo;
    switch (red.quadrant) {
    case 0: return cosKernel(hi, lo);
    case 1: return -sinKernel(hi, lo);
    case 2: return -cosKernel(hi, lo);
    default: return sinKernel(hi, lo);
    }
}

double sine(double x) noexcept
{
    const double ax = x < 0.0 ? -x : x;
    if (!(ax <= 0x1.fffffffffffffp+1023)) return x - x;  // infinity or NaN: NaN
    const Reduced red = ax < codyWaiteLimit ? reduceCodyWaite(ax) : reducePayneHanek(ax);
    const double hi = red.r.hi;
    const double lo = red.r.lo;
    double s = 0.0;
    switch (red.quadrant) {
    case 0: s = sinKernel(hi, lo); break;
    case 1: s = cosKernel(hi, lo); break;
    case 2: s = -sinKernel(hi, lo); break;
    default: s = -cosKernel(hi, lo); break;
    }
    return x < 0.0 || (x == 0.0 && std::signbit(x)) ? -s : s;  // odd, -0 included
}

float cosine(float x) noexcept
{
    return static_cast<float>(cosine(static_cast<double>(x)));
}

}  // namespace standardLib
