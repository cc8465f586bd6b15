// Eight doubles as one generic vector, for functions built for AVX-512 (one zmm
// register): the eight partial sums that the quad paths keep in two quads, in one.
// Octs pass by reference only, as quads do. Header-only, no state.
#pragma once

#include <cstring>

namespace kernel_paths {

typedef double Oct __attribute__((vector_size(8 * sizeof(double))));
typedef long long OctIndex __attribute__((vector_size(8 * sizeof(long long))));

[[gnu::always_inline]] inline void load(Oct& v, const double* p) { std::memcpy(&v, p, sizeof v); }

[[gnu::always_inline]] inline void store(double* p, const Oct& v) { std::memcpy(p, &v, sizeof v); }

// p[7], p[6], ..., p[0].
[[gnu::always_inline]] inline void loadReversed(Oct& v, const double* p)
{
    Oct forward;
    load(forward, p);
    v = __builtin_shuffle(forward, OctIndex{7, 6, 5, 4, 3, 2, 1, 0});
}

}  // namespace kernel_paths
