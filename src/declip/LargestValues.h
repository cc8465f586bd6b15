// The k-th largest of a set of non-negative floats, by radix selection on their bit
// patterns (which order non-negative floats as unsigned integers): four passes of
// 256 buckets, each over the values that share the prefix found so far. Exact: it
// returns the same value as a full sort would, whatever the ties, so a threshold
// taken from it keeps the same bins on every platform.
//
// values: `count` finite floats >= 0; 1 <= k <= count. `scratch` grows to `count`
// on the first call with a larger set and does not allocate afterwards.
#pragma once

#include <cstdint>
#include <vector>

float kthLargest(const float* values, int count, int k, std::vector<std::uint32_t>& scratch);
