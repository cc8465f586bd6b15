#include "inpaint/BorderKernels.h"

#include "signal/VectorLanes.h"

namespace inpaint_kernels {

using namespace kernel_paths;
namespace {

// The first sample of a side of the hole's borders.
inline int sideStart(int side, int hole, int length, int border) { return side == 0 ? hole - border : hole + length; }

void plainBorderSums(const float* const* channels, int channelCount, int hole, int length, int border, int firstShift,
                     int count, double* product, double* energy)
{
    for (int i = 0; i < count; ++i) {
        double p = 0.0, e = 0.0;
        for (int c = 0; c < channelCount; ++c) {
            const float* x = channels[c];
            for (int side = 0; side < 2; ++side) {
                const int first = sideStart(side, hole, length, border);
                for (int t = first; t < first + border; ++t) {
                    const double y = x[t + firstShift + i];
                    p += static_cast<double>(x[t]) * y;
                    e += y * y;
                }
            }
        }
        product[i] = p;
        energy[i] = e;
    }
}

typedef float FloatQuad __attribute__((vector_size(4 * sizeof(float))));
typedef float FloatOct __attribute__((vector_size(8 * sizeof(float))));

// Eight shifts at once as two quads (AVX-512: one oct), each lane its own shift's sums.
template <typename Vector, typename Floats>
[[gnu::always_inline]] inline void lanesBorderSums(const float* const* channels, int channelCount, int hole,
                                                   int length, int border, int firstShift, double* product,
                                                   double* energy)
{
    constexpr int lanes = lanesOf<Vector>, groups = borderShiftLanes / lanes;
    Vector p[groups] = {}, e[groups] = {};
    for (int c = 0; c < channelCount; ++c) {
        const float* x = channels[c];
        for (int side = 0; side < 2; ++side) {
            const int first = sideStart(side, hole, length, border);
            for (int t = first; t < first + border; ++t) {
                Vector xt;
                broadcast(xt, static_cast<double>(x[t]));
                for (int g = 0; g < groups; ++g) {
                    Floats raw;
                    std::memcpy(&raw, x + t + firstShift + g * lanes, sizeof raw);
                    const Vector y = __builtin_convertvector(raw, Vector);
                    p[g] = p[g] + xt * y;
                    e[g] = e[g] + y * y;
                }
            }
        }
    }
    for (int g = 0; g < groups; ++g) {
        store(product + g * lanes, p[g]);
        store(energy + g * lanes, e[g]);
    }
}

void vectorBorderSums(const float* const* channels, int channelCount, int hole, int length, int border,
                      int firstShift, double* product, double* energy)
{
    lanesBorderSums<Quad, FloatQuad>(channels, channelCount, hole, length, border, firstShift, product, energy);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void avx2BorderSums(const float* const* channels, int channelCount, int hole,
                                                    int length, int border, int firstShift, double* product,
                                                    double* energy)
{
    lanesBorderSums<Quad, FloatQuad>(channels, channelCount, hole, length, border, firstShift, product, energy);
}

__attribute__((target("avx512f"))) void avx512BorderSums(const float* const* channels, int channelCount, int hole,
                                                         int length, int border, int firstShift, double* product,
                                                         double* energy)
{
    lanesBorderSums<Oct, FloatOct>(channels, channelCount, hole, length, border, firstShift, product, energy);
}
#endif

}  // namespace

void borderSums(Path path, const float* const* channels, int channelCount, int hole, int length, int border,
                int firstShift, int count, double* product, double* energy)
{
    if (count < borderShiftLanes || path == Path::plain)
        return plainBorderSums(channels, channelCount, hole, length, border, firstShift, count, product, energy);
#if defined(__x86_64__)
    if (path == Path::avx512)
        return avx512BorderSums(channels, channelCount, hole, length, border, firstShift, product, energy);
    if (path == Path::avx2)
        return avx2BorderSums(channels, channelCount, hole, length, border, firstShift, product, energy);
#endif
    vectorBorderSums(channels, channelCount, hole, length, border, firstShift, product, energy);
}

}  // namespace inpaint_kernels
