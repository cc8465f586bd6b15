#include "signal/FftTables.h"

#include <cmath>

#include "signal/PortableCosine.h"

namespace standardLib {
namespace {

// Rounded log2 through natural logarithms. A non-positive size has no logarithm;
// it is reported as 0, which every builder refuses.
int roundedLog2(int size) {
    if (size <= 0)
        return 0;
    return static_cast<int>(std::log(static_cast<double>(size)) / std::log(2.0) + 0.5);
}

// 2^exponent by repeated squaring in double, rounded to an integer.
long long powerOfTwoBySquaring(int exponent) {
    double result = 1.0;
    double base = 2.0;
    for (int e = exponent; e > 0; e >>= 1) {
        if (e & 1)
            result *= base;
        base *= base;
    }
    return static_cast<long long>(result + 0.5);
}

template <typename T>
int buildCosTable(int* log2Size, int size, T* table, int minLog2, int maxLog2) {
    const int m = roundedLog2(size);
    *log2Size = m;
    if (m < minLog2 || m > maxLog2)
        return 1;
    if (powerOfTwoBySquaring(m) != size)
        return 1;
    const int quarter = size / 4;
    for (int i = 0; i <= quarter; ++i)
        table[i] = static_cast<T>(cosine(static_cast<double>(i) * 6.283185307179586 / size));
    return 0;
}

}  // namespace

template <typename T>
int buildComplexCosTable(int* log2Size, int size, T* table) {
    return buildCosTable(log2Size, size, table, 3, 19);
}

template <typename T>
int buildRealCosTable(int* log2Size, int size, T* table) {
    return buildCosTable(log2Size, size, table, 4, 20);
}

template int buildComplexCosTable<float>(int*, int, float*);
template int buildComplexCosTable<double>(int*, int, double*);
template int buildRealCosTable<float>(int*, int, float*);
template int buildRealCosTable<double>(int*, int, double*);

}  // namespace standardLib
