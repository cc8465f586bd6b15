// Four or eight doubles as one generic vector, which the compiler lowers for the
// instruction set of the function it is inlined into: a quad takes two SSE2
// registers or one AVX2 register, an oct one AVX-512 register. Vectors pass by
// reference only: returned by value they would take an ABI that differs between the
// instruction sets. Header-only, no state.
#pragma once

#include <cstring>

namespace kernel_paths {

typedef double Quad __attribute__((vector_size(4 * sizeof(double))));
typedef long long QuadIndex __attribute__((vector_size(4 * sizeof(long long))));
typedef double Oct __attribute__((vector_size(8 * sizeof(double))));
typedef long long OctIndex __attribute__((vector_size(8 * sizeof(long long))));

template <typename Vector>
inline constexpr int lanesOf = sizeof(Vector) / sizeof(double);

template <typename Vector>
[[gnu::always_inline]] inline void load(Vector& v, const double* p)
{
    std::memcpy(&v, p, sizeof v);
}

template <typename Vector>
[[gnu::always_inline]] inline void store(double* p, const Vector& v)
{
    std::memcpy(p, &v, sizeof v);
}

template <typename Vector>
[[gnu::always_inline]] inline void broadcast(Vector& v, double x)
{
    for (int lane = 0; lane < lanesOf<Vector>; ++lane) v[lane] = x;
}

// The lanes in reverse order.
[[gnu::always_inline]] inline void reverse(Quad& v) { v = __builtin_shuffle(v, QuadIndex{3, 2, 1, 0}); }
[[gnu::always_inline]] inline void reverse(Oct& v) { v = __builtin_shuffle(v, OctIndex{7, 6, 5, 4, 3, 2, 1, 0}); }

// p[lanes - 1], ..., p[1], p[0].
template <typename Vector>
[[gnu::always_inline]] inline void loadReversed(Vector& v, const double* p)
{
    load(v, p);
    reverse(v);
}

}  // namespace kernel_paths
