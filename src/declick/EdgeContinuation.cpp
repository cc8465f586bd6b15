#include "declick/EdgeContinuation.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

#include "declick/TaperedModel.h"

namespace {

using edgecontinuation::fitLength;
using edgecontinuation::order;
using edgecontinuation::predicted;

// White floor on the autocorrelation (-60 dB): a model of a pure tone stays regular.
constexpr double whiteFloor = 1e-6;

// The audio seen outward from the edge: inward(0) is the edge sample, inward(j) the
// one j samples further in, held at the far end.
class Inward {
public:
    Inward(std::span<const float> samples, bool before) : samples_(samples), before_(before) {}
    double operator()(int distance) const
    {
        const int step = std::min<int>(distance, static_cast<int>(samples_.size()) - 1);
        return samples_[before_ ? step : samples_.size() - 1 - step];
    }
    int size() const { return static_cast<int>(samples_.size()); }

private:
    std::span<const float> samples_;
    bool before_;
};

// The prediction error filter of the fitLength samples next to the edge (Hann
// window); false where none fits (too few samples, silence, non-finite).
bool fitModel(const Inward& inward, std::array<double, order + 1>& model)
{
    const int count = std::min(inward.size(), fitLength);
    if (count <= 2 * order) return false;
    std::array<double, fitLength> tapered;
    for (int i = 0; i < count; ++i)
        tapered[i] = (0.5 - 0.5 * std::cos(2.0 * std::numbers::pi * (i + 0.5) / count)) * inward(count - 1 - i);
    TaperedModel<order> fit;
    return fit.fit(tapered.data(), count, whiteFloor, model);
}

// The first 2 * predicted samples of the prediction outward from the edge.
std::array<double, 2 * predicted> predict(const Inward& inward, const std::array<double, order + 1>& model)
{
    // history[order - 1] is the latest sample, history[0] the one `order` - 1 before it.
    std::array<double, order> history;
    for (int j = 0; j < order; ++j) history[j] = inward(order - 1 - j);
    std::array<double, 2 * predicted> prediction;
    for (int d = 0; d < 2 * predicted; ++d) {
        double value = 0.0;
        for (int k = 1; k <= order; ++k) value -= model[k] * history[order - k];
        std::copy(history.begin() + 1, history.end(), history.begin());
        history[order - 1] = value;
        prediction[d] = value;
    }
    return prediction;
}

// How much of the reflection (against the prediction) `distance` samples out:
// none over the first `predicted`, all past twice that, a raised cosine between.
double reflectionShare(int distance)
{
    if (distance <= predicted) return 0.0;
    if (distance >= 2 * predicted) return 1.0;
    return 0.5 - 0.5 * std::cos(std::numbers::pi * (distance - predicted) / predicted);
}

// The share of the continuation kept `distance` samples out (1 next to the edge) of
// `length`: whole over the inner half, then a half cosine down to nothing.
double fadeAt(int distance, int length)
{
    const int fadeStart = length / 2;
    if (distance <= fadeStart) return 1.0;
    return 0.5 + 0.5 * std::cos(std::numbers::pi * (distance - fadeStart) / (length - fadeStart + 1));
}

}  // namespace

void continuePastEdge(std::span<const float> samples, bool before, std::span<float> out, float limit)
{
    const int length = static_cast<int>(out.size());
    if (samples.empty()) {
        std::fill(out.begin(), out.end(), 0.0f);
        return;
    }
    const Inward inward(samples, before);
    std::array<double, order + 1> model;
    const bool predicts = fitModel(inward, model);
    const std::array<double, 2 * predicted> prediction = predicts ? predict(inward, model) : decltype(prediction){};
    const double pivot = 2.0 * inward(0);
    for (int distance = 1; distance <= length; ++distance) {
        double value = pivot - inward(distance);
        if (predicts && distance <= 2 * predicted) {
            const double share = reflectionShare(distance);
            value = share * value + (1.0 - share) * prediction[distance - 1];
        }
        value *= fadeAt(distance, length);
        out[before ? length - distance : distance - 1] =
            static_cast<float>(std::clamp(value, -static_cast<double>(limit), static_cast<double>(limit)));
    }
}
