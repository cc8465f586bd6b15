// Correctly rounded cosine and sine in double and float, built from IEEE-754
// additions, subtractions and multiplications and integer arithmetic only (no C
// library call, no fused multiply-add), so they return the same bits on every
// platform, compiler and target. Every window, twiddle and cosine table of the
// library takes its values from here.
//
// Method:
//  - reduction by pi/2 to a double-double r, |r| <= pi/4, and a quadrant:
//    Cody-Waite with pi/2 in four parts below 2^19, Payne-Hanek with a 256-bit
//    window of 2/pi above;
//  - cos r or sin r as a double-double: Taylor polynomial, the terms from r^10 on in
//    double, the leading ones in double-double; relative error below 2^-74;
//  - Ziv's rounding test: if every value within 2^-68 of the result rounds to the
//    same double (or float), that is the answer;
//  - otherwise (about one call in 20,000 for double, far fewer for float) the
//    fixed-point evaluation of AccurateTrig.h, exact to 256 bits and more.
// Infinities and NaN give NaN; cosine(+-0) is 1, sine keeps the sign of zero.
// Pure functions, no allocation, any thread; about 0.1 us per call on the fast path.
#pragma once

namespace standardLib {

double cosine(double x) noexcept;
double sine(double x) noexcept;
float cosine(float x) noexcept;
float sine(float x) noexcept;

}  // namespace standardLib
