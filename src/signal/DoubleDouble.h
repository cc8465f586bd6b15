// Double-double arithmetic from plain IEEE-754 double operations: a value is the
// unevaluated sum hi + lo with |lo| <= ulp(hi)/2. No fused multiply-add is used (the
// build forbids contraction), so every result has the same bits on every target.
// twoSum, fastTwoSum and twoProduct are exact; ddMul and ddAdd are accurate to about
// 2^-102 relative when no cancellation occurs. Pure, inline, no allocation.
#pragma once

namespace standardLib {

struct DoubleDouble {
    double hi;
    double lo;
};

// a + b = s + e exactly, for any a, b (Knuth).
inline DoubleDouble twoSum(double a, double b)
{
    const double s = a + b;
    const double bv = s - a;
    const double av = s - bv;
    return {s, (a - av) + (b - bv)};
}

// a + b = s + e exactly when |a| >= |b| or a is 0 (Dekker).
inline DoubleDouble fastTwoSum(double a, double b)
{
    const double s = a + b;
    return {s, b - (s - a)};
}

// a = hi + lo with hi and lo of at most 26 significant bits (Veltkamp).
inline DoubleDouble split(double a)
{
    const double c = 134217729.0 * a;  // 2^27 + 1
    const double hi = c - (c - a);
    return {hi, a - hi};
}

// a * b = p + e exactly (Dekker), for products far from overflow and underflow.
inline DoubleDouble twoProduct(double a, double b)
{
    const double p = a * b;
    const DoubleDouble as = split(a);
    const DoubleDouble bs = split(b);
    const double e = (((as.hi * bs.hi - p) + as.hi * bs.lo) + as.lo * bs.hi) + as.lo * bs.lo;
    return {p, e};
}

inline DoubleDouble ddMul(DoubleDouble a, DoubleDouble b)
{
    const DoubleDouble p = twoProduct(a.hi, b.hi);
    return fastTwoSum(p.hi, p.lo + (a.hi * b.lo + a.lo * b.hi));
}

inline DoubleDouble ddAdd(DoubleDouble a, DoubleDouble b)
{
    const DoubleDouble s = twoSum(a.hi, b.hi);
    return fastTwoSum(s.hi, s.lo + (a.lo + b.lo));
}

}  // namespace standardLib
