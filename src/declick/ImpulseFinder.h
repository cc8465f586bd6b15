// Finds impulses: runs of a few samples that stand far out of the local signal,
// such as a full-scale click in a quiet passage, which the crackle engines pass
// through their tonal part because it lifts every bin far above the floor.
//
// A block of audio is judged with a short AR model fitted (autocorrelation method,
// Hann window) over the block and `context` samples on each side. A sample is
// flagged where its forward or backward prediction error exceeds `threshold` times
// the errors' robust level over the block (their median absolute value / 0.6745).
// Flags closer than maxImpulse join; a run whose extent stays short is an impulse,
// from its first forward flag (the first sample the past cannot predict) to its
// last backward flag (the last one the future cannot). A transient that goes on
// (a drum's attack) keeps flagging and is left alone.
//
// Fine crackle, faint beside the music, is found by the matched filter of the
// forward errors (the errors filtered by the time-reversed model). An impulse's
// errors are the model's own coefficients and add up in it coherently, lifting it
// by the model's norm above the error level, while the error bursts of a transient
// the model cannot follow do not line up. A crackle of two or three samples of one
// sign adds up over neighbouring outputs, so each position scores the largest of the
// sums of one, two and three outputs, each over its deviation for white errors. A
// sample is flagged where its score exceeds fineThreshold times the errors' robust
// level; the crackle's extent is then read off the prediction errors around the run
// at half that threshold (first forward flag to last backward flag).
//
// Plain double arithmetic in a fixed order: the same bits on every path
// (ImpulseKernels.h). find() allocates only while its output grows; one thread at
// a time per object.
#pragma once

#include <array>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include "declick/TaperedModel.h"
#include "signal/KernelPath.h"

class ImpulseFinder {
public:
    static constexpr int order = 16;
    static constexpr int block = 512;
    static constexpr int context = 256;  // samples read on each side of a block
    static constexpr int window = context + block + context;
    static constexpr int maxImpulse = 32;  // samples, first forward flag to last backward flag

    struct Impulse {
        int first;  // relative to the block's first sample
        int last;
        double peak = 0.0;  // fine crackle: its largest score over the block's robust level
    };

    static constexpr int fineJoin = 8;     // flags closer than this join one run
    static constexpr int fineLongest = 5;  // samples, first forward flag to last backward flag
    static constexpr int fineSpread = 4;   // samples beyond a run searched for its extent
    static constexpr int finePerBlock = 3; // a block with more runs keeps none of them
    static constexpr int pulseLengths = 3; // scores sum 1 to this many matched-filter outputs
    static constexpr int fineTail = 2 * fineJoin;  // scores taken past the block at a time
    static constexpr double fineExtentShare = 0.5;
    static constexpr int localReach = 128;

    // fineThreshold 0: no fine crackle is looked for.
    explicit ImpulseFinder(double threshold, double fineThreshold = 0.0);

    // samples: the block and its context, `window` samples with the block at
    // [context, context + block). Only [validFrom, validTo) lies inside the
    // recording: an error needing a sample outside it is not judged. Appends the
    // impulses that start in the block, and with a fine threshold the fine crackle
    // that does to `fine`.
    void find(std::span<const float, window> samples, int validFrom, int validTo, std::vector<Impulse>& found,
              std::vector<Impulse>* fine = nullptr);

private:
    // Flags are judged this far on each side of the block, so that a run starting in
    // the block is seen whole, with the gap that ends it.
    static constexpr int reach = 2 * maxImpulse + 2 * order;
    static constexpr int judged = reach + block + reach;
    // Errors are computed this far on each side: a fine run starting in the block,
    // with its surroundings.
    static constexpr int wideReach = localReach + fineJoin + 2 * order;
    static constexpr int computed = wideReach + block + wideReach;
    static constexpr int narrowOffset = wideReach - reach;  // judged[0] in computed
    // The matched filter reads `order` errors ahead: its last `order` positions are not computed.
    static constexpr int matchedCount = computed - order;
    static_assert(wideReach >= reach && wideReach + order <= context);

    bool fitModel(std::span<const float, window> samples);
    void predictionErrors(int direction, std::array<double, computed>& errors) const;
    double forwardError(int i) const { return forwardErrors_[narrowOffset + i]; }
    double backwardError(int i) const { return backwardErrors_[narrowOffset + i]; }
    int gatherBlockErrors(int validFrom, int validTo);
    double largestForwardError(int from, int to, int validFrom, int validTo) const;
    bool medianAtLeast(int count, double bound) const;
    double robustErrorLevel(std::span<const float, window> samples, int count);
    void flagOutliers(int validFrom, int validTo, double limit);
    std::optional<Impulse> impulseIn(int runStart, int runEnd) const;
    void collectRuns(std::vector<Impulse>& found) const;
    std::pair<int, int> matchedRange(int validFrom, int validTo) const;
    bool fineCracklePossible(int validFrom, int validTo, int count);
    int filterFor(int position);
    double scoreUpTo(int position);
    void findFine(int validFrom, int validTo, double level, std::vector<Impulse>& fine);
    std::pair<int, int> fineExtentOf(int runStart, int runEnd, int validFrom, int validTo, double level) const;
    std::optional<Impulse> fineIn(int runStart, int runEnd, int validFrom, int validTo, double level);
    double localErrorLevel(int runStart, int runEnd);

    double threshold_;
    double fineThreshold_;
    kernel_paths::Path kernelPath_;
    std::array<double, window> taper_{};
    std::array<double, window> widened_{};  // the window's samples in double
    std::array<double, window> tapered_{};
    TaperedModel<order> modelFit_;
    TaperedModel<order>::Model model_{};  // prediction error filter, model_[0] = 1
    std::array<bool, judged> forward_{};
    std::array<bool, judged> backward_{};
    std::array<double, computed> forwardErrors_{};
    std::array<double, computed> backwardErrors_{};
    std::array<double, matchedCount> matched_{};  // matched filter of the forward errors, unscaled
    std::array<double, matchedCount> score_{};    // pulse scores (fineCracklePossible)
    std::array<double, pulseLengths> pulseWeights_{};  // 1 / deviation of a pulse's sum, by length
    int matchedTo_ = 0;   // the judged range's end
    int scoreFrom_ = 0;   // where runs are looked for
    int filteredTo_ = 0;  // matched_ holds [scoreFrom_, filteredTo_)
    int scoredTo_ = 0;    // score_ holds [scoreFrom_, scoredTo_)
    std::array<double, block> magnitudes_{};
    std::array<double, 2 * localReach + fineJoin + 2 * order> local_{};
    std::vector<Impulse> blockFine_;  // the block's fine crackle, kept between blocks
};
