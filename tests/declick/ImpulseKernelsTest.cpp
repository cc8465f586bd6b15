// The impulse search's prediction errors: every instruction-set path against the
// plain loops written out here, bit for bit, over many lengths, orders and directions.
#include "declick/ImpulseKernels.h"

#include <gtest/gtest.h>

#include <vector>

#include "support/BitExact.h"

namespace {

using testsupport::sameBits;
using impulse_kernels::Path;
using kernel_paths::allPaths;
using kernel_paths::pathName;
using kernel_paths::pathSupported;

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
