// Test support for the transform kernels and objects: seeded inputs, tables, the
// accuracy measure against the long-double DFT, and the error bound.
//
// Accuracy is measured relative to the signal's norm: for the checked outputs y_i
// (every output up to 2049 outputs, else a fixed sample of 32 bins),
//   rms = sqrt(mean |y_i - ref_i|^2) / R,   max = max |y_i - ref_i| / R,
// where R = sqrt(mean over ALL outputs of |ref|^2) comes from Parseval's relation
// applied to the input, in long double.
//
// Bound. A radix-2 graph of log2(N) levels gives each output a chain of log2(N)
// butterflies; each adds a relative error of a few unit roundoffs u (three or four
// roundings in the chain, one in 2a - t, the table's own rounding), and the errors of
// the levels add up independently. We assert
//   rms <= 0.75 * u * log2(N),   max <= 2.5 * u * log2(N),
// (u = 2^-24 for float, 2^-53 for double): 4.5e-7 rms and 1.5e-6 max for float at
// N = 1024, 8.3e-16 and 2.8e-15 for double. Measured over all sizes with these
// seeds: rms 0.14 to 0.50 and max 0.32 to 1.46 in units of u * log2(N); the max
// bound is wider because the largest of up to 2049 roughly Gaussian errors reaches
// about four times their rms.
#pragma once

#include "signal/DirectDft.h"
#include "signal/FftTables.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <random>
#include <vector>

namespace ferrotip_test {

template <typename T>
inline constexpr long double unitRoundoff = std::numeric_limits<T>::epsilon() / 2;

inline constexpr long double rmsFactor = 0.75L;
inline constexpr long double maxFactor = 2.5L;

template <typename T>
long double rmsBound(int log2Size) {
    return rmsFactor * unitRoundoff<T> * log2Size;
}

template <typename T>
long double maxBound(int log2Size) {
    return maxFactor * unitRoundoff<T> * log2Size;
}

// count values uniform in [-1, 1) from a seeded generator.
template <typename T>
std::vector<T> randomValues(std::size_t count, std::uint32_t seed) {
    std::mt19937 generator(seed);
    std::uniform_real_distribution<double> uniform(-1.0, 1.0);
    std::vector<T> values(count);
    for (T& v : values)
        v = static_cast<T>(uniform(generator));
    return values;
}

// Relative rms difference between two arrays of equal length, in long double.
template <typename T>
long double relativeRmsDifference(const std::vector<T>& got, const std::vector<T>& want) {
    long double error = 0.0L;
    long double norm = 0.0L;
    for (std::size_t i = 0; i < got.size(); ++i) {
        const long double d = static_cast<long double>(got[i]) - want[i];
        error += d * d;
        norm += static_cast<long double>(want[i]) * want[i];
    }
    return std::sqrt(error / norm);
}

template <typename T>
std::vector<T> realTable(int n) {
    std::vector<T> table(static_cast<std::size_t>(n / 4 + 1));
    int log2Size = 0;
    standardLib::buildRealCosTable<T>(&log2Size, n, table.data());
    return table;
}

template <typename T>
std::vector<T> complexTable(int n) {
    std::vector<T> table(static_cast<std::size_t>(n / 4 + 1));
    int log2Size = 0;
    standardLib::buildComplexCosTable<T>(&log2Size, n, table.data());
    return table;
}

// Every index below count when count <= fullCheckLimit; otherwise the special indices given
// and a fixed pseudo-random sample, sampledCount in all.
inline constexpr int fullCheckLimit = 2049;
inline constexpr std::size_t sampledCount = 32;

inline std::vector<int> checkedIndices(int count, std::vector<int> specials) {
    std::vector<int> indices;
    if (count <= fullCheckLimit) {
        for (int i = 0; i < count; ++i)
            indices.push_back(i);
        return indices;
    }
    indices = std::move(specials);
    std::mt19937 generator(12345u);
    std::uniform_int_distribution<int> pick(0, count - 1);
    while (indices.size() < sampledCount)
        indices.push_back(pick(generator));
    return indices;
}

struct ErrorStats {
    long double rms = 0.0L;
    long double max = 0.0L;
};

// Accumulates |y - ref|^2 over the checked outputs.
class ErrorMeter {
public:
    explicit ErrorMeter(long double referenceRms) : referenceRms_(referenceRms) {}
    void add(LongComplex got, LongComplex want) {
        const long double e = std::abs(got - want);
        sumSquares_ += e * e;
        max_ = std::max(max_, e);
        ++count_;
    }
    ErrorStats stats() const {
        return {std::sqrt(sumSquares_ / count_) / referenceRms_, max_ / referenceRms_};
    }

private:
    long double referenceRms_;
    long double sumSquares_ = 0.0L;
    long double max_ = 0.0L;
    long count_ = 0;
};

}  // namespace ferrotip_test
