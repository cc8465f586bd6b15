// Lag kernels of the direct correlation scan: for every lag k in [0, numLags)
//   out[k] = ref[0]*w[k] + ref[1]*w[k+1] + ... + ref[refLen-1]*w[k+refLen-1],
// summed from 0.0f in ascending order of i, every product and every partial sum
// rounded to float, never fused. Every path gives the same bits; the vector paths
// keep one lag per lane and evaluate many lags side by side.
//
// Reads ref[0 .. refLen) and w[0 .. numLags + refLen - 1); writes out[0 .. numLags).
// out must not overlap ref or w. No allocation, no state: any thread may call.
// A vector path may only be called when scanPathSupported() says so.
#pragma once

enum class ScanPath { plain, sse2, avx2, avx512 };

inline constexpr ScanPath allScanPaths[] = {ScanPath::plain, ScanPath::sse2, ScanPath::avx2,
                                            ScanPath::avx512};

// Whether this CPU (and this build) can run the path.
bool scanPathSupported(ScanPath path);

// The widest supported path, detected once.
ScanPath fastestScanPath();

const char* scanPathName(ScanPath path);

void correlateLags(ScanPath path, const float* ref, int refLen, const float* w, float* out,
                   int numLags);

// The plain loop, for any element type: one sequential sum per lag.
template <typename T>
void plainCorrelateLags(const T* ref, int refLen, const T* w, T* out, int numLags)
{
    for (int k = 0; k < numLags; ++k) {
        T sum = 0;
        for (int i = 0; i < refLen; ++i) sum = sum + ref[i] * w[k + i];
        out[k] = sum;
    }
}
