#include "declip/FrameDeclipper.h"

#include <algorithm>

#include "declip/LargestValues.h"

FrameDeclipper::Settings FrameDeclipper::Settings::forSampleRate(int sampleRate)
{
    Settings settings;
    int length = 256;
    // Nearest in log: step up while 0.15 s lies above the geometric midpoint.
    while (length < 8192 && sampleRate * 0.15 > length * 1.4142135623730951) length *= 2;
    settings.frameLength = length;
    // A long frame already resolves frequency finely (5.4 Hz at 8192 samples and
    // 44.1 kHz): oversampling it gains little and doubles every iteration's cost,
    // which the heavily clipped frames spend better on their longer search. A short
    // one (1024 samples at 8 kHz) keeps the oversampling for its heavily clipped
    // frames, which restores the most heavily clipped speech about 1.5 dB better.
    if (length >= 4096) settings.redundancy = 1;
    return settings;
}

FrameDeclipper::FrameDeclipper(const Settings& settings)
    : settings_(settings),
      size_(settings.frameLength * settings.redundancy),
      bins_(size_ / 2 + 1),
      fft_(size_),
      padded_(size_),
      specRe_(bins_), specIm_(bins_), dualRe_(bins_), dualIm_(bins_), targetRe_(bins_), targetIm_(bins_),
      magnitude_(bins_), ranked_(bins_), selection_(bins_)
{
}

void FrameDeclipper::analyse(const float* frame)
{
    std::copy(frame, frame + settings_.frameLength, padded_.begin());
    std::fill(padded_.begin() + settings_.frameLength, padded_.end(), 0.0f);
    fft_.realForward(padded_.data(), specRe_.data(), specIm_.data());
}

void FrameDeclipper::synthesise(float* frame)
{
    for (int k = 0; k < bins_; ++k) {
        targetRe_[k] -= dualRe_[k];
        targetIm_[k] -= dualIm_[k];
    }
    fft_.realInverse(targetRe_.data(), targetIm_.data(), padded_.data());
    for (int k = 0; k < bins_; ++k) {
        targetRe_[k] += dualRe_[k];
        targetIm_[k] += dualIm_[k];
    }
    std::copy(padded_.begin(), padded_.begin() + settings_.frameLength, frame);
}

void FrameDeclipper::keepLargest(int k)
{
    for (int bin = 0; bin < bins_; ++bin) {
        targetRe_[bin] = specRe_[bin] + dualRe_[bin];
        targetIm_[bin] = specIm_[bin] + dualIm_[bin];
        const float re = targetRe_[bin];
        const float im = targetIm_[bin];
        const float squareRe = re * re;
        const float squareIm = im * im;
        magnitude_[bin] = squareRe + squareIm;
    }
    if (k >= bins_) return;
    // Keeping every bin at or above the k-th largest magnitude keeps the result
    // independent of the order among equal magnitudes.
    const float threshold = kthLargest(magnitude_.data(), bins_, k, selection_);
    for (int bin = 0; bin < bins_; ++bin) {
        if (magnitude_[bin] < threshold) targetRe_[bin] = targetIm_[bin] = 0.0f;
    }
}

double FrameDeclipper::residualEnergy() const
{
    // Parseval over the full (Hermitian) spectrum, in the time domain's scale.
    double energy = 0.0;
    for (int bin = 0; bin < bins_; ++bin) {
        const double re = static_cast<double>(specRe_[bin]) - targetRe_[bin];
        const double im = static_cast<double>(specIm_[bin]) - targetIm_[bin];
        const double squareRe = re * re;
        const double squareIm = im * im;
        const double power = squareRe + squareIm;
        energy += (bin == 0 || bin == bins_ - 1) ? power : 2.0 * power;
    }
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
    double total = 0.0;
    for (int bin = 0; bin < bins_; ++bin) {
        const float re = specRe_[bin], im = specIm_[bin];
        const float squareRe = re * re;
        const float squareIm = im * im;
        ranked_[bin] = squareRe + squareIm;
        total += ranked_[bin];
    }
    std::sort(ranked_.begin(), ranked_.end(), std::greater<float>());
    double sum = 0.0;
    int k = 0;
    while (k < bins_ && sum < share * total) sum += ranked_[k++];
    return k;
}

int FrameDeclipper::restore(float* frame, const float* lower, const float* upper)
{
    const int length = settings_.frameLength;
    double frameEnergy = 0.0;
    for (int n = 0; n < length; ++n) frameEnergy += static_cast<double>(frame[n]) * frame[n];
    const double tolerance = static_cast<double>(settings_.tolerance) * settings_.tolerance * frameEnergy;

    std::fill(dualRe_.begin(), dualRe_.end(), 0.0f);
    std::fill(dualIm_.begin(), dualIm_.end(), 0.0f);
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
        synthesise(frame);
        for (int n = 0; n < length; ++n) frame[n] = std::clamp(frame[n], lower[n], upper[n]);
        analyse(frame);
        if (residualEnergy() <= tolerance) break;
        for (int bin = 0; bin < bins_; ++bin) {
            dualRe_[bin] += specRe_[bin] - targetRe_[bin];
            dualIm_[bin] += specIm_[bin] - targetIm_[bin];
        }
        k += step + (shift > 0 ? k >> shift : 0);
    }
    return iteration;
}
