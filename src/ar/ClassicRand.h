// The classic 15-bit linear congruential generator behind the dither of the AR
// estimators: state = state * 214013 + 2531011 (mod 2^32), result bits 16..30.
// Each thread has its own state, starting at 1, so concurrent repairs do not
// disturb each other; a thread's sequence continues across calls.
#pragma once

namespace ferrotip {

inline constexpr int classicRandMax = 32767;

// Next value, 0 to 32767.
int rand() noexcept;

// Restarts this thread's sequence; seed 1 gives the sequence of a fresh thread.
void srand(unsigned int seed) noexcept;

}  // namespace ferrotip
