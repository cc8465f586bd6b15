// Fixed and size-derived tables of the power-of-two transforms.
//
// bitReverseByte[i] is the 8-bit reversal of i; it limits the bit-reversal pass to
// graphs of at most 2^19 complex points. powerOfTwo[e] is 2^e for e = 0..20.
//
// The cosine table of a transform of N points holds N/4 + 1 entries,
// U[i] = cos(i * 6.283185307179586 / N) computed in double and rounded once to T;
// read backward it is the sine table, sin(2*pi*j/N) = U[N/4 - j]. U[N/4] is the
// computed cosine of the rounded quarter turn, not an exact 0.
//
// The builders write log2(size) (rounded logarithm) to *log2Size, then return 0 and
// fill table[0..size/4] when size is a power of two with log2 in the accepted range
// (complex 3..19, real 4..20), or return 1 and leave table untouched. They do not
// allocate; table must hold size/4 + 1 elements. Thread-safe on distinct tables.
#pragma once

#include <array>
#include <cstdint>

namespace standardLib {

inline constexpr std::array<std::uint8_t, 256> bitReverseByte = [] {
    std::array<std::uint8_t, 256> table{};
    for (int i = 0; i < 256; ++i) {
        int reversed = 0;
        for (int bit = 0; bit < 8; ++bit)
            reversed |= ((i >> bit) & 1) << (7 - bit);
        table[i] = static_cast<std::uint8_t>(reversed);
    }
    return table;
}();

inline constexpr std::array<std::int32_t, 21> powerOfTwo = [] {
    std::array<std::int32_t, 21> table{};
    for (int e = 0; e < 21; ++e)
        table[e] = std::int32_t{1} << e;
    return table;
}();

// Tables for the complex kernels: accepts 8 .. 2^19 points.
template <typename T>
int buildComplexCosTable(int* log2Size, int size, T* table);

// Tables for the real kernels (and the objects, which serve both): accepts 16 .. 2^20.
template <typename T>
int buildRealCosTable(int* log2Size, int size, T* table);

}  // namespace standardLib
