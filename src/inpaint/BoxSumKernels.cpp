#include "inpaint/BoxSumKernels.h"

#include <cstring>

#include "signal/VectorLanes.h"

namespace inpaint_kernels {

using namespace kernel_paths;
namespace {

constexpr int group = 8;

// Blocks from m on, eight at a time in independent chains, then one at a time.
void plainBoxSums(const float* x, int m, int count, int h, double* blocks)
{
    for (; m + group <= count; m += group) {
        double sums[group] = {};
        for (int j = 0; j < h; ++j)
            for (int i = 0; i < group; ++i) sums[i] += x[(m + i) * h + j];
        for (int i = 0; i < group; ++i) blocks[m + i] += sums[i];
    }
    for (; m < count; ++m) {
        double sum = 0.0;
        for (int j = 0; j < h; ++j) sum += x[m * h + j];
        blocks[m] += sum;
    }
}

#if defined(__x86_64__)
typedef float FloatOct __attribute__((vector_size(8 * sizeof(float))));

// The 8 x 8 tile of rows r[i] (lane j: sample j of block i) as columns c[j] (lane i).
[[gnu::always_inline]] inline void transpose(const Oct* r, Oct* c)
{
    const OctIndex evens = {0, 8, 2, 10, 4, 12, 6, 14}, odds = {1, 9, 3, 11, 5, 13, 7, 15};
    const OctIndex lowPairs = {0, 1, 8, 9, 4, 5, 12, 13}, highPairs = {2, 3, 10, 11, 6, 7, 14, 15};
    const OctIndex lowQuads = {0, 1, 2, 3, 8, 9, 10, 11}, highQuads = {4, 5, 6, 7, 12, 13, 14, 15};
    Oct t[8], u[8];
    for (int i = 0; i < 8; i += 2) {
        t[i] = __builtin_shuffle(r[i], r[i + 1], evens);
        t[i + 1] = __builtin_shuffle(r[i], r[i + 1], odds);
    }
    for (int i = 0; i < 8; i += 4)
        for (int k = 0; k < 2; ++k) {
            u[i + k] = __builtin_shuffle(t[i + k], t[i + k + 2], lowPairs);
            u[i + k + 2] = __builtin_shuffle(t[i + k], t[i + k + 2], highPairs);
        }
    for (int k = 0; k < 4; ++k) {
        c[k] = __builtin_shuffle(u[k], u[k + 4], lowQuads);
        c[k + 4] = __builtin_shuffle(u[k], u[k + 4], highQuads);
    }
}

__attribute__((target("avx512f"))) void avx512BoxSums(const float* x, int count, int h, double* blocks)
{
    int m = 0;
    // Whole tiles of eight samples from each of eight blocks; the block's last few
    // samples (h not a multiple of eight) one column at a time.
    for (; m + group <= count; m += group) {
        Oct sums = {};
        int j = 0;
        for (; j + 8 <= h; j += 8) {
            Oct rows[8], columns[8];
            for (int i = 0; i < 8; ++i) {
                FloatOct raw;
                std::memcpy(&raw, x + (m + i) * h + j, sizeof raw);
                rows[i] = __builtin_convertvector(raw, Oct);
            }
            transpose(rows, columns);
            for (int k = 0; k < 8; ++k) sums = sums + columns[k];
        }
        for (; j < h; ++j) {
            Oct column;
            for (int i = 0; i < 8; ++i) column[i] = x[(m + i) * h + j];
            sums = sums + column;
        }
        Oct old;
        load(old, blocks + m);
        old = old + sums;
        store(blocks + m, old);
    }
    plainBoxSums(x, m, count, h, blocks);
}
#endif

}  // namespace

void addBoxSums(Path path, const float* x, int count, int h, double* blocks)
{
#if defined(__x86_64__)
    if (path == Path::avx512 && h >= 8) return avx512BoxSums(x, count, h, blocks);
#endif
    plainBoxSums(x, 0, count, h, blocks);
}

}  // namespace inpaint_kernels
