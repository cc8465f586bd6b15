/*
 * math_probe: the C library's cosine on exactly the arguments the module feeds it.
 *
 * The module's results are bit-identical across platforms only where the C
 * library functions it calls are. This program evaluates them on the module's
 * own arguments and prints one digest line per table size, so that the output
 * of a Linux build and of a Windows build can be compared line by line:
 *
 *   cosf  the 32-bit cosine of the click methods' analysis window:
 *         cosf((float)(i * 6.283185307179586 / n)), n = 1 .. 1024
 *   cos   the 64-bit cosine of the other windows and of the transform tables:
 *         cos(i * 6.283185307179586 / n), n = 1 .. 4096
 *   sqrt  the square root of the correlation scan, on LCG-made operands
 *         (exact in IEEE arithmetic, so it must never differ)
 *
 *   math_probe [--all]
 *
 * --all prints every value (argument and result bits in hex) instead of
 * digests, for finding the exact arguments where two libraries disagree.
 */
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

static int listAll;

static void hex32(uint32_t value, char out[9])
{
    static const char digits[] = "0123456789abcdef";
    for (int i = 7; i >= 0; --i, value >>= 4) out[i] = digits[value & 15u];
    out[8] = '\0';
}

static void hex64(uint64_t value, char out[17])
{
    static const char digits[] = "0123456789abcdef";
    for (int i = 15; i >= 0; --i, value >>= 4) out[i] = digits[value & 15u];
    out[16] = '\0';
}

static uint64_t fnv(uint64_t state, const void* data, size_t size)
{
    const unsigned char* bytes = (const unsigned char*)data;
    for (size_t i = 0; i < size; ++i) state = (state ^ bytes[i]) * 0x100000001b3ull;
    return state;
}

static const uint64_t fnvStart = 0xcbf29ce484222325ull;

static void probeCosf(void)
{
    char a[9], r[9], d[17];
    for (int n = 1; n <= 1024; ++n) {
        uint64_t digest = fnvStart;
        for (int i = 0; i < n; ++i) {
            const double angle = (double)i * 6.283185307179586 / (double)n;
            const float argument = (float)angle;
            const float value = cosf(argument);
            uint32_t argumentBits, valueBits;
            memcpy(&argumentBits, &argument, 4);
            memcpy(&valueBits, &value, 4);
            if (listAll) {
                hex32(argumentBits, a);
                hex32(valueBits, r);
                printf("cosf %d %d %s %s\n", n, i, a, r);
            }
            digest = fnv(digest, &valueBits, 4);
        }
        if (!listAll) {
            hex64(digest, d);
            printf("cosf %d %s\n", n, d);
        }
    }
}

static void probeCos(void)
{
    char a[17], r[17], d[17];
    for (int n = 1; n <= 4096; ++n) {
        uint64_t digest = fnvStart;
        for (int i = 0; i < n; ++i) {
            const double argument = (double)i * 6.283185307179586 / (double)n;
            const double value = cos(argument);
            uint64_t argumentBits, valueBits;
            memcpy(&argumentBits, &argument, 8);
            memcpy(&valueBits, &value, 8);
            if (listAll) {
                hex64(argumentBits, a);
                hex64(valueBits, r);
                printf("cos %d %d %s %s\n", n, i, a, r);
            }
            digest = fnv(digest, &valueBits, 8);
        }
        if (!listAll) {
            hex64(digest, d);
            printf("cos %d %s\n", n, d);
        }
    }
}

static void probeSqrt(void)
{
    uint32_t state = 7u;
    uint64_t digest = fnvStart;
    for (int i = 0; i < 1000000; ++i) {
        state = state * 1664525u + 1013904223u;
        const uint32_t high = state;
        state = state * 1664525u + 1013904223u;
        const double operand = ((double)high * 4294967296.0 + (double)state) * 1e-12;
        const double value = sqrt(operand);
        uint64_t bits;
        memcpy(&bits, &value, 8);
        digest = fnv(digest, &bits, 8);
    }
    char d[17];
    hex64(digest, d);
    printf("sqrt %s\n", d);
}

int main(int argc, char** argv)
{
    listAll = argc > 1 && strcmp(argv[1], "--all") == 0;
    probeCosf();
    probeCos();
    probeSqrt();
    return 0;
}
