#include "signal/AccurateTrig.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <initializer_list>

#include "signal/TrigConstants.h"

namespace standardLib::trig {
namespace {

constexpr int maxLimbs = 32;  // fraction limbs of the widest evaluation (1024 bits)

// A non-negative fixed-point number: limb[0 .. n-1] the fraction, least significant
// first, and limb[n] the integer part.
struct Fixed {
    std::array<std::uint32_t, maxLimbs + 1> limb{};
};

// Fixed-point arithmetic with n fraction limbs; one unit is 2^(-32 n).
class FixedArithmetic {
public:
    explicit FixedArithmetic(int n) : n_(n) {}

    int fractionBits() const { return 32 * n_; }

    Fixed one() const
    {
        Fixed r;
        r.limb[n_] = 1;
        return r;
    }

    Fixed add(const Fixed& a, const Fixed& b) const
    {
        Fixed r;
        std::uint64_t carry = 0;
        for (int i = 0; i <= n_; ++i) {
            const std::uint64_t t = std::uint64_t{a.limb[i]} + b.limb[i] + carry;
            r.limb[i] = static_cast<std::uint32_t>(t);
            carry = t >> 32;
        }
        return r;
    }

    // a - b for a >= b.
    Fixed subtract(const Fixed& a, const Fixed& b) const
    {
        Fixed r;
        std::uint64_t borrow = 0;
        for (int i = 0; i <= n_; ++i) {
            const std::uint64_t t = std::uint64_t{a.limb[i]} - b.limb[i] - borrow;
            r.limb[i] = static_cast<std::uint32_t>(t);
            borrow = (t >> 32) & 1u;
        }
        return r;
    }

    Fixed units(std::uint64_t count) const
    {
        Fixed r;
        r.limb[0] = static_cast<std::uint32_t>(count);
        r.limb[1] = static_cast<std::uint32_t>(count >> 32);
        return r;
    }

    // a * b truncated to n fraction limbs: below one unit too small. Operands below 2.
    Fixed multiply(const Fixed& a, const Fixed& b) const
    {
        std::array<std::uint32_t, 2 * (maxLimbs + 1)> product{};
        for (int i = 0; i <= n_; ++i) {
            std::uint64_t carry = 0;
            for (int j = 0; j <= n_; ++j) {
                const std::uint64_t t = std::uint64_t{a.limb[i]} * b.limb[j] + product[i + j] + carry;
                product[i + j] = static_cast<std::uint32_t>(t);
                carry = t >> 32;
            }
            product[i + n_ + 1] = static_cast<std::uint32_t>(carry);
        }
        Fixed r;
        for (int i = 0; i <= n_; ++i) r.limb[i] = product[i + n_];
        return r;
    }

    // a / d truncated: below one unit too small.
    Fixed divide(const Fixed& a, std::uint32_t d) const
    {
        Fixed r;
        std::uint64_t remainder = 0;
        for (int i = n_; i >= 0; --i) {
            const std::uint64_t current = (remainder << 32) | a.limb[i];
            r.limb[i] = static_cast<std::uint32_t>(current / d);
            remainder = current % d;
        }
        return r;
    }

    bool isZero(const Fixed& a) const
    {
        return std::all_of(a.limb.begin(), a.limb.begin() + n_ + 1, [](std::uint32_t v) { return v == 0; });
    }

    bool less(const Fixed& a, const Fixed& b) const
    {
        for (int i = n_; i >= 0; --i)
            if (a.limb[i] != b.limb[i]) return a.limb[i] < b.limb[i];
        return false;
    }

    std::uint32_t bit(const Fixed& a, int index) const
    {
        return index < 0 ? 0u : (a.limb[index / 32] >> (index % 32)) & 1u;
    }

    // Index of the highest set bit (bit 0 is the lowest of limb 0), -1 for zero.
    int topBit(const Fixed& a) const
    {
        for (int i = n_; i >= 0; --i)
            if (a.limb[i] != 0) return 32 * i + 31 - std::countl_zero(a.limb[i]);
        return -1;
    }

    // A double in [2^-(32 n - 53), 2) held exactly.
    Fixed fromDouble(double v) const
    {
        const std::uint64_t bits = std::bit_cast<std::uint64_t>(v);
        const std::uint64_t significand = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
        const int lowest = static_cast<int>(bits >> 52) - 1075 + fractionBits();
        Fixed r;
        for (int b = 0; b < 53; ++b) {
            if (((significand >> b) & 1u) != 0) r.limb[(lowest + b) / 32] |= std::uint32_t{1} << ((lowest + b) % 32);
        }
        return r;
    }

    Fixed halfPi() const
    {
        Fixed r = one();
        for (int i = 0; i < n_; ++i) r.limb[n_ - 1 - i] = halfPiFractionBits[i];
        return r;
    }

