// The autocorrelation on every instruction-set path against the direct sums written
// out here and against autocorrelate, bit for bit, over many lengths and lags.
#include "ar/AutocorrelationPaths.h"

#include <gtest/gtest.h>

#include <vector>

#include "ar/ArRecursions.h"
#include "support/BitExact.h"

namespace {

using kernel_paths::allPaths;
using kernel_paths::Path;
using kernel_paths::pathName;
using kernel_paths::pathSupported;
using testsupport::sameBits;

std::vector<double> directLags(const std::vector<double>& x, int maxLag)
{
    std::vector<double> lags(maxLag + 1);
    for (int k = 0; k <= maxLag; ++k) {
        double sum = 0.0;
        for (int i = 0; i + k < static_cast<int>(x.size()); ++i) sum += x[i] * x[i + k];
        lags[k] = sum;
    }
    return lags;
}

TEST(AutocorrelationPaths, EveryPathGivesTheBitsOfTheDirectSums)
{
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int count : {1, 2, 5, 16, 17, 19, 20, 21, 33, 65, 1024, 2205}) {
            for (int maxLag : {0, 1, 3, 7, 8, 16, 19, 20, 23, 40, 64, 213}) {
                const auto x = testsupport::gaussianNoise(count, 7 + count + 100 * maxLag);
                std::vector<double> lags(maxLag + 1, -1.0);
                autocorrelate(path, x.data(), count, lags.data(), maxLag);
                const auto where = ::testing::Message() << pathName(path) << ", count " << count << ", lag " << maxLag;
                EXPECT_TRUE(sameBits(lags, directLags(x, maxLag))) << where;
                std::vector<double> shared(maxLag + 1, -1.0);
                autocorrelate(x.data(), count, shared.data(), maxLag);
                EXPECT_TRUE(sameBits(lags, shared)) << where;
            }
        }
    }
}

}  // namespace
