#include "declip/FrameDeclipper.h"

#include <algorithm>

#include "declip/FrameGrid.h"
#include "declip/LargestValues.h"
#include "declip/PackedSpectrum.h"

FrameDeclipper::Settings FrameDeclipper::Settings::forSampleRate(int sampleRate)
{
    return forFrameLength(frame_grid::nearestPowerOfTwo(sampleRate * 0.15, 256, 8192));
}

FrameDeclipper::Settings FrameDeclipper::Settings::shorterFor(int sampleRate)
{
    Settings settings = forFrameLength(forSampleRate(sampleRate).frameLength / 2);
    settings.sparsityShift = 4;
    return settings;
}

FrameDeclipper::Settings FrameDeclipper::Settings::forFrameLength(int length)
{
    Settings settings;
    settings.frameLength = length;
    // A long frame already resolves frequency finely (5.4 Hz at 8192 samples and
    // 44.1 kHz): oversampling it gains little and doubles every iteration's cost,
    // which the heavily clipped frames spend better on their longer search. A short
    // one (1024 samples at 8 kHz) keeps the oversampling for its heavily clipped
    // frames, which restores the most heavily clipped speech about 1.5 dB better,
    // and four times oversampled where nearly every sample is clipped (speech
    // clipped to 1-3 dB), where the few reliable samples between runs must place
    // each partial: 8 kHz speech clipped to 1 dB comes back 0.2-0.9 dB better (five
    // excerpts) for about 1.3 times the time. In 4096-sample frames that costs
    // nearly three times the time for 0.4 dB (dialogue at 22.05 kHz, 1 dB).
    if (length >= 4096) settings.redundancy = settings.heaviestRedundancy = 1;
    // Frames of 4096 samples and less grow k by about 1.5% a step instead of 6%: a
    // finer search for the sparsity that meets the bounds. Steps of 3% restored
    // dialogue (22.05 kHz) clipped to 7-15 dB about 1 dB better than 6% and speech
    // at 8 kHz up to 0.8 dB better, for about 1.4 times the time; 1.5% adds
    // 0.1-1.0 dB on dialogue clipped to 5-20 dB for another 1.6 times the time
    // there (8 kHz speech: under 0.1 dB, for 4% more). At 8192 samples steps of 3%
    // cost music clipped to 20 dB 0.8 dB, so long frames keep the larger steps.
    if (length <= 4096) settings.sparsityShift = 6;
    return settings;
}

FrameDeclipper::FrameDeclipper(const Settings& settings)
    : settings_(settings),
      size_(settings.frameLength * settings.redundancy),
      bins_(size_ / 2 + 1),
      fft_(size_),
      spectrum_(size_), dual_(size_), target_(size_),
      magnitude_(bins_), ranked_(bins_), candidates_(bins_), selection_(bins_)
{
}

namespace {

constexpr unsigned int packed = packed_spectrum::layout;

}  // namespace

void FrameDeclipper::analyse(const float* frame)
{
    std::copy(frame, frame + settings_.frameLength, spectrum_.begin());
    std::fill(spectrum_.begin() + settings_.frameLength, spectrum_.end(), 0.0f);
    fft_.realForwardInPlace(spectrum_.data(), packed);
}

void FrameDeclipper::synthesise()
{
    float* samples = spectrum_.data();
    float* target = target_.data();
    const float* dual = dual_.data();
    // target_ goes on as (target_ - dual_) + dual_, rounding and all.
    for (int i = 0; i < size_; ++i) {
        const float difference = target[i] - dual[i];
        samples[i] = difference;
        target[i] = difference + dual[i];
    }
    fft_.realInverseInPlace(samples, packed);
}

void FrameDeclipper::project(float* frame, const float* lower, const float* upper)
{
    float* samples = spectrum_.data();
    const int length = settings_.frameLength;
    for (int n = 0; n < length; ++n) {
        const float value = std::clamp(samples[n], lower[n], upper[n]);
        frame[n] = value;
        samples[n] = value;
    }
    std::fill(samples + length, samples + size_, 0.0f);
    fft_.realForwardInPlace(samples, packed);
}

void FrameDeclipper::keepLargest(int k)
{
    float* target = target_.data();
    const float* spectrum = spectrum_.data();
    const float* dual = dual_.data();
    float* magnitude = magnitude_.data();
    const int half = bins_ - 1;
    for (int i = 0; i < size_; ++i) target[i] = spectrum[i] + dual[i];
    packed_spectrum::powers(target, half, magnitude);
    if (k >= bins_) return;
    // Keeping every bin at or above the k-th largest magnitude keeps the result
    // independent of the order among equal magnitudes.
    const float threshold = kthLargestMagnitude(k);
    if (magnitude[0] < threshold) target[0] = 0.0f;
    if (magnitude[half] < threshold) target[1] = 0.0f;
    for (int bin = 1; bin < half; ++bin) {
        const bool kept = !(magnitude[bin] < threshold);
        const float re = target[2 * bin], im = target[2 * bin + 1];
        target[2 * bin] = kept ? re : 0.0f;
        target[2 * bin + 1] = kept ? im : 0.0f;
    }
}

