#include "declip/SocialSparsitySolver.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "declip/FrameGrid.h"
#include "declip/PackedSpectrum.h"

namespace {

constexpr unsigned int packed = packed_spectrum::layout;

}  // namespace

namespace {

// The analysis window: periodic Hann with four frames over each sample, its square
// root (the sine window) with two. Either way the squared windows over a sample sum to
// a constant.
std::vector<float> analysisWindow(int length, int overlap)
{
    std::vector<float> window = frame_grid::periodicHann(length);
    if (overlap == 2)
        for (float& w : window) w = std::sqrt(w);
    return window;
}

}  // namespace

// Frames start every hop from W - hop before the block to hop before its end: every
// frame that meets the block.
SocialSparsitySolver::SocialSparsitySolver(const Settings& settings)
    : settings_(settings),
      window_(settings.windowLength),
      hop_(settings.windowLength / settings.overlap),
      half_(settings.windowLength / 2),
      frameCount_((settings.blockLength + window_ - hop_) / hop_),
      firstStart_(hop_ - window_),
      // A tight frame: synthesis after analysis gives the block back. The analysis
      // scale makes the frame's bound 1: the squared windows sum to `sum` over the
      // frames at each sample, and the real spectrum holds each inner bin once for two.
      analysisScale_(static_cast<float>(1.0 / std::sqrt(windowSquaresSum() * window_ / 2.0))),
      synthesisScale_(static_cast<float>(window_ / std::sqrt(windowSquaresSum() * window_ / 2.0) / 2.0)),
      fft_(settings.windowLength),
      hann_(analysisWindow(settings.windowLength, settings.overlap)),
      z_(static_cast<std::size_t>(frameCount_) * window_),
      v_(z_.size()),
      next_(z_.size()),
      power_(static_cast<std::size_t>(frameCount_) * (half_ + 1)),
      energy_(half_ + 1),
      signal_(settings.blockLength),
      scratch_(window_)
{
}

namespace {

struct FrameSpan {
    int first, end;  // of the frame's samples, those inside the block
};

FrameSpan inside(int start, int window, int block)
{
    return {std::max(0, -start), std::min(window, block - start)};
}

}  // namespace

// scratch_ = the DFT of frame m of `signal` (zero beyond the block), windowed.
const float* SocialSparsitySolver::transformFrame(const float* signal, int m)
{
    const int start = firstStart_ + m * hop_;
    const auto [first, end] = inside(start, window_, settings_.blockLength);
    std::fill(scratch_.begin(), scratch_.end(), 0.0f);
    for (int n = first; n < end; ++n) scratch_[n] = hann_[n] * signal[start + n];
    fft_.realForwardInPlace(scratch_.data(), packed);
    return scratch_.data();
}

void SocialSparsitySolver::analyse(const float* block)
{
    for (int m = 0; m < frames(); ++m) {
        const float* spectrum = transformFrame(block, m);
        float* out = frame(z_, m);
        for (int n = 0; n < window_; ++n) out[n] = analysisScale_ * spectrum[n];
    }
}

void SocialSparsitySolver::analyseResidual(const float* lower, const float* upper)
{
    // The gradient step: the residual to the consistent set, in place in signal_.
    for (int n = 0; n < settings_.blockLength; ++n)
        signal_[n] = std::clamp(signal_[n], lower[n], upper[n]) - signal_[n];
    for (int m = 0; m < frames(); ++m) {
        const float* spectrum = transformFrame(signal_.data(), m);
        const float* v = frame(v_, m);
        float* out = frame(next_, m);
        for (int n = 0; n < window_; ++n) out[n] = v[n] + analysisScale_ * spectrum[n];
    }
}

void SocialSparsitySolver::synthesise(const std::vector<float>& coefficients)
{
    std::fill(signal_.begin(), signal_.end(), 0.0f);
    for (int m = 0; m < frames(); ++m) {
        const int start = firstStart_ + m * hop_;
        const auto [first, end] = inside(start, window_, settings_.blockLength);
        const float* in = coefficients.data() + static_cast<std::size_t>(m) * window_;
        std::copy(in, in + window_, scratch_.begin());
        fft_.realInverseInPlace(scratch_.data(), packed);
        for (int n = first; n < end; ++n) signal_[start + n] += synthesisScale_ * scratch_[n] * hann_[n];
    }
}

