#include "declip/LargestValues.h"

#include <array>
#include <bit>

namespace {

// Moves the values whose byte at `shift` is `bucket` to the front, in order; returns
// how many. Branch-free: which bucket a value falls in is all but random.
int keepBucket(std::uint32_t* values, int count, int shift, unsigned bucket)
{
    int kept = 0;
    for (int i = 0; i < count; ++i) {
        const std::uint32_t bits = values[i];
        values[kept] = bits;
        kept += ((bits >> shift) & 0xffu) == bucket ? 1 : 0;
    }
    return kept;
}

}  // namespace

float kthLargest(const float* values, int count, int k, std::vector<std::uint32_t>& scratch)
{
    if (scratch.size() < static_cast<std::size_t>(count)) scratch.resize(count);
    std::array<int, 256> counts{};
    for (int i = 0; i < count; ++i) {
        const std::uint32_t bits = std::bit_cast<std::uint32_t>(values[i]);
        scratch[i] = bits;
        ++counts[bits >> 24];
    }
    int candidates = count;
    int rank = k;  // rank of the wanted value among the candidates, from the top
    for (int shift = 24;; shift -= 8) {
        unsigned bucket = 255;
        while (counts[bucket] < rank) rank -= counts[bucket--];
        candidates = keepBucket(scratch.data(), candidates, shift, bucket);
        if (shift == 0) break;
        counts.fill(0);
        for (int i = 0; i < candidates; ++i) ++counts[(scratch[i] >> (shift - 8)) & 0xffu];
    }
    return std::bit_cast<float>(scratch[0]);
}
