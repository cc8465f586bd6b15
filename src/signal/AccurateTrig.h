// The correctly rounded cosine or sine of a finite double, rounded to `precision`
// significant bits (53 for double, 24 for float), from fixed-point arithmetic on
// 32-bit limbs. The slow path of the portable cosine, taken when its fast
// double-double value lies too close to a rounding boundary.
//
// The argument is reduced exactly (its significand times as many bits of 2/pi as the
// fraction needs, in integers), the Taylor series of cos or sin is summed with a
// counted error bound, and the result is accepted only when both ends of its error
// interval round to the same value; otherwise the evaluation repeats with twice,
// then four times the 256-bit fraction. Every step is integer arithmetic, so the
// bits do not depend on the platform. No allocation; any thread; a few microseconds.
#pragma once

namespace standardLib::trig {

enum class Function { cosine, sine };

// Preconditions: x finite, |x| >= 2^-27, 24 <= precision <= 53. Results below 2^-62
// in magnitude do not occur for such x. The result is exact in `precision` bits.
double accurateTrig(Function function, double x, int precision) noexcept;

}  // namespace standardLib::trig
