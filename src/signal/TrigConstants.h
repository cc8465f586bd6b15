// Bits of 2/pi and pi/2 for the argument reductions of the cosine and sine: 32 bits
// to a word, most significant first, starting right after the binary point
// (2/pi = 0.a2f9836e..., pi/2 = 1.921fb544...). 2560 bits of 2/pi cover the exponent
// of the largest finite double, the 53 bits of its significand and a 1088-bit
// fraction; 1152 bits of pi/2 cover the widest fixed-point evaluation.
#pragma once

#include <cstdint>
#include <iterator>

namespace standardLib::trig {

inline constexpr std::uint32_t twoOverPiBits[] = {
    0xa2f9836e, 0x4e441529, 0xfc2757d1, 0xf534ddc0, 0xdb629599, 0x3c439041,
    0xfe5163ab, 0xdebbc561, 0xb7246e3a, 0x424dd2e0, 0x06492eea, 0x09d1921c,
    0xfe1deb1c, 0xb129a73e, 0xe88235f5, 0x2ebb4484, 0xe99c7026, 0xb45f7e41,
    0x3991d639, 0x835339f4, 0x9c845f8b, 0xbdf9283b, 0x1ff897ff, 0xde05980f,
    0xef2f118b, 0x5a0a6d1f, 0x6d367ecf, 0x27cb09b7, 0x4f463f66, 0x9e5fea2d,
    0x7527bac7, 0xebe5f17b, 0x3d0739f7, 0x8a5292ea, 0x6bfb5fb1, 0x1f8d5d08,
    0x56033046, 0xfc7b6bab, 0xf0cfbc20, 0x9af4361d, 0xa9e39161, 0x5ee61b08,
    0x6599855f, 0x14a06840, 0x8dffd880, 0x4d732731, 0x06061556, 0xca73a8c9,
    0x60e27bc0, 0x8c6b47c4, 0x19c367cd, 0xdce8092a, 0x8359c476, 0x8b961ca6,
    0xddaf44d1, 0x5719053e, 0xa5ff0705, 0x3f7e33e8, 0x32c2de4f, 0x98327dbb,
    0xc33d26ef, 0x6b1e5ef8, 0x9f3a1f35, 0xcaf27f1d, 0x87f12190, 0x7c7c246a,
    0xfa6ed577, 0x2d30433b, 0x15c614b5, 0x9d19c3c2, 0xc4ad414d, 0x2c5d000c,
    0x467d862d, 0x71e39ac6, 0x9b006233, 0x7cd2b497, 0xa7b4d555, 0x37f63ed7,
    0x1810a3fc, 0x764d2a9d,
};

// The fraction of pi/2; its integer part is 1.
inline constexpr std::uint32_t halfPiFractionBits[] = {
    0x921fb544, 0x42d18469, 0x898cc517, 0x01b839a2, 0x52049c11, 0x14cf98e8,
    0x04177d4c, 0x76273644, 0xa29410f3, 0x1c6809bb, 0xdf2a3367, 0x9a748636,
    0x605614db, 0xe4be286e, 0x9fc26ada, 0xdaa3848b, 0xc90b6aec, 0xc4bcfd8d,
    0xe89885d3, 0x4c6fdad6, 0x17feb96d, 0xe80d6fdb, 0xdc70d7f6, 0xb5133f4b,
    0x5d3e4822, 0xf8963fcc, 0x9250cca3, 0xd9c8b67b, 0x8400f971, 0x42c77e0b,
    0x31b4906c, 0x38aba734, 0xd22c7f51, 0xfa499ebf, 0x06caba47, 0xb9475b2c,
};

inline constexpr int twoOverPiBitCount = 32 * static_cast<int>(std::size(twoOverPiBits));

// Bit j of 2/pi, j = 1 for the first bit after the point; 0 outside the table.
constexpr std::uint32_t twoOverPiBit(int j)
{
    if (j < 1 || j > twoOverPiBitCount) return 0;
    return (twoOverPiBits[(j - 1) / 32] >> (31 - (j - 1) % 32)) & 1u;
}

}  // namespace standardLib::trig
