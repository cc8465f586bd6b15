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
// Plain double arithmetic in a fixed order: the same bits on every path
// (ImpulseKernels.h). find() allocates only while its output grows; one thread at
// a time per object.
#pragma once

#include <array>
#include <optional>
#include <span>
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
        double peak = 0.0;  // the largest error in it over the block's robust level (fine crackle)
    };

    static constexpr int fineJoin = 8;
    static constexpr int fineExtent = 3;
    static constexpr int fineLongExtent = 5;
    static constexpr double fineLongThreshold = 20.0;
    static constexpr int localReach = 128;
    static constexpr int finePerBlock = 2;

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
    void findFine(int validFrom, int validTo, double level, std::vector<Impulse>& fine);
    std::optional<Impulse> fineIn(int runStart, int runEnd, double level);
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
    std::array<bool, computed> fineForward_{};
    std::array<bool, computed> fineBackward_{};
    std::array<double, computed> forwardErrors_{};
    std::array<double, computed> backwardErrors_{};
    std::array<double, block> magnitudes_{};
    std::array<double, 2 * localReach + fineJoin + 2 * order> local_{};
    std::vector<Impulse> blockFine_;
};
