// Helpers shared by the declippers' tests (Declipper, ArDeclipper): restoring in
// pieces as a streaming caller does, and the check that a restoration changes only
// clipped samples and keeps each at or beyond its level, with its run's sign.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <vector>

#include "declip/ClipLevels.h"

namespace declipchecks {

// Restores clipped[from, to) as a streaming caller does, from a window that holds the
// declipper's context on each side, and appends it to `joined`.
template <typename AnyDeclipper>
void restorePiece(AnyDeclipper& declipper, const std::vector<float>& clipped, ClipLevels levels, std::int64_t from,
                  std::int64_t to, std::vector<float>& joined)
{
    const auto length = static_cast<std::int64_t>(clipped.size());
    const std::int64_t begin = std::max<std::int64_t>(0, from - declipper.context());
    const std::int64_t end = std::min<std::int64_t>(length, to + declipper.context());
    std::vector<float> out(to - from);
    declipper.restore(clipped.data() + begin, end - begin, begin, levels, from - begin, to - begin, out.data());
    joined.insert(joined.end(), out.begin(), out.end());
}

// Restores `clipped` in pieces of `piece` samples, each with the declipper's context.
template <typename AnyDeclipper>
std::vector<float> restoreInPieces(AnyDeclipper& declipper, const std::vector<float>& clipped, ClipLevels levels,
                                   std::int64_t piece)
{
    const auto length = static_cast<std::int64_t>(clipped.size());
    std::vector<float> joined;
    for (std::int64_t from = 0; from < length; from += piece)
        restorePiece(declipper, clipped, levels, from, std::min<std::int64_t>(length, from + piece), joined);
    return joined;
}

inline void expectConsistent(const std::vector<float>& restored, const std::vector<float>& clipped, ClipLevels levels)
{
    ASSERT_EQ(restored.size(), clipped.size());
    for (std::size_t n = 0; n < clipped.size(); ++n) {
        const int sign = levels.sign(clipped[n]);
        if (sign == 0) {
            EXPECT_EQ(restored[n], clipped[n]) << n;
        }
        if (sign > 0) {
            EXPECT_GE(restored[n], levels.positive) << n;
        }
        if (sign < 0) {
            EXPECT_LE(restored[n], -levels.negative) << n;
        }
    }
}

}  // namespace declipchecks
