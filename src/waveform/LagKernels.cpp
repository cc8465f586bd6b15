#include "waveform/LagKernels.h"

#include <cstring>
#include <initializer_list>

namespace {

#if defined(__x86_64__)
#define FERROTIP_X86_64 1

// A vector of Width lanes, one lag per lane. The generic vector type is lowered by
// the compiler for the instruction set of the function it is inlined into, so one
// body serves SSE2 (4 lanes), AVX2 (8) and AVX-512 (16). Products and sums are
// separate operations; with contraction off they are never fused.
template <int Width>
struct Lanes {
    typedef float type __attribute__((vector_size(Width * sizeof(float))));
};

// Rows vectors of consecutive lags, Rows * Width lags in all, one tap at a time.
// Several independent accumulators keep the adders busy while each lane's own sum
// stays strictly sequential in i.
template <int Width, int Rows>
[[gnu::always_inline]] inline void lagBlock(const float* ref, int refLen, const float* w,
                                            float* out)
{
    using Vector = typename Lanes<Width>::type;
    Vector sums[Rows];
#pragma GCC unroll 16
    for (int r = 0; r < Rows; ++r) sums[r] = Vector{};
    for (int i = 0; i < refLen; ++i) {
        const float tap = ref[i];
#pragma GCC unroll 16
        for (int r = 0; r < Rows; ++r) {
            Vector window;
            std::memcpy(&window, w + r * Width + i, sizeof window);
            const Vector product = tap * window;
            sums[r] = sums[r] + product;
        }
    }
#pragma GCC unroll 16
    for (int r = 0; r < Rows; ++r) std::memcpy(out + r * Width, &sums[r], sizeof sums[r]);
}

// Wide blocks first, then single vectors, then the last few lags one by one.
template <int Width, int Rows>
[[gnu::always_inline]] inline void vectorLags(const float* ref, int refLen, const float* w,
                                              float* out, int numLags)
{
    int k = 0;
    for (; k + Rows * Width <= numLags; k += Rows * Width)
        lagBlock<Width, Rows>(ref, refLen, w + k, out + k);
    for (; k + Width <= numLags; k += Width) lagBlock<Width, 1>(ref, refLen, w + k, out + k);
    plainCorrelateLags(ref, refLen, w + k, out + k, numLags - k);
}

// Eight accumulators cover the add latency on every path; AVX-512 has the
// registers for more, which measured no faster.
constexpr int blockRows = 8;

void sse2Lags(const float* ref, int refLen, const float* w, float* out, int numLags)
{
    vectorLags<4, blockRows>(ref, refLen, w, out, numLags);
}

__attribute__((target("avx2"))) void avx2Lags(const float* ref, int refLen, const float* w,
                                              float* out, int numLags)
{
    vectorLags<8, blockRows>(ref, refLen, w, out, numLags);
}

__attribute__((target("avx512f"))) void avx512Lags(const float* ref, int refLen, const float* w,
                                                   float* out, int numLags)
{
    vectorLags<16, blockRows>(ref, refLen, w, out, numLags);
}
#endif

ScanPath detectFastestPath()
{
    for (ScanPath path : {ScanPath::avx512, ScanPath::avx2, ScanPath::sse2})
        if (scanPathSupported(path)) return path;
    return ScanPath::plain;
}

}  // namespace

bool scanPathSupported(ScanPath path)
{
#ifdef FERROTIP_X86_64
    __builtin_cpu_init();  // callable before static constructors have run
#endif
    switch (path) {
    case ScanPath::plain: return true;
#ifdef FERROTIP_X86_64
    case ScanPath::sse2: return true;  // part of the x86-64 baseline
    case ScanPath::avx2: return __builtin_cpu_supports("avx2");
    case ScanPath::avx512: return __builtin_cpu_supports("avx512f");
#endif
    default: return false;
    }
}

ScanPath fastestScanPath()
{
    static const ScanPath fastest = detectFastestPath();
    return fastest;
}

const char* scanPathName(ScanPath path)
{
    switch (path) {
    case ScanPath::plain: return "plain";
    case ScanPath::sse2: return "sse2";
    case ScanPath::avx2: return "avx2";
    case ScanPath::avx512: return "avx512";
    }
    return "unknown";
}

void correlateLags(ScanPath path, const float* ref, int refLen, const float* w, float* out,
                   int numLags)
{
    switch (path) {
#ifdef FERROTIP_X86_64
    case ScanPath::sse2: sse2Lags(ref, refLen, w, out, numLags); return;
    case ScanPath::avx2: avx2Lags(ref, refLen, w, out, numLags); return;
    case ScanPath::avx512: avx512Lags(ref, refLen, w, out, numLags); return;
#endif
    default: plainCorrelateLags(ref, refLen, w, out, numLags); return;
    }
}
