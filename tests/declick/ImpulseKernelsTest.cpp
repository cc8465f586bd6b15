// The impulse search's kernels: every instruction-set path against the plain loops
// written out here, bit for bit, over many lengths, orders and directions.
#include "declick/ImpulseKernels.h"

#include <gtest/gtest.h>

#include <vector>

#include "ar/ArRecursions.h"
#include "support/BitExact.h"

namespace {

using testsupport::sameBits;
using impulse_kernels::Path;
using kernel_paths::allPaths;
using kernel_paths::pathName;
using kernel_paths::pathSupported;

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

TEST(ImpulseKernels, EveryPathAutocorrelatesWithTheBitsOfTheDirectSums)
{
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int count : {1, 2, 5, 16, 17, 19, 20, 21, 33, 65, 1024}) {
            for (int maxLag : {0, 1, 3, 7, 8, 16, 19, 20, 23, 40, 64}) {
                const auto x = testsupport::gaussianNoise(count, 7 + count + 100 * maxLag);
                std::vector<double> lags(maxLag + 1, -1.0);
                impulse_kernels::autocorrelation(path, x.data(), count, lags.data(), maxLag);
                const auto where = ::testing::Message() << pathName(path) << ", count " << count << ", lag " << maxLag;
                EXPECT_TRUE(sameBits(lags, directLags(x, maxLag))) << where;
                std::vector<double> shared(maxLag + 1, -1.0);
                autocorrelate(x.data(), count, shared.data(), maxLag);
                EXPECT_TRUE(sameBits(lags, shared)) << where;
            }
        }
    }
}

TEST(ImpulseKernels, EveryPathFormsPredictionErrorsWithTheBitsOfTheDirectSums)
{
    for (Path path : allPaths) {
        if (!pathSupported(path)) continue;
        for (int order : {0, 1, 4, 16, 31}) {
            for (int count : {1, 7, 15, 16, 17, 33, 848}) {
                for (int direction : {-1, 1}) {
                    const auto model = testsupport::gaussianNoise(order + 1, 3 + order);
                    const auto x = testsupport::gaussianNoise(count + 2 * order, 5 + count);
                    const double* first = x.data() + order;
                    std::vector<double> expected(count);
                    for (int i = 0; i < count; ++i) {
                        double sum = 0.0;
                        for (int j = 0; j <= order; ++j) sum += model[j] * first[i + direction * j];
                        expected[i] = sum;
                    }
                    std::vector<double> errors(count, -1.0);
                    impulse_kernels::predictionErrors(path, first, model.data(), order, direction, errors.data(),
                                                      count);
                    EXPECT_TRUE(sameBits(errors, expected))
                        << pathName(path) << ", order " << order << ", count " << count << ", direction " << direction;
                }
            }
        }
    }
}

}  // namespace