// The k-th largest of magnitude_. k grows slowly and the spectrum changes little
// from one iteration to the next, so the bins above a quarter of the last
// threshold nearly always hold the k largest: selecting among those alone gives
// the same value at a fraction of the cost when k is small beside the bins.
float FrameDeclipper::kthLargestMagnitude(int k)
{
    const float* magnitude = magnitude_.data();
    float* candidates = candidates_.data();
    const float floor = 0.25f * lastThreshold_;
    int count = 0;
    for (int bin = 0; bin < bins_; ++bin) {
        candidates[count] = magnitude[bin];
        count += magnitude[bin] >= floor ? 1 : 0;
    }
    lastThreshold_ = count >= k ? kthLargest(candidates, count, k, selection_)
                                : kthLargest(magnitude, bins_, k, selection_);
    return lastThreshold_;
}

double FrameDeclipper::updateDual()
{
    // ||A x - z||^2 by Parseval over the full (Hermitian) spectrum, in the time
    // domain's scale: the inner bins stand for two, DC and Nyquist for one. The
    // inner bins are summed in four interleaved partial sums, a fixed order that
    // does not wait on one long chain of additions.
    const float* spectrum = spectrum_.data();
    const float* target = target_.data();
    const auto square = [&](int i) {
        const double difference = static_cast<double>(spectrum[i]) - target[i];
        return difference * difference;
    };
    const auto power = [&](int bin) { return square(2 * bin) + square(2 * bin + 1); };
    const int half = bins_ - 1;
    constexpr int lanes = 4;
    double partial[lanes] = {};
    int bin = 1;
    for (; bin + lanes <= half; bin += lanes)
        for (int lane = 0; lane < lanes; ++lane) partial[lane] += power(bin + lane);
    for (; bin < half; ++bin) partial[0] += power(bin);
    const double inner = (partial[0] + partial[1]) + (partial[2] + partial[3]);
    const double energy = square(0) + 2.0 * inner + square(1);
    float* dual = dual_.data();
    for (int i = 0; i < size_; ++i) dual[i] += spectrum[i] - target[i];
    return energy / size_;
}

// Where k starts: the number of the observed frame's largest bins that hold the
// share of its energy left by the clipped share of its samples (at most 99%). A
// lightly clipped frame is nearly its own restoration, and growing k from 1 there
// only retraces what its spectrum already shows; a heavily clipped one starts low.
int FrameDeclipper::warmStart(double clippedShare)
{
    const double share = std::min(0.99, 1.0 - clippedShare);
    if (!(share > 0.0)) return 0;
    packed_spectrum::powers(spectrum_.data(), bins_ - 1, ranked_.data());
    double total = 0.0;
    for (int bin = 0; bin < bins_; ++bin) total += ranked_[bin];
    // Sums the largest first. Only the top few bins usually matter, so they are
    // ranked in growing batches rather than all at once.
    double sum = 0.0;
    int k = 0;
    for (int ranked = 0; k < bins_ && sum < share * total;) {
        const int batch = std::min(bins_, std::max(64, 2 * ranked));
        std::partial_sort(ranked_.begin() + ranked, ranked_.begin() + batch, ranked_.end(), std::greater<float>());
        ranked = batch;
        while (k < ranked && sum < share * total) sum += ranked_[k++];
    }
    return k;
}

int FrameDeclipper::restore(float* frame, const float* lower, const float* upper)
{
    const int length = settings_.frameLength;
    double frameEnergy = 0.0;
    for (int n = 0; n < length; ++n) frameEnergy += static_cast<double>(frame[n]) * frame[n];
    const double tolerance = static_cast<double>(settings_.tolerance) * settings_.tolerance * frameEnergy;

    lastThreshold_ = 0.0f;
    std::fill(dual_.begin(), dual_.end(), 0.0f);
    analyse(frame);
    int iteration = 0;
    int clipped = 0;
    for (int n = 0; n < length; ++n) clipped += lower[n] != upper[n];
    const double clippedShare = static_cast<double>(clipped) / length;
    // A heavily clipped frame needs k to grow one bin at a time to find the sparse
    // signal behind its long runs; a lightly clipped one gets there in larger steps.
    const bool slow = clippedShare > settings_.heavyShare;
    const int step = slow ? 1 : settings_.sparsityStep;
    const int shift = slow ? 0 : settings_.sparsityShift;
    int k = std::max(step, warmStart(clippedShare));
    const int iterations = slow ? settings_.heavyIterations : settings_.maxIterations;
    while (iteration < iterations) {
        ++iteration;
        keepLargest(k);
        synthesise();
        project(frame, lower, upper);
        if (updateDual() <= tolerance) break;
        // Past the bin count every bin is kept already; held there, k cannot overflow
        // when a frame never converges (samples near the float range).
        k = std::min(bins_, k + step + (shift > 0 ? k >> shift : 0));
    }
    return iteration;
}
