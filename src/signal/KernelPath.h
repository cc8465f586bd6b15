// The instruction-set paths of the double-precision kernels that pick one at run
// time (the gap filler's Burg and Toeplitz kernels, the impulse search's). Every path
// does the same operations per output in the same order, products and
// sums apart and never fused, so all give the same bits; the vector paths only take
// four independent lanes at a time. The plain path is always available.
#pragma once

namespace kernel_paths {

enum class Path { plain, vector, avx2 };

inline constexpr Path allPaths[] = {Path::plain, Path::vector, Path::avx2};

bool pathSupported(Path path);
// The widest supported path, detected once.
Path fastestPath();
const char* pathName(Path path);

}  // namespace kernel_paths
