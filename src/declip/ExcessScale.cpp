#include "declip/ExcessScale.h"

#include <algorithm>

ExcessScale::ExcessScale(ClipLevels levels) : levels_(levels)
{
    positive_.level = levels.positive;
    negative_.level = levels.negative;
}

void ExcessScale::add(float input, float restored)
{
    ++samples_;
    const int sign = levels_.sign(input);
    if (sign != 0) {
        Polarity& p = polarity(sign);
        const float magnitude = sign > 0 ? restored : -restored;
        ++p.clipped;
        p.excess += static_cast<double>(magnitude) - p.level;
        p.largest = std::max(p.largest, magnitude);
        return;
    }
    Polarity& p = polarity(input >= 0.0f ? 1 : -1);
    const float magnitude = input >= 0.0f ? input : -input;
    if (magnitude >= p.level * (1.0f - bandWidth)) ++p.below;
}

// The estimated mean excess is (clipped / samples) / (below / (samples level bandWidth))
// = clipped level bandWidth / below; the factor brings the restored mean excess
// (excess / clipped) down to it.
void ExcessScale::finish()
{
    const bool heavy = static_cast<double>(positive_.clipped + negative_.clipped) > heavyShare * samples_;
    for (Polarity* p : {&positive_, &negative_}) {
        p->factor = 1.0f;
        if (heavy || p->clipped == 0 || p->below < minimumBand || !(p->excess > 0.0)) continue;
        const double estimate = static_cast<double>(p->clipped) * p->level * bandWidth / p->below;
        const double restoredMean = p->excess / p->clipped;
        p->factor = static_cast<float>(std::min(1.0, estimate / restoredMean));
    }
}

float ExcessScale::scaled(float restored) const
{
    const int sign = levels_.sign(restored);
    if (sign == 0) return restored;
    const float magnitude = calibrated(polarity(sign), sign > 0 ? restored : -restored);
    return sign > 0 ? magnitude : -magnitude;
}

float ExcessScale::peak(int sign) const
{
    const Polarity& p = polarity(sign);
    return p.clipped == 0 ? 0.0f : calibrated(p, p.largest);
}