    // Nearest value of `precision` significant bits, ties to even, as a double.
    // a >= 2^-1022 and below 2.
    double roundToBits(const Fixed& a, int precision) const
    {
        const int top = topBit(a);
        std::uint64_t significand = 0;
        for (int b = top; b > top - precision; --b) significand = (significand << 1) | bit(a, b);
        bool sticky = false;
        for (int b = top - precision - 1; b >= 0 && !sticky; --b) sticky = bit(a, b) != 0;
        if (bit(a, top - precision) != 0 && (sticky || (significand & 1u) != 0)) ++significand;
        int exponent = top - fractionBits();
        if ((significand >> precision) != 0) {
            significand >>= 1;
            ++exponent;
        }
        const std::uint64_t fraction = (significand << (53 - precision)) & ((std::uint64_t{1} << 52) - 1);
        return std::bit_cast<double>((static_cast<std::uint64_t>(exponent + 1023) << 52) | fraction);
    }

private:
    int n_;
};

struct FixedReduced {
    Fixed r;             // |x - quadrant pi/2|, at most pi/4, within 4 units
    unsigned quadrant;   // modulo 4
    bool negative;       // x - quadrant pi/2 < 0
};

// x = m 2^e with m a 53-bit integer. x 2/pi modulo 4 is m times the bits j of 2/pi
// from e - 1 on (earlier bits give multiples of 4) to e + fraction + 64, taken as an
// integer W; the product m W has its binary point fraction + 64 bits from the bottom,
// and the bits of 2/pi left out move it by less than 2^-(fraction + 11).
FixedReduced reduce(const FixedArithmetic& a, double ax)
{
    if (ax < 0.78) return {a.fromDouble(ax), 0u, false};
    const std::uint64_t bits = std::bit_cast<std::uint64_t>(ax);
    const std::uint64_t m = (bits & ((std::uint64_t{1} << 52) - 1)) | (std::uint64_t{1} << 52);
    const int e = static_cast<int>(bits >> 52) - 1075;
    const int first = std::max(1, e - 1);
    const int last = e + a.fractionBits() + 64;
    const int windowLimbs = (last - first + 32) / 32;

    constexpr int maxWindowLimbs = maxLimbs + 4;
    std::array<std::uint32_t, maxWindowLimbs + 2> product{};
    const std::uint32_t mParts[2] = {static_cast<std::uint32_t>(m), static_cast<std::uint32_t>(m >> 32)};
    for (int t = 0; t < windowLimbs; ++t) {
        std::uint32_t word = 0;
        for (int b = 31; b >= 0; --b) {
            const int j = last - 32 * t - b;
            word = (word << 1) | (j >= first ? twoOverPiBit(j) : 0u);
        }
        std::uint64_t carry = 0;
        for (int p = 0; p < 2; ++p) {
            const std::uint64_t s = std::uint64_t{word} * mParts[p] + product[t + p] + carry;
            product[t + p] = static_cast<std::uint32_t>(s);
            carry = s >> 32;
        }
        for (int k = t + 2; carry != 0; ++k) {
            const std::uint64_t s = std::uint64_t{product[k]} + carry;
            product[k] = static_cast<std::uint32_t>(s);
            carry = s >> 32;
        }
    }

    // The point lies 32 (n + 2) bits up: limbs 2 .. n + 1 are the fraction.
    const int n = a.fractionBits() / 32;
    Fixed f;
    for (int i = 0; i < n; ++i) f.limb[i] = product[2 + i];
    unsigned quadrant = product[2 + n] & 3u;
    bool negative = false;
    if ((f.limb[n - 1] >> 31) != 0) {  // fraction >= 1/2: the next quadrant, from below
        quadrant = (quadrant + 1u) & 3u;
        negative = true;
        f = a.subtract(a.one(), f);
    }
    return {a.multiply(f, a.halfPi()), quadrant, negative};
}

// cos r = sum (-1)^k r^2k / (2k)!, sin r = sum (-1)^k r^(2k+1) / (2k+1)!, for
// r <= pi/4. Each term carries at most 6 units of error (z = r^2 within 8 units,
// the divisor at least 2); the series stops at the first term that vanishes, and the
// tail beyond it is below 12 units. `terms` is the number of terms formed.
Fixed taylor(const FixedArithmetic& a, const Fixed& r, bool sine, int& terms)
{
    const Fixed z = a.multiply(r, r);
    Fixed term = sine ? r : a.one();
    Fixed plus = term;
    Fixed minus;
    int k = 1;
    for (;; ++k) {
        const auto d = static_cast<std::uint32_t>(sine ? (2 * k) * (2 * k + 1) : (2 * k - 1) * (2 * k));
        term = a.divide(a.multiply(term, z), d);
        if (a.isZero(term)) break;
        if (k % 2 == 1)
            minus = a.add(minus, term);
        else
            plus = a.add(plus, term);
    }
    terms = k;
    return a.subtract(plus, minus);
}

}  // namespace

double accurateTrig(Function function, double x, int precision) noexcept
{
    const bool sine = function == Function::sine;
    const double ax = x < 0.0 ? -x : x;
    double nearest = 0.0;
    bool negativeResult = false;
    for (int limbs : {8, 16, maxLimbs}) {
        const FixedArithmetic a(limbs);
        const FixedReduced reduced = reduce(a, ax);
        // sin x = cos(x - pi/2): one quarter turn less; then cos(r + phase pi/2).
        const unsigned phase = (reduced.quadrant + (sine ? 3u : 0u)) & 3u;
        const bool oddPhase = (phase & 1u) != 0;
        int terms = 0;
        const Fixed value = taylor(a, reduced.r, oddPhase, terms);
        negativeResult = (phase == 1u || phase == 2u) != (oddPhase && reduced.negative);
        if (sine && x < 0.0) negativeResult = !negativeResult;

        const Fixed error = a.units(8u * static_cast<std::uint64_t>(terms + 2));
        nearest = a.roundToBits(value, precision);
        if (!a.less(error, value)) continue;
        const double low = a.roundToBits(a.subtract(value, error), precision);
        const double high = a.roundToBits(a.add(value, error), precision);
        if (low == high) break;
    }
    return negativeResult ? -nearest : nearest;
}

}  // namespace standardLib::trig
