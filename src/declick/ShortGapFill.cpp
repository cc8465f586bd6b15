#include "declick/ShortGapFill.h"

#include <cmath>
#include <numbers>

#include "ar/ArRecursions.h"

namespace {

// White floor on the autocorrelation (-90 dB): the recursion stays regular on a pure
// tone or digital silence.
constexpr double whiteFloor = 1e-9;

}  // namespace

bool ShortGapFill::fitModel(std::span<const float> samples, int from)
{
    for (int i = 0; i < fitLength; ++i) {
        const double taper = 0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (i + 1) / (fitLength + 1));
        tapered_[i] = taper * samples[from + i];
    }
    if (!fit_.fit(tapered_.data(), fitLength, whiteFloor, model_)) return false;
    autocorrelate(model_.data(), order + 1, coefficientLags_.data(), order);
    return coefficientLags_[0] > 0.0 && std::isfinite(coefficientLags_[0]);
}

// The normal equations B x = -c: B[i][j] = b(|i - j|), c[i] the known samples' terms.
bool ShortGapFill::solve(std::span<const float> samples, int first, int length)
{
    const auto b = [&](int lag) { return lag <= order ? coefficientLags_[lag] : 0.0; };
    for (int i = 0; i < length; ++i) {
        double known = 0.0;
        for (int s = first + i - order; s <= first + i + order; ++s) {
            if (s >= first && s < first + length) continue;
            known += b(std::abs(s - first - i)) * samples[s];
        }
        solution_[i] = -known;
        for (int j = 0; j < length; ++j) normal_[i * maxGap + j] = b(std::abs(i - j));
    }
    // Cholesky: B = L L^T, L in the lower triangle of normal_.
    for (int j = 0; j < length; ++j) {
        double diagonal = normal_[j * maxGap + j];
        for (int k = 0; k < j; ++k) diagonal -= normal_[j * maxGap + k] * normal_[j * maxGap + k];
        if (!(diagonal > 0.0)) return false;
        normal_[j * maxGap + j] = std::sqrt(diagonal);
        for (int i = j + 1; i < length; ++i) {
            double value = normal_[i * maxGap + j];
            for (int k = 0; k < j; ++k) value -= normal_[i * maxGap + k] * normal_[j * maxGap + k];
            normal_[i * maxGap + j] = value / normal_[j * maxGap + j];
        }
    }
    for (int i = 0; i < length; ++i) {
        for (int k = 0; k < i; ++k) solution_[i] -= normal_[i * maxGap + k] * solution_[k];
        solution_[i] /= normal_[i * maxGap + i];
    }
    for (int i = length - 1; i >= 0; --i) {
        for (int k = i + 1; k < length; ++k) solution_[i] -= normal_[k * maxGap + i] * solution_[k];
        solution_[i] /= normal_[i * maxGap + i];
    }
    for (int i = 0; i < length; ++i)
        if (!std::isfinite(solution_[i])) return false;
    return true;
}

bool ShortGapFill::fill(std::span<float> samples, int first, int length)
{
    if (length < 1 || length > maxGap) return false;
    if (!fitModel(samples, first - reachBefore) || !solve(samples, first, length)) return false;
    for (int i = 0; i < length; ++i) samples[first + i] = static_cast<float>(solution_[i]);
    return true;
}
