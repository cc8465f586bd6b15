// A cosine built from IEEE-754 double additions, subtractions, multiplications and
// divisions only (no C library call, no fused multiply-add), so that it returns the
// same bits on every platform, compiler and C library. Every window, twiddle and
// cosine table of the library takes its values from here: the C libraries'
// cosines differ in the last bit on a share of the arguments, and so would the
// repairs and the transforms.
//
// Method: the argument is reduced by pi/2 to r in about [-pi/4, pi/4] and a
// quadrant q, carrying r as a double-double; then cos r or sin r is evaluated with
// a minimax polynomial in r^2 (degree 14 for cos, 13 for sin) in Horner order,
// with a first-order correction for the low part of r.
//
//  - |x| < 2^19: Cody-Waite reduction with pi/2 split into three 33-bit parts and
//    a 53-bit tail. The quadrant count k stays below 2^19, so k times each part is
//    exact and r is known to about 2^-135 absolute; the closest a double in this
//    range comes to a multiple of pi/2 is 6.19e-19 (2^-60.5, near 29 pi/2), so r
//    keeps full double precision there too.
//  - larger |x|: the product of x with the bits of 2/pi is formed in 32-bit integer
//    pieces (Payne-Hanek), taking 256 bits of 2/pi from the first one that can
//    still reach the fraction; slower, but exact in the same sense for every finite
//    double.
//  - infinities and NaN give NaN.
//
// cosine(double) is within 1 ulp of cos x for every finite x (the measured error
// is below that; see the tests). cosine(float) is the double result narrowed once;
// on the arguments the analysis windows use it is the correctly rounded float
// cosine, which the tests check one by one.
#pragma once

namespace standardLib {

double cosine(double x) noexcept;

// sin x from the same reduction and kernels, with the same accuracy.
double sine(double x) noexcept;

// (float)cosine((double)x)
float cosine(float x) noexcept;

}  // namespace standardLib
