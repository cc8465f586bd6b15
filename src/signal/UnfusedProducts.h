// Differences of products that stay two roundings apart under every compiler target.
//
// GCC's SLP vectoriser turns lanes that alternate a*b + c*d and a*b - c*d (complex
// products, rotations) into fused vfmaddsub/vfmsubadd on FMA targets, even with
// contraction off. Written as a*b + negatedProduct(c, d), every lane is an addition
// and no such pattern exists; the sign flip is exact, so the result has the bits of
// a*b - c*d (IEEE defines x - y as x + (-y)). Pure, header-only, no allocation.
#pragma once

#include <bit>
#include <cstdint>
#include <type_traits>

namespace standardLib {

// -(a * b), the product rounded once and its sign bit flipped.
template <typename T>
inline T negatedProduct(T a, T b) noexcept
{
    static_assert(std::is_same_v<T, float> || std::is_same_v<T, double>);
    using Bits = std::conditional_t<sizeof(T) == 8, std::uint64_t, std::uint32_t>;
    constexpr Bits signBit = Bits{1} << (8 * sizeof(T) - 1);
    return std::bit_cast<T>(std::bit_cast<Bits>(a * b) ^ signBit);
}

}  // namespace standardLib
