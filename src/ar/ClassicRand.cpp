#include "ar/ClassicRand.h"

#include <cstdint>

namespace ferrotip {

namespace {
thread_local std::uint32_t state = 1;
}

int rand() noexcept
{
    state = state * 214013u + 2531011u;
    return static_cast<int>((state >> 16) & 0x7fffu);
}

void srand(unsigned int seed) noexcept { state = seed; }

}  // namespace ferrotip
