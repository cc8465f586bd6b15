// Four doubles as one generic vector, which the compiler lowers for the instruction
// set of the function it is inlined into (two SSE2 registers, one AVX2 register).
// Quads pass by reference only: returned by value they would take an ABI that
// differs between the instruction sets. Header-only, no state.
#pragma once

#include <cstring>

namespace kernel_paths {

typedef double Quad __attribute__((vector_size(4 * sizeof(double))));
typedef long long QuadIndex __attribute__((vector_size(4 * sizeof(long long))));

[[gnu::always_inline]] inline void load(Quad& v, const double* p) { std::memcpy(&v, p, sizeof v); }

[[gnu::always_inline]] inline void store(double* p, const Quad& v) { std::memcpy(p, &v, sizeof v); }

// p[3], p[2], p[1], p[0].
[[gnu::always_inline]] inline void loadReversed(Quad& v, const double* p)
{
    Quad forward;
    load(forward, p);
    v = __builtin_shuffle(forward, QuadIndex{3, 2, 1, 0});
}

}  // namespace kernel_paths
