// Restores the clipped samples of one block (about 0.74 s) by social sparsity in a
// short-time Fourier frame: the persistent empirical Wiener (PEW) declipper of
// Siedenburg, Kowalski and Dörfler ("Audio declipping with social sparsity", ICASSP
// 2014), the strongest method of the survey of Zaviska, Rajmic, Ozerov and Rencker
// (IEEE JSTSP 2021). FISTA on
//   1/2 dist(S z, consistent set)^2 + lambda * (social penalty of z),
// where S synthesises the block from its coefficients z in a tight STFT (sine windows
// of W samples every W/2). A coefficient's shrinkage looks at its neighbourhood, 2T+1
// frames by 2F+1 bins: it keeps z (1 - lambda^2 / E)+, E being the neighbourhood's
// energy, so that a partial that holds over neighbouring frames survives where an
// isolated coefficient of the same size does not. lambda falls geometrically over
// `stages` stages of `iterations` iterations each, from half the largest coefficient of
// the observed block; the momentum carries over from stage to stage.
//
// The block's samples beyond its ends are not part of the problem (free), so the
// solution is weak near them: callers weight it by a window that vanishes there.
// Floats; results depend only on the inputs. The constructor allocates; restore() does
// not. One thread at a time per object.
#pragma once

#include <vector>

#include "signal/CFft.h"

class SocialSparsitySolver {
public:
    struct Settings {
        int blockLength = 32768;
        int windowLength = 2048;  // W
        // Frames every W / overlap: 4 (Hann window) or 2 (sine window). Over 36 excerpts
        // of 30 s at 3-15 dB, four frames with T = 3 restored 0.01 dB better than two
        // with T = 1 (the same span of time), at twice the cost.
        int overlap = 2;
        // Twelve short stages rather than six of 25 iterations (lambda ending at 10^-3 of
        // its start): 0.14 dB more over 36 excerpts of 30 s and 0.07 over 26 more, for
        // the same time (17 iterations in six stages: 0.17 dB less).
        int stages = 12;
        int iterations = 13;         // per stage
        int neighbourFrames = 1;     // T: frames on each side
        int neighbourBins = 1;       // F: bins on each side
        float firstLambda = 0.5f;    // of the largest coefficient's magnitude
        double lambdaFall = 0.50118723362727224;  // per stage: 10^-0.3, to 10^-3.3 of the start
    };

    explicit SocialSparsitySolver(const Settings& settings);

    // block: blockLength samples, replaced by the restored ones (each within its
    // bounds). lower/upper: their bounds, a reliable sample's value on both sides.
    void restore(float* block, const float* lower, const float* upper);

private:
    int frames() const { return frameCount_; }
    double windowSquaresSum() const { return settings_.overlap == 4 ? 1.5 : 1.0; }
    float* frame(std::vector<float>& coefficients, int m) const { return coefficients.data() + m * window_; }
    const float* transformFrame(const float* signal, int m);  // windowed DFT of frame m, in scratch_
    void synthesise(const std::vector<float>& coefficients);   // signal_ = S coefficients
    void analyseResidual(const float* lower, const float* upper);  // next_ = v_ + A (P signal_ - signal_)
    void analyse(const float* block);                          // z_ = A block
    void shrink(float lambda);                                 // next_ *= its social gains
    void neighbourhoodEnergy();                                // energy_ from next_

    Settings settings_;
    int window_, hop_, half_, frameCount_, firstStart_;
    float analysisScale_, synthesisScale_;
    standardLib::CFft<float> fft_;
    std::vector<float> hann_;
    std::vector<float> z_, v_, next_;       // frames x W, the transform's packed layout
    std::vector<float> power_, energy_;     // frames x (W/2 + 1), bins in natural order
    std::vector<float> signal_, scratch_;   // blockLength; W
};
