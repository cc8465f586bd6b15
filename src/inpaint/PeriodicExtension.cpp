#include "inpaint/PeriodicExtension.h"

#include <cmath>

PeriodicExtension::PeriodicExtension(int minPeriod, int maxPeriod, int window)
    : minPeriod_(minPeriod), maxPeriod_(maxPeriod), window_(window)
{
}

int PeriodicExtension::periodAt(const double* const* segments, int channelCount, int edge, int direction) const
{
    const int first = direction < 0 ? edge - window_ : edge;
    int best = minPeriod_;
    double bestScore = -2.0;
    for (int lag = minPeriod_; lag <= maxPeriod_; ++lag) {
        double cross = 0.0, near = 0.0, far = 0.0;
        for (int c = 0; c < channelCount; ++c) {
            const double* a = segments[c] + first;
            const double* b = segments[c] + (direction < 0 ? first - lag : first + lag);
            for (int j = 0; j < window_; ++j) {
                cross += a[j] * b[j];
                near += a[j] * a[j];
                far += b[j] * b[j];
            }
        }
        const double energy = near * far;
        const double score = energy > 0.0 ? cross / std::sqrt(energy) : 0.0;
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    return best;
}

void PeriodicExtension::fill(const double* const* segments, int channelCount, int hole, int length,
                             double* const* out) const
{
    const int end = hole + length;
    const int before = periodAt(segments, channelCount, hole, -1);
    const int after = periodAt(segments, channelCount, end, 1);
    for (int c = 0; c < channelCount; ++c) {
        const double* x = segments[c];
        for (int i = 0; i < length; ++i) {
            const int fromEnd = length - i;
            const double forward = x[hole - before + i % before];
            const double backward = x[end - fromEnd + ((fromEnd + after - 1) / after) * after];
            const double towardsEnd = (i + 0.5) / length;
            out[c][i] = (1.0 - towardsEnd) * forward + towardsEnd * backward;
        }
    }
}
