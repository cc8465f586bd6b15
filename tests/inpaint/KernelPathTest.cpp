// The gap filler's kernels: every instruction-set path against the plain loops written
// out here, bit for bit, over many lengths, orders and offsets.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "inpaint/BorderKernels.h"
#include "inpaint/BoxSumKernels.h"
#include "inpaint/BurgKernels.h"
#include "inpaint/CycleKernels.h"
#include "inpaint/ScoreKernels.h"
#include "inpaint/ToeplitzKernels.h"
#include "support/BitExact.h"

namespace {

using testsupport::sameBits;
using namespace inpaint_kernels;
using namespace kernel_paths;

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// One Burg order as two loops over copies: the update, then the next order's sums.
void twoLoopStretch(std::vector<double>& f, std::vector<double>& b, int m, double k, double* cross, double* energy)
{
    const int end = static_cast<int>(f.size());
    const auto before = b;
    for (int t = m; t < end; ++t) {
        const double ft = f[t], bt = before[t - 1];
        f[t] = ft + k * bt;
        b[t] = bt + k * ft;
    }
    for (int t = m + 1, lane = 0; t < end; ++t, lane = (lane + 1) % 8) {
        cross[lane] += f[t] * b[t - 1];
        energy[lane] += f[t] * f[t] + b[t - 1] * b[t - 1];
    }
}

TEST(InpaintKernels, EveryPathUpdatesBurgStretchesWithTheSameBits)
{
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int length : {2, 3, 9, 10, 17, 40, 333}) {
            for (int m : {1, 2, 7, 8, 9, 31}) {
                if (m >= length) continue;
                const auto f0 = testsupport::gaussianNoise(length, 1 + length), b0 = testsupport::gaussianNoise(length, 2 + m);
                auto f = f0, expectedF = f0, b = b0, expectedB = b0;
                std::vector<double> cross(8, 0.5), energy(8, 1.5), expectedCross = cross, expectedEnergy = energy;
                twoLoopStretch(expectedF, expectedB, m, 0.37, expectedCross.data(), expectedEnergy.data());
                updateStretch(path, f.data(), b.data(), m, length, 0.37, cross.data(), energy.data());
                const auto where = ::testing::Message() << pathName(path) << ", length " << length << ", order " << m;
                EXPECT_TRUE(sameBits(f, expectedF)) << where;
                EXPECT_TRUE(sameBits(std::vector<double>(b.begin() + m, b.end()),
                                     std::vector<double>(expectedB.begin() + m, expectedB.end())))
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
            for (int count : {0, 1, 3}) {
                for (bool updateY : {false, true}) {
                    const double scale[3] = {0.61, -1.3, 2e-3};
                    std::vector<std::vector<double>> x, expectedX;
                    for (int s = 0; s < count; ++s) {
                        x.push_back(testsupport::gaussianNoise(k, 5 + k + s));
                        expectedX.push_back(x.back());
                        for (int j = 0; j < k; ++j) expectedX[s][j] += scale[s] * v[k - 1 - j];
                    }
                    double* rows[3] = {};
                    for (int s = 0; s < count; ++s) rows[s] = x[s].data();
                    auto y = v, expectedY = v;
                    if (updateY)
                        for (int j = 0; j < k; ++j) expectedY[j] = v[j] + -0.43 * v[k - 1 - j];
                    levinsonStep(path, y.data(), k, updateY, -0.43, rows, scale, count);
                    const auto where = std::string(pathName(path)) + ", k " + std::to_string(k) + ", solutions " +
                                       std::to_string(count) + (updateY ? ", predictor" : "");
                    EXPECT_TRUE(sameBits(y, expectedY)) << where;
                    for (int s = 0; s < count; ++s) EXPECT_TRUE(sameBits(x[s], expectedX[s])) << where;
                }
            }
        }
    }
}

// The repeat search's border sums, each shift summed on its own in one chain.
TEST(InpaintKernels, EveryPathSumsEachShiftsBordersWithTheSameBits)
{
    std::vector<std::vector<float>> audio;
    for (unsigned c = 0; c < 2; ++c) {
        const auto noise = testsupport::gaussianNoise(600, 11 + c);
        audio.emplace_back(noise.begin(), noise.end());
    }
    const float* channels[2] = {audio[0].data(), audio[1].data()};
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int channelCount : {1, 2})
            for (int border : {1, 5, 37})
                for (int firstShift : {-200, -9, 60, 151})
                    for (int count : {1, 7, 8}) {
                        const int hole = 250, length = 13;
                        double product[8], energy[8];
                        borderSums(path, channels, channelCount, hole, length, border, firstShift, count, product,
                                   energy);
                        for (int i = 0; i < count; ++i) {
                            double p = 0.0, e = 0.0;
                            for (int c = 0; c < channelCount; ++c)
                                for (int t : {hole - border, hole + length})
                                    for (int j = t; j < t + border; ++j) {
                                        const double y = channels[c][j + firstShift + i];
                                        p += static_cast<double>(channels[c][j]) * y;
                                        e += y * y;
                                    }
                            const auto where = ::testing::Message() << pathName(path) << ", channels " << channelCount
                                                                    << ", border " << border << ", shift "
                                                                    << firstShift + i;
                            EXPECT_TRUE(sameBits(product[i], p)) << where;
                            EXPECT_TRUE(sameBits(energy[i], e)) << where;
                        }
                    }
    }
}

