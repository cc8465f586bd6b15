// The classic 15-bit linear congruential generator behind the dither of the AR
// estimators: state = state * 214013 + 2531011 (mod 2^32), result bits 16..30.
// Each thread has its own state, starting at 1, so concurrent repairs do not
// disturb each other; a thread's sequence continues across calls.
//
// rand is defined here so that the per-sample dither loops inline it: one
// multiply-add on a thread-local word instead of a call per sample. randFill and
// randSkip give the same values and leave the same state as the equivalent run of
// rand calls; they only get there faster.
#pragma once

#include <cstdint>

namespace ferrotip {

inline constexpr int classicRandMax = 32767;

namespace detail {
inline constexpr std::uint32_t classicRandMultiplier = 214013u;
inline constexpr std::uint32_t classicRandIncrement = 2531011u;
// This thread's generator state; one object for the whole program (inline variable).
// Initial-exec on ELF: in a dlopen'ed module (the plug-in, the Python module) the
// default model hands each new thread its block through malloc at the first touch,
// which may be an audio thread's first run(); four bytes fit the static TLS reserve.
#if defined(__ELF__)
[[gnu::tls_model("initial-exec")]]
#endif
inline thread_local std::uint32_t classicRandState = 1;
}  // namespace detail

// Next value, 0 to 32767.
inline int rand() noexcept
{
    std::uint32_t& state = detail::classicRandState;
    state = state * detail::classicRandMultiplier + detail::classicRandIncrement;
    return static_cast<int>((state >> 16) & 0x7fffu);
}

// This thread's generator state: srand(randState()) later resumes the sequence here.
inline std::uint32_t randState() noexcept { return detail::classicRandState; }

// Restarts this thread's sequence; seed 1 gives the sequence of a fresh thread.
void srand(unsigned int seed) noexcept;

// The next count values into values[0 .. count), as count calls of rand give them.
void randFill(int* values, int count) noexcept;

// Moves this thread's sequence on by count values without producing them, in
// O(log count) steps.
void randSkip(std::uint64_t count) noexcept;

}  // namespace ferrotip
