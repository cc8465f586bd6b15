#include "inpaint/GapFiller.h"

#include <algorithm>
#include <cmath>

namespace {

int msToSamples(double ms, int rate) { return static_cast<int>(std::lround(ms * rate / 1000.0)); }

int contextSamples(const InpaintSettings& settings, int rate)
{
    return std::max(1, msToSamples(settings.contextMs, rate));
}

}  // namespace

GapFiller::GapFiller(int sampleRate, int maxGap, int maxChannels, InpaintSettings settings)
    : settings_(settings),
      rate(sampleRate),
      maxGap_(maxGap),
      maxChannels_(maxChannels),
      maxContext(contextSamples(settings, sampleRate)),
      segmentCapacity(2 * maxContext + maxGap),
      estimator(segmentCapacity, order(maxContext)),
      solver(maxGap, maxChannels),
      segments(new double[static_cast<std::size_t>(maxChannels) * segmentCapacity]()),
      residual(new double[maxGap + order(maxContext) + 1]()),
      modelAutocorr(new double[order(maxContext) + 1]()),
      gapPointers(new double*[maxChannels]())
{
}

int GapFiller::contextLength(int) const { return maxContext; }

int GapFiller::order(int context) const { return std::max(1, std::min(settings_.orderCap, context)); }

double* GapFiller::segment(int channel) const
{
    return segments.get() + static_cast<std::size_t>(channel) * segmentCapacity;
}

void GapFiller::loadSegments(float* const* channels, int channelCount, int start, int length,
                             int context)
{
    const int total = 2 * context + length;
    for (int c = 0; c < channelCount; ++c) {
        const float* from = channels[c] + start - context;
        double* to = segment(c);
        for (int i = 0; i < total; ++i) to[i] = from[i];
        std::fill(to + context, to + context + length, 0.0);
    }
}

// One model for all channels: from the two sides alone, or across the current fill.
void GapFiller::estimate(int channelCount, int length, int context, bool sidesOnly)
{
    estimator.begin(order(context));
    for (int c = 0; c < channelCount; ++c) {
        const double* s = segment(c);
        if (sidesOnly) {
            estimator.add(s, context);
            estimator.add(s + context + length, context);
        } else {
            estimator.add(s, 2 * context + length);
        }
    }
    const double lagScale = settings_.lagScaleMs * rate / 1000.0;
    model = estimator.model(lagScale, settings_.whiteFloor);
}

// Least-squares gap given the model: T x = -A^T e, with T[i][j] = sum_m a[m] a[m + |i - j|]
// and e the prediction error of the known samples over every residual the gap touches.
void GapFiller::solveGap(int channelCount, int length, int context)
{
    const int p = estimator.order();
    for (int lag = 0; lag <= p; ++lag) {
        double sum = 0.0;
        for (int m = 0; m + lag <= p; ++m) sum += model[m] * model[m + lag];
        modelAutocorr[lag] = sum;
    }
    modelAutocorr[0] *= 1.0 + settings_.loading;
    const int residuals = length + p;
    for (int c = 0; c < channelCount; ++c) {
        double* s = segment(c);
        std::fill(s + context, s + context + length, 0.0);
        for (int t = 0; t < residuals; ++t) {
            const double* x = s + context + t;
            double sum = 0.0;
            for (int m = 0; m <= p; ++m) sum += model[m] * x[-m];
            residual[t] = sum;
        }
        double* gap = s + context;
        for (int i = 0; i < length; ++i) {
            double sum = 0.0;
            for (int m = 0; m <= p; ++m) sum += model[m] * residual[i + m];
            gap[i] = -sum;
        }
        gapPointers[c] = gap;
    }
    solver.solve(modelAutocorr.get(), p, length, gapPointers.get(), channelCount);
}

void GapFiller::fill(float* const* channels, int channelCount, int start, int length)
{
    if (length <= 0 || channelCount <= 0) return;
    const int context = contextLength(length);
    loadSegments(channels, channelCount, start, length, context);
    for (int pass = 0; pass < settings_.iterations; ++pass) {
        estimate(channelCount, length, context, pass == 0);
        solveGap(channelCount, length, context);
    }
    for (int c = 0; c < channelCount; ++c) {
        const double* gap = segment(c) + context;
        for (int i = 0; i < length; ++i) channels[c][start + i] = static_cast<float>(gap[i]);
    }
}
