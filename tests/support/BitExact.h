// Shared pieces of the bit-for-bit kernel tests: seeded Gaussian noise to feed every
// instruction-set path, and a comparison of every bit (== would call -0 and 0 equal).
#pragma once

#include <cstring>
#include <random>
#include <vector>

namespace testsupport {

inline std::vector<double> gaussianNoise(int count, unsigned seed)
{
    std::mt19937 generator(seed);
    std::normal_distribution<double> gaussian(0.0, 1.0);
    std::vector<double> x(count);
    for (double& v : x) v = gaussian(generator);
    return x;
}

template <typename T>
bool sameBits(const std::vector<T>& a, const std::vector<T>& b)
{
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(T)) == 0;
}

}  // namespace testsupport
