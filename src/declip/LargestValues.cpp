#include "declip/LargestValues.h"

#include <array>
#include <bit>

float kthLargest(const float* values, int count, int k, std::vector<std::uint32_t>& scratch)
{
    if (scratch.size() < static_cast<std::size_t>(count)) scratch.resize(count);
    for (int i = 0; i < count; ++i) scratch[i] = std::bit_cast<std::uint32_t>(values[i]);
    int candidates = count;
    int rank = k;  // rank of the wanted value among the candidates, from the top
    for (int shift = 24; shift >= 0; shift -= 8) {
        std::array<int, 256> counts{};
        for (int i = 0; i < candidates; ++i) ++counts[(scratch[i] >> shift) & 0xffu];
        unsigned bucket = 255;
        while (counts[bucket] < rank) rank -= counts[bucket--];
        int kept = 0;
        for (int i = 0; i < candidates; ++i)
            if (((scratch[i] >> shift) & 0xffu) == bucket) scratch[kept++] = scratch[i];
        candidates = kept;
    }
    return std::bit_cast<float>(scratch[0]);
}
