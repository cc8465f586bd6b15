/*
 * mingw_cosine_shim: the MinGW-w64 runtime's cos and cosf, for Linux.
 *
 * The Windows module carries the MinGW-w64 math library inside it (it is
 * linked statically), and that library computes the cosine with the x87 fcos
 * instruction in extended precision, rounds the result to double, and for
 * cosf rounds that double to float. glibc computes it differently, and the two
 * disagree in the last bit on about 1% of the click methods' window values.
 *
 * Preloaded into a Linux host program (LD_PRELOAD), this shim gives
 * libferrotip.so the Windows build's cosine. When the Linux repairs then match
 * the Windows ones bit for bit, the cosine was the only operation that
 * differed between the two builds.
 *
 * x86-64 only.
 */
#include <stdint.h>
#include <string.h>

static long double extendedCos(long double x)
{
    long double result;
    uint16_t status;
    __asm__("fcos\n\tfnstsw %1" : "=t"(result), "=a"(status) : "0"(x));
    if (status & 0x400) {
        /* Outside fcos's range (|x| >= 2^63): reduce by 2 pi with fprem1 first,
         * as the MinGW-w64 runtime does. */
        long double twoPi;
        __asm__("fldpi\n\tfadd %%st(0), %%st" : "=t"(twoPi));
        long double reduced = x;
        do {
            __asm__("fprem1\n\tfnstsw %1" : "+t"(reduced), "=a"(status) : "u"(twoPi));
        } while (status & 0x400);
        __asm__("fcos" : "=t"(result) : "0"(reduced));
    }
    return result;
}

double cos(double x)
{
    uint64_t bits;
    memcpy(&bits, &x, sizeof bits);
    if (((bits >> 52) & 0x7ff) == 0x7ff) {
        /* A NaN comes back as it is; an infinity gives the positive quiet NaN. */
        if (bits & 0xfffffffffffffull) return x;
        bits = 0x7ff8000000000000ull;
        memcpy(&x, &bits, sizeof x);
        return x;
    }
    return (double)extendedCos((long double)x);
}

float cosf(float x) { return (float)cos((double)x); }
