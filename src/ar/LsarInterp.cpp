#include "ar/LsarInterp.h"

#include <algorithm>
#include <array>

#include "ar/AnalysisSegment.h"
#include "ar/ArRecursions.h"
#include "ar/AutocorrelationPaths.h"
#include "ar/ClassicRand.h"

namespace {

// A tiny dither, +-1.5e-6, keeps the recursion away from a singular
// autocorrelation on digital silence.
void addDither(std::vector<double>& analysis)
{
    for (double& value : analysis)
        value += (ferrotip::rand() * 3.051850947599719e-05 - 0.5) * 3e-06;
}

}  // namespace

int LsarInterp::largestOrderFor(int maxGap)
{
    return maxGap < 150 ? 2 * maxGap : static_cast<int>(maxGap * 1.1);
}

LsarInterp::LsarInterp(int contextLength, int maxGapSamples)
    : maxOrder_(largestOrderFor(maxGapSamples)),
      analysisLength_(std::min(contextLength, maxAnalysisLength)),
      maxGap_(maxGapSamples)
{
    // A limit of zero or less (rates below 1 kHz) refuses every gap; the arrays
    // still get their minimum size. Levinson-Durbin always writes the first order,
    // hence at least two coefficients.
    const int capacity = std::max(maxOrder_, 0) + 1;
    autocorrelation_.assign(capacity, 0.0);
    coefficients_.assign(std::max(capacity, 2), 0.0);
    workspace_ = std::make_unique<ArWorkspace>(capacity, capacity);
    context_.assign(2 * capacity, 0.0f);
}

int LsarInterp::interpolate(float* samples, int start, int length, int mode)
{
    const int n = analysisLength_;
    const int gap = length;
    std::array<float, 2 * maxAnalysisLength> span{};
    std::copy(samples + start - n, samples + start + n, span.begin());
    const int seedValue = truncateToInt32(samples[start] * 10000.0f);
    if (gap > maxGap_) return 1;

    // The integer noise is taken out again; what stays is the rounding of each
    // windowed value to the coarse grid of the sum.
    const std::uint32_t seed = noiseSeed(seedValue);
    const std::uint32_t multiplier = noiseMultiplier(seedValue);
    windowSpan(mode, n, gap, span.data());
    modelOrder_ = std::min(2 * gap, maxOrder_);
    applyIntegerNoise(span.data(), 2 * n, seed, multiplier, +1.0f);
    applyIntegerNoise(span.data(), n, seed, multiplier, -1.0f);

    std::vector<double> analysis(span.begin(), span.begin() + n);
    addDither(analysis);
    autocorrelate(kernel_paths::fastestPath(), analysis.data(), n, autocorrelation_.data(), maxOrder_);
    analysis = {};

    if (autocorrelation_[0] > 1e-10) {
        double predictionError = 0.0;
        levinsonDurbin(autocorrelation_.data(), coefficients_.data(), modelOrder_,
                       &predictionError);
    }
    solve(samples, start, gap, mode);
    return 0;
}

void LsarInterp::solve(float* samples, int start, int gap, int mode)
{
    // Farther reach than the model order is not needed by the one-sided modes.
    constexpr int oneSidedContext = 32;
    const int m = modelOrder_;
    float* context = context_.data();
    for (int i = 0; i < m; ++i) {
        context[i] = samples[start - m + i];
        context[m + i] = samples[start + gap + i];
    }
    const double* model = coefficients_.data();
    if (mode == 3) workspace_->interpolateGapForward(context, model, m, gap, oneSidedContext);
    else if (mode == 4) workspace_->interpolateGapBackward(context, model, m, gap, oneSidedContext);
    else workspace_->interpolateGap(context, model, m, gap);
    std::copy(context, context + gap, samples + start);
}
