// The gap filler's kernels: every instruction-set path against the plain loops written
// out here, bit for bit, over many lengths, orders and offsets.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "inpaint/BurgKernels.h"
#include "inpaint/ToeplitzKernels.h"
#include "support/BitExact.h"

namespace {

using testsupport::sameBits;
using namespace inpaint_kernels;
using namespace kernel_paths;

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// One Burg order as two loops: the update, then the next order's sums.
void twoLoopStretch(std::vector<double>& f, const std::vector<double>& b, std::vector<double>& next, int m, double k,
                    double* cross, double* energy)
{
    const int end = static_cast<int>(f.size());
    for (int t = m; t < end; ++t) {
        const double ft = f[t], bt = b[t - 1];
        f[t] = ft + k * bt;
        next[t] = bt + k * ft;
    }
    for (int t = m + 1, lane = 0; t < end; ++t, lane = (lane + 1) % 8) {
        cross[lane] += f[t] * next[t - 1];
        energy[lane] += f[t] * f[t] + next[t - 1] * next[t - 1];
    }
}

TEST(InpaintKernels, EveryPathUpdatesBurgStretchesWithTheSameBits)
{
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int length : {2, 3, 9, 10, 17, 40, 333}) {
            for (int m : {1, 2, 7, 8, 9, 31}) {
                if (m >= length) continue;
                const auto f0 = testsupport::gaussianNoise(length, 1 + length), b = testsupport::gaussianNoise(length, 2 + m);
                auto f = f0, expectedF = f0;
                std::vector<double> next(length, 0.0), expectedNext(length, 0.0);
                std::vector<double> cross(8, 0.5), energy(8, 1.5), expectedCross = cross, expectedEnergy = energy;
                twoLoopStretch(expectedF, b, expectedNext, m, 0.37, expectedCross.data(), expectedEnergy.data());
                updateStretch(path, f.data(), b.data(), next.data(), m, length, 0.37, cross.data(), energy.data());
                const auto where = ::testing::Message() << pathName(path) << ", length " << length << ", order " << m;
                EXPECT_TRUE(sameBits(f, expectedF)) << where;
                EXPECT_TRUE(sameBits(std::vector<double>(next.begin() + m, next.end()),
                                     std::vector<double>(expectedNext.begin() + m, expectedNext.end())))
                    << where;
                EXPECT_TRUE(sameBits(cross, expectedCross)) << where;
                EXPECT_TRUE(sameBits(energy, expectedEnergy)) << where;
            }
        }
    }
}

TEST(InpaintKernels, EveryPathSolvesLevinsonStepsWithTheSameBits)
{
    const auto r = testsupport::gaussianNoise(200, 3), v = testsupport::gaussianNoise(200, 4);
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int k : {1, 2, 5, 8, 9, 16, 17, 63, 150}) {
            for (int terms : {1, 7, 8, 9, 24, 40}) {
                if (terms > k) continue;
                double partial[8] = {};
                for (int i = 1; i <= terms; ++i) partial[(i - 1) % 8] += r[i] * v[k - i];
                const double expected = ((partial[0] + partial[1]) + (partial[2] + partial[3])) +
                                        ((partial[4] + partial[5]) + (partial[6] + partial[7]));
                EXPECT_TRUE(sameBits(bandedDot(path, r.data(), v.data(), k, terms), expected))
                    << pathName(path) << ", k " << k << ", terms " << terms;
            }
            auto x = testsupport::gaussianNoise(k, 5 + k), expectedX = x;
            for (int j = 0; j < k; ++j) expectedX[j] += 0.61 * v[k - 1 - j];
            addReversed(path, x.data(), v.data(), k, 0.61);
            EXPECT_TRUE(sameBits(x, expectedX)) << pathName(path) << ", k " << k;
            auto y = testsupport::gaussianNoise(k, 6 + k), expectedY = y;
            const auto before = y;
            for (int j = 0; j < k; ++j) expectedY[j] = before[j] + -0.43 * before[k - 1 - j];
            addReversedInPlace(path, y.data(), k, -0.43);
            EXPECT_TRUE(sameBits(y, expectedY)) << pathName(path) << ", k " << k;
        }
    }
}

}  // namespace
