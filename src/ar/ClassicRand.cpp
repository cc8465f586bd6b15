#include "ar/ClassicRand.h"

namespace ferrotip {

namespace {

// The generator step x -> a x + c (mod 2^32) and its compositions: n steps are
// again such a map, so the sequence can run in interleaved lanes or jump ahead
// with exact integer arithmetic.
struct AffineStep {
    std::uint32_t a;
    std::uint32_t c;
};

constexpr AffineStep oneStep{detail::classicRandMultiplier, detail::classicRandIncrement};

// `first` followed by `second`.
constexpr AffineStep then(AffineStep first, AffineStep second)
{
    return {second.a * first.a, second.a * first.c + second.c};
}

constexpr AffineStep steps(std::uint64_t count)
{
    AffineStep result{1u, 0u};
    AffineStep power = oneStep;
    while (count != 0) {
        if ((count & 1u) != 0) result = then(result, power);
        power = then(power, power);
        count >>= 1;
    }
    return result;
}

constexpr int value(std::uint32_t state) { return static_cast<int>((state >> 16) & 0x7fffu); }

constexpr int lanes = 8;
constexpr AffineStep laneStep = steps(lanes);

}  // namespace

void srand(unsigned int seed) noexcept { detail::classicRandState = seed; }

void randFill(int* values, int count) noexcept
{
    std::uint32_t state = detail::classicRandState;
    int k = 0;
    if (count >= lanes) {
        // Lane j carries the states of values j, j + 8, j + 16, ...: eight
        // independent multiply-adds per step instead of one long chain.
        std::uint32_t lane[lanes];
        for (int j = 0; j < lanes; ++j) {
            state = state * oneStep.a + oneStep.c;
            lane[j] = state;
        }
        for (; k + lanes <= count; k += lanes) {
            for (int j = 0; j < lanes; ++j) values[k + j] = value(lane[j]);
            state = lane[lanes - 1];
            for (int j = 0; j < lanes; ++j) lane[j] = lane[j] * laneStep.a + laneStep.c;
        }
    }
    for (; k < count; ++k) {
        state = state * oneStep.a + oneStep.c;
        values[k] = value(state);
    }
    detail::classicRandState = state;
}

void randSkip(std::uint64_t count) noexcept
{
    const AffineStep jump = steps(count);
    detail::classicRandState = detail::classicRandState * jump.a + jump.c;
}

}  // namespace ferrotip
