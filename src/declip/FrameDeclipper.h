// Restores the clipped samples of one windowed frame by sparsity in a redundant
// DFT frame: the analysis-sparsity declipper A-SPADE of Kitic, Bertin and Gribonval
// ("Sparsity and cosparsity for audio declipping: a flexible non-convex approach",
// LVA/ICA 2015) in the form of Zaviska, Rajmic, Mokry and Prusa ("A proper version
// of synthesis-based sparse audio declipper", ICASSP 2019). Alternating:
//   z = H_k(A x + u)                      keep the k largest DFT bins
//   x = P(A* (z - u))                     project onto the consistent set
//   u = u + A x - z
// until ||A x - z|| <= tolerance, with k growing each iteration from a start taken
// from the observed frame's spectrum (see warmStart).
// A is the DFT of the frame zero-padded to redundancy * N (a tight frame, so A* A = I
// up to the FFT's scale); P clamps each sample into [lower, upper]: a reliable
// sample has lower == upper, a clipped one an open side.
//
// Floats; any scale (the tolerance is relative to the frame's norm). The
// constructor allocates; restore() does not. Results depend only on the inputs.
// One thread at a time per object.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "signal/CFft.h"

class FrameDeclipper {
public:
    struct Settings {
        int frameLength = 2048;
        int redundancy = 2;       // DFT size / frame length (1: the plain DFT of the frame); Declipper
                                  // uses it for heavily clipped frames only
        int sparsityStep = 2;     // bins added to k per iteration
        int sparsityShift = 4;    // and k >> sparsityShift more (0: none): about 6% a step
                                  // (forSampleRate: 1.5% in frames of 4096 samples and less)
        float tolerance = 0.05f;  // stop when ||A x - z|| <= tolerance * ||frame||
        int maxIterations = 500;
        // Frames with more than this share of clipped samples grow k by one bin per
        // iteration, for at most heavyIterations iterations.
        float heavyShare = 0.45f;
        int heavyIterations = 1000;
        // Frames with more than heaviestShare clipped: Declipper solves them in a DFT
        // oversampled heaviestRedundancy times.
        float heaviestShare = 0.85f;
        int heaviestRedundancy = 4;

        // Frames of about 0.15 s: the power of two nearest 0.15 s of samples, from 256
        // to 8192 (8192 at 44.1 and 48 kHz, 2048 at 16 kHz, 1024 at 8 kHz). Shorter
        // frames lose the sparsity that carries a long clipped run (at 44.1 kHz,
        // 4096-sample frames restore music clipped to 15-20 dB some 3 dB worse for
        // about the same cost); longer ones cost more per sample.
        static Settings forSampleRate(int sampleRate);
        // A second restoration in frames half as long, with steps of about 6%, that
        // joins the first (ChannelFinisher): each length errs where the other does not
        // (a speech sound changes within a long frame, a partial needs a long one).
        static Settings shorterFor(int sampleRate);
        // The oversampling and the step in k for frames of `length` samples.
        static Settings forFrameLength(int length);
    };

    explicit FrameDeclipper(const Settings& settings);

    // frame: N windowed samples, replaced by the restored ones (each within its
    // bounds). lower/upper: N bounds. Returns the iterations used.
    int restore(float* frame, const float* lower, const float* upper);

    int frameLength() const { return settings_.frameLength; }

private:
    void analyse(const float* frame);           // spectrum_ = DFT of the padded frame
    void keepLargest(int k);                    // target_ = H_k(spectrum_ + dual_)
    void synthesise();                          // spectrum_ = inverse DFT of target_ - dual_
    void project(float* frame, const float* lower, const float* upper);  // clamp it into the
                                                // bounds, into frame too, and take its DFT again
    float kthLargestMagnitude(int k);
    double updateDual();                        // dual_ += spectrum_ - target_; returns the
                                                // residual's energy, in the time domain's scale
    int warmStart(double clippedShare);         // first k, from spectrum_

    Settings settings_;
    int size_;   // DFT length
    int bins_;   // size_ / 2 + 1
    standardLib::CFft<float> fft_;
    // Spectra in the transform's own packed layout, transformed in place: [0] the DC
    // bin, [1] the Nyquist bin (both real), [2b] and [2b + 1] the real and imaginary
    // parts of bin b. spectrum_ also holds the time samples between the transforms.
    std::vector<float> spectrum_, dual_, target_;
    std::vector<float> magnitude_, ranked_, candidates_;
    float lastThreshold_ = 0.0f;
    std::vector<std::uint32_t> selection_;
};
