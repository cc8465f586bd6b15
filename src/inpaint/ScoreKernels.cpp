#include "inpaint/ScoreKernels.h"

#include <cmath>

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include "signal/VectorLanes.h"

namespace inpaint_kernels {

using namespace kernel_paths;
namespace {

void plainScores(double* work, const double* energy, int u, int to, int length, int border, double templateEnergy)
{
    for (; u < to; ++u) {
        const double e = (energy[u + border] - energy[u]) +
                         (energy[u + 2 * border + length] - energy[u + border + length]);
        work[u] = e > 1e-12 * templateEnergy ? work[u] / std::sqrt(e * templateEnergy) : 0.0;
    }
}

#if defined(__x86_64__)
__attribute__((target("avx512f"))) void avx512Scores(double* work, const double* energy, int from, int to,
                                                      int length, int border, double templateEnergy)
{
    Oct threshold, total;
    broadcast(threshold, 1e-12 * templateEnergy);
    broadcast(total, templateEnergy);
    const Oct zero = {};
    int u = from;
    for (; u + 8 <= to; u += 8) {
        Oct a, b, c, d, w;
        load(a, energy + u);
        load(b, energy + u + border);
        load(c, energy + u + border + length);
        load(d, energy + u + 2 * border + length);
        load(w, work + u);
        const Oct e = (b - a) + (d - c);
        const Oct scaled = e * total;
        const Oct root = static_cast<Oct>(_mm512_maskz_sqrt_pd(0xff, static_cast<__m512d>(scaled)));
        const Oct score = e > threshold ? w / root : zero;
        store(work + u, score);
    }
    plainScores(work, energy, u, to, length, border, templateEnergy);
}
#endif

}  // namespace

void normaliseScores(Path path, double* work, const double* energy, int from, int to, int length, int border,
                     double templateEnergy)
{
#if defined(__x86_64__)
    if (path == Path::avx512) return avx512Scores(work, energy, from, to, length, border, templateEnergy);
#endif
    plainScores(work, energy, from, to, length, border, templateEnergy);
}

}  // namespace inpaint_kernels
