// Sample types of the signal library. Buffers and blocks exist for double, float,
// int and a 64-bit integer; the 64-bit type carries its Windows name everywhere, so
// code reads the same on every platform (there it is the compiler's own type).
#pragma once

#include <cstdint>

#ifndef _WIN32
namespace standardLib {
using __int64 = std::int64_t;
}  // namespace standardLib
#endif
