// Least-squares AR repair of one gap in one channel (the click methods).
//
// interpolate takes a windowed stretch of N = min(contextLength, 1024) samples
// around the gap, estimates an AR model of order min(2L, maxOrder) from it by
// autocorrelation and Levinson-Durbin, and solves the gap from the m samples on
// each side. It reads samples[start - N .. start + N - 1] and up to
// samples[start + L + m - 1]; the caller guarantees they exist.
//
// Modes: 1 and 2 estimate from the N samples centred on the gap's start (the
// click methods); 3 and 4 are one-sided variants with a short far context.
// One object serves one thread; the dither generator's state is per thread.
#pragma once

#include <memory>
#include <vector>

#include "ar/ArWorkspace.h"

class LsarInterp {
public:
    LsarInterp(int contextLength, int maxGapSamples);

    // Repairs samples[start .. start+length-1] in place. Returns 0, or 1 when
    // length exceeds the gap limit (nothing written).
    int interpolate(float* samples, int start, int length, int mode);

    // Largest model order for a gap limit: twice the gap below 150 samples, 1.1
    // times it from there on (so the order steps down from 298 to 165 at 150).
    static int largestOrderFor(int maxGap);

    int maxOrder() const { return maxOrder_; }
    int analysisLength() const { return analysisLength_; }
    int maxGap() const { return maxGap_; }
    int modelOrder() const { return modelOrder_; }
    const std::vector<double>& coefficients() const { return coefficients_; }
    const std::vector<double>& autocorrelation() const { return autocorrelation_; }

private:
    // Fills the context from both sides of the gap, solves and writes the gap back.
    void solve(float* samples, int start, int gap, int mode);

    std::unique_ptr<ArWorkspace> workspace_;
    int maxOrder_;
    std::vector<double> autocorrelation_;
    std::vector<double> coefficients_;
    int analysisLength_;
    int maxGap_;
    int modelOrder_ = 0;
    std::vector<float> context_;
};
