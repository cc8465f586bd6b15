#include "ar/StageTwiddles.h"

#include <cmath>

#include "signal/PortableCosine.h"
#include "signal/UnfusedProducts.h"

namespace {

constexpr double twoPi = 6.283185307179586;

// sin 2x = 2 sin x cos x and cos 2x = 1 - 2 sin² x, in float.
void doubleAngle(float& cosine, float& sine)
{
    const float s = sine;
    const float c = cosine;
    sine = 2.0f * s * c;
    cosine = 1.0f - 2.0f * s * s;
}

// cos(x + y) and sin(x + y) from the values at x and at y, in float; the difference
// is written as an addition so that no target fuses it (see UnfusedProducts.h).
void addAngle(float& cosine, float& sine, float stepCosine, float stepSine)
{
    const float c = cosine;
    const float s = sine;
    cosine = c * stepCosine + standardLib::negatedProduct(s, stepSine);
    sine = s * stepCosine + c * stepSine;
}

}  // namespace

StageTwiddles StageTwiddles::start(int n)
{
    const double angle = twoPi / (2.0 * n);
    return {static_cast<float>(standardLib::cosine(angle)), static_cast<float>(standardLib::sine(angle)),
            static_cast<float>(standardLib::cosine(3.0 * angle)), static_cast<float>(standardLib::sine(3.0 * angle))};
}

StageTwiddles StageTwiddles::forStage(int n, int size)
{
    StageTwiddles twiddles = start(n);
    for (long long reach = 2LL * n; reach > size; reach /= 2) twiddles = twiddles.doubled();
    return twiddles;
}

StageTwiddles StageTwiddles::doubled() const
{
    StageTwiddles twice = *this;
    doubleAngle(twice.cos1, twice.sin1);
    doubleAngle(twice.cos3, twice.sin3);
    return twice;
}

StageTwiddles StageTwiddles::rotatedBy(const StageTwiddles& step) const
{
    StageTwiddles next = *this;
    addAngle(next.cos1, next.sin1, step.cos1, step.sin1);
    addAngle(next.cos3, next.sin3, step.cos3, step.sin3);
    return next;
}

StageTwiddles StageTwiddles::multiple(int j) const
{
    StageTwiddles product;
    StageTwiddles power = *this;
    for (; j > 0; j /= 2) {
        if (j % 2 == 1) product = product.rotatedBy(power);
        if (j > 1) power = power.doubled();
    }
    return product;
}
