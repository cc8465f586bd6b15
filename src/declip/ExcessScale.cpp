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
        return;
    }
    Polarity& p = polarity(input >= 0.0f ? 1 : -1);
    const float magnitude = input >= 0.0f ? input : -input;
    if (magnitude >= p.level * (1.0f - bandWidth)) ++p.below;
}

namespace {

// The factor that brings a restored mean excess down to the tail's estimate, both
// relative to the level: the estimate is (clipped / samples) / (below / (samples
// bandWidth)) = clipped bandWidth / below, the restored mean relativeExcess / clipped.
// Zero when the counts cannot tell.
double tailFactor(std::int64_t clipped, std::int64_t below, double relativeExcess)
{
    if (clipped == 0 || below < ExcessScale::minimumBand || !(relativeExcess > 0.0)) return 0.0;
    const double estimate = static_cast<double>(clipped) * ExcessScale::bandWidth / below;
    return std::min(1.0, estimate / (relativeExcess / clipped));
}

double relative(double excess, std::int64_t clipped, float level) { return clipped == 0 ? 0.0 : excess / level; }

}  // namespace

// Each polarity takes the mean of its own factor and that of both polarities pooled:
// a speech recording's two polarities differ, but one polarity's band alone is often
// thin, and the pooled tail steadies it.
void ExcessScale::finish()
{
    positive_.factor = negative_.factor = 1.0f;
    if (static_cast<double>(positive_.clipped + negative_.clipped) > heavyShare * samples_) return;
    const double pooled = tailFactor(positive_.clipped + negative_.clipped, positive_.below + negative_.below,
                                     relative(positive_.excess, positive_.clipped, positive_.level) +
                                         relative(negative_.excess, negative_.clipped, negative_.level));
    for (Polarity* p : {&positive_, &negative_}) {
        const double own = tailFactor(p->clipped, p->below, relative(p->excess, p->clipped, p->level));
        const double factor = own > 0.0 && pooled > 0.0 ? 0.5 * (own + pooled) : std::max(own, pooled);
        if (p->clipped > 0 && factor > 0.0) p->factor = static_cast<float>(factor);
    }
}

float ExcessScale::scaled(float restored) const
{
    const int sign = levels_.sign(restored);
    if (sign == 0) return restored;
    const float magnitude = calibrated(polarity(sign), sign > 0 ? restored : -restored);
    return sign > 0 ? magnitude : -magnitude;
}