// The coarse search's box sums, each block summed on its own from zero.
TEST(InpaintKernels, EveryPathSumsEachBoxWithTheSameBits)
{
    const auto noise = testsupport::gaussianNoise(19 * 23, 17);
    const std::vector<float> x(noise.begin(), noise.end());
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int h : {1, 4, 6, 8, 9, 16, 19})
            for (int count : {0, 1, 7, 8, 9, 23}) {
                std::vector<double> blocks = testsupport::gaussianNoise(count + 1, 3), expected = blocks;
                for (int m = 0; m < count; ++m) {
                    double sum = 0.0;
                    for (int j = 0; j < h; ++j) sum += x[m * h + j];
                    expected[m] += sum;
                }
                addBoxSums(path, x.data(), count, h, blocks.data());
                EXPECT_TRUE(sameBits(blocks, expected)) << pathName(path) << ", hop " << h << ", blocks " << count;
            }
    }
}

// The similarity search's normalised scores, silent windows (no energy) among them.
TEST(InpaintKernels, EveryPathNormalisesScoresWithTheSameBits)
{
    const int count = 400;
    const auto x = testsupport::gaussianNoise(count, 21);
    std::vector<double> energy(count + 1, 0.0);
    for (int i = 0; i < count; ++i) energy[i + 1] = energy[i] + (i >= 150 && i < 260 ? 0.0 : x[i] * x[i]);
    const auto correlations = testsupport::gaussianNoise(count, 22);
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int border : {1, 9, 40})
            for (int length : {0, 13})
                for (int from : {0, 3}) {
                    const int to = count - 2 * border - length - from;
                    auto work = correlations, expected = correlations;
                    for (int u = from; u < to; ++u) {
                        const double e = (energy[u + border] - energy[u]) +
                                         (energy[u + 2 * border + length] - energy[u + border + length]);
                        expected[u] = e > 1e-12 * 7.5 ? expected[u] / std::sqrt(e * 7.5) : 0.0;
                    }
                    normaliseScores(path, work.data(), energy.data(), from, to, length, border, 7.5);
                    EXPECT_TRUE(sameBits(work, expected))
                        << pathName(path) << ", border " << border << ", length " << length << ", from " << from;
                }
    }
}

// The periodic candidate's circular correlations, each shift summed in one chain.
TEST(InpaintKernels, EveryPathCorrelatesEachCircularShiftWithTheSameBits)
{
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int period : {8, 9, 57, 120})
            for (int channelCount : {1, 2}) {
                std::vector<std::vector<double>> before, after;
                const double* beforeRows[2];
                const double* afterRows[2];
                for (int c = 0; c < channelCount; ++c) {
                    before.push_back(testsupport::gaussianNoise(period, 30 + c));
                    after.push_back(testsupport::gaussianNoise(period, 40 + c));
                    after[c].insert(after[c].end(), after[c].begin(), after[c].end());
                    beforeRows[c] = before[c].data();
                    afterRows[c] = after[c].data();
                }
                for (int first = 0; first < period; first += cycleShiftLanes) {
                    const int count = std::min(cycleShiftLanes, period - first);
                    double out[cycleShiftLanes];
                    circularCorrelations(path, beforeRows, afterRows, channelCount, period, first, count, out);
                    for (int i = 0; i < count; ++i) {
                        double expected = 0.0;
                        for (int c = 0; c < channelCount; ++c)
                            for (int j = 0; j < period; ++j)
                                expected += before[c][j] * after[c][(j - first - i + period) % period];
                        EXPECT_TRUE(sameBits(out[i], expected))
                            << pathName(path) << ", period " << period << ", shift " << first + i;
                    }
                }
            }
    }
}

// The periodic candidate's lag correlations, each lag's two sums in their own chains.
TEST(InpaintKernels, EveryPathCorrelatesEachLagWithTheSameBits)
{
    const int count = 300;
    const std::vector<std::vector<double>> audio = {testsupport::gaussianNoise(count, 50),
                                                    testsupport::gaussianNoise(count, 51)};
    const double* x[2] = {audio[0].data(), audio[1].data()};
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int channelCount : {1, 2})
            for (int direction : {1, -1})
                for (int window : {1, 7, 40})
                    for (int lag : {0, 3, 50}) {
                        const int first = direction > 0 ? 10 : count - window - 10;
                        double cross[lagLanes], far[lagLanes];
                        lagCorrelations(path, x, channelCount, first, window, lag, direction, cross, far);
                        for (int i = 0; i < lagLanes; ++i) {
                            double product = 0.0, energy = 0.0;
                            for (int c = 0; c < channelCount; ++c)
                                for (int j = 0; j < window; ++j) {
                                    const double b = x[c][first + j + direction * (lag + i)];
                                    product += x[c][first + j] * b;
                                    energy += b * b;
                                }
                            const auto where = ::testing::Message() << pathName(path) << ", direction " << direction
                                                                    << ", window " << window << ", lag " << lag + i;
                            EXPECT_TRUE(sameBits(cross[i], product)) << where;
                            EXPECT_TRUE(sameBits(far[i], energy)) << where;
                        }
                    }
    }
}

}  // namespace
