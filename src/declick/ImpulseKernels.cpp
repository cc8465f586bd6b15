#include "declick/ImpulseKernels.h"

#include <algorithm>
#include <array>

#include "signal/VectorLanes.h"

namespace impulse_kernels {
namespace {

using kernel_paths::load;
using kernel_paths::Quad;
using kernel_paths::store;

// Outputs [from, count): eight at a time in an array the compiler keeps in
// registers (SSE2 pairs), the last few one at a time.
void plainErrors(const double* first, const double* model, int order, int direction, double* errors, int from,
                 int count)
{
    constexpr int lanes = 8;
    int i = from;
    for (; i + lanes <= count; i += lanes) {
        std::array<double, lanes> sums{};
        for (int j = 0; j <= order; ++j) {
            const double* shifted = first + i + direction * j;
            for (int lane = 0; lane < lanes; ++lane) sums[lane] += model[j] * shifted[lane];
        }
        std::copy(sums.begin(), sums.end(), errors + i);
    }
    for (; i < count; ++i) {
        double sum = 0.0;
        for (int j = 0; j <= order; ++j) sum += model[j] * first[i + direction * j];
        errors[i] = sum;
    }
}

// Sixteen outputs at a time in four quads, the last few one at a time.
[[gnu::always_inline]] inline void quadErrors(const double* first, const double* model, int order, int direction,
                                              double* errors, int count)
{
    constexpr int quads = 4;
    int i = 0;
    for (; i + 4 * quads <= count; i += 4 * quads) {
        Quad sums[quads] = {};
        for (int j = 0; j <= order; ++j) {
            const Quad coefficient = {model[j], model[j], model[j], model[j]};
            const double* shifted = first + i + direction * j;
            for (int q = 0; q < quads; ++q) {
                Quad y;
                load(y, shifted + 4 * q);
                sums[q] += coefficient * y;
            }
        }
        for (int q = 0; q < quads; ++q) store(errors + i + 4 * q, sums[q]);
    }
    plainErrors(first, model, order, direction, errors, i, count);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void avx2Errors(const double* first, const double* model, int order, int direction,
                                                double* errors, int count)
{
    quadErrors(first, model, order, direction, errors, count);
}
#endif

}  // namespace

void predictionErrors(Path path, const double* first, const double* model, int order, int direction,
                      double* errors, int count)
{
#if defined(__x86_64__)
    if (takesAvx2(path)) return avx2Errors(first, model, order, direction, errors, count);
#endif
    plainErrors(first, model, order, direction, errors, 0, count);
}

}  // namespace impulse_kernels
