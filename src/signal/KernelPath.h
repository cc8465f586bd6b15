// The instruction-set paths of the double-precision kernels that pick one at run
// time (the gap filler's Burg and Toeplitz kernels, the impulse search's). Every path
// does the same operations per output in the same order, products and
// sums apart and never fused, so all give the same bits; the vector paths only take
// four (AVX-512: eight) independent lanes at a time. The plain path is always
// available; a kernel without an AVX-512 form runs its AVX2 one on that path.
#pragma once

namespace kernel_paths {

enum class Path { plain, vector, avx2, avx512 };

inline constexpr Path allPaths[] = {Path::plain, Path::vector, Path::avx2, Path::avx512};

// Whether the path may run AVX2 code (AVX-512 processors have it too).
inline bool takesAvx2(Path path) { return path == Path::avx2 || path == Path::avx512; }

bool pathSupported(Path path);
// The widest supported path, detected once.
Path fastestPath();
const char* pathName(Path path);

}  // namespace kernel_paths