// power_ = each coefficient's energy summed over 2F + 1 neighbouring bins (in
// ascending order of bin), frame by frame.
void SocialSparsitySolver::neighbourhoodEnergy()
{
    const int bins = half_ + 1, reach = settings_.neighbourBins;
    float* energy = energy_.data();
    for (int m = 0; m < frames(); ++m) {
        packed_spectrum::powers(frame(next_, m), half_, energy);
        float* row = power_.data() + static_cast<std::size_t>(m) * bins;
        // Near the ends, the bins that exist; inside, the same sum in a loop without tests.
        const auto edgeSum = [&](int b) {
            float sum = 0.0f;
            for (int k = std::max(0, b - reach); k <= std::min(half_, b + reach); ++k) sum += energy[k];
            return sum;
        };
        for (int b = 0; b < std::min(reach, bins); ++b) row[b] = edgeSum(b);
        for (int b = std::max(0, bins - reach); b < bins; ++b) row[b] = edgeSum(b);
        for (int b = reach; b < bins - reach; ++b) row[b] = energy[b - reach];
        for (int k = 1 - reach; k <= reach; ++k)
            for (int b = reach; b < bins - reach; ++b) row[b] += energy[b + k];
    }
}

void SocialSparsitySolver::shrink(float lambda)
{
    neighbourhoodEnergy();
    const int bins = half_ + 1, reach = settings_.neighbourFrames;
    const float lambdaSquared = lambda * lambda;
    float* energy = energy_.data();
    float* gain = scratch_.data();
    for (int m = 0; m < frames(); ++m) {
        // Energy over 2T + 1 frames, in ascending order of frame.
        const int first = std::max(0, m - reach), last = std::min(frames() - 1, m + reach);
        const float* firstRow = power_.data() + static_cast<std::size_t>(first) * bins;
        std::copy(firstRow, firstRow + bins, energy);
        for (int j = first + 1; j <= last; ++j) {
            const float* row = power_.data() + static_cast<std::size_t>(j) * bins;
            for (int b = 0; b < bins; ++b) energy[b] += row[b];
        }
        // The persistent empirical Wiener gain, spread over the packed layout. The energy
        // is floored at the smallest normal float so that an empty neighbourhood (whose
        // own coefficient is zero) divides without a test.
        for (int b = 0; b < bins; ++b) {
            const float floored = std::max(energy[b], std::numeric_limits<float>::min());
            energy[b] = std::max(1.0f - lambdaSquared / floored, 0.0f);
        }
        gain[0] = energy[0];
        gain[1] = energy[half_];
        for (int b = 1; b < half_; ++b) gain[2 * b] = gain[2 * b + 1] = energy[b];
        float* c = frame(next_, m);
        for (int n = 0; n < window_; ++n) c[n] *= gain[n];
    }
}

void SocialSparsitySolver::restore(float* block, const float* lower, const float* upper)
{
    analyse(block);
    float largest = 0.0f;
    for (int m = 0; m < frames(); ++m) {
        packed_spectrum::powers(frame(z_, m), half_, energy_.data());
        largest = std::max(largest, *std::max_element(energy_.begin(), energy_.end()));
    }
    if (!(largest > 0.0f)) return;
    v_ = z_;
    double lambda = settings_.firstLambda * std::sqrt(static_cast<double>(largest));
    double t = 1.0;
    for (int stage = 0; stage < settings_.stages; ++stage, lambda *= settings_.lambdaFall) {
        for (int iteration = 0; iteration < settings_.iterations; ++iteration) {
            synthesise(v_);
            analyseResidual(lower, upper);
            shrink(static_cast<float>(lambda));
            const double nextT = (1.0 + std::sqrt(1.0 + 4.0 * t * t)) / 2.0;
            const float momentum = static_cast<float>((t - 1.0) / nextT);
            t = nextT;
            for (std::size_t i = 0; i < z_.size(); ++i) {
                const float step = next_[i] - z_[i];
                v_[i] = next_[i] + momentum * step;
            }
            std::swap(z_, next_);
        }
    }
    synthesise(z_);
    for (int n = 0; n < settings_.blockLength; ++n) block[n] = std::clamp(signal_[n], lower[n], upper[n]);
}
