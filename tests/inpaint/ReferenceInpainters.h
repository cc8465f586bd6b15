// Plain, slow references for gap filling, written for clarity rather than speed:
//   classic Janssen: an AR model from the biased autocorrelation of a short segment
//     around the gap (direct sums, Levinson-Durbin), then the least-squares fill,
//     iterated a fixed number of times;
//   gap-wise Janssen with Burg: the model by Burg's method over the whole gap and a
//     long context on each side, the same least-squares fill, three passes.
// A pass whose fill is not finite (singular normal equations) is undone and ends it.
// The fill solves the normal equations by a banded Cholesky factorisation. Both work
// on one channel at a time, on doubles; the caller provides the context.
#pragma once

#include <vector>

namespace inpaint_reference {

struct Segment {
    std::vector<double> samples;  // context, gap, context
    int gapStart;
    int gapLength;
};

// AR polynomial (order + 1 values, a[0] = 1) by Levinson-Durbin from direct lags.
std::vector<double> autocorrelationModel(const std::vector<double>& x, int order);
// AR polynomial by Burg's method.
std::vector<double> burgModel(const std::vector<double>& x, int order);
// Replaces the gap by the samples minimising the prediction error over every
// residual of the segment (the segment holds at least `order` samples on each side).
void leastSquaresFill(Segment& segment, const std::vector<double>& model);

// Context each side, in samples, that the two references read at a sample rate.
int classicContext(int rate);
int gapwiseContext(int rate);

void classicJanssen(Segment& segment, int rate);
void gapwiseBurgJanssen(Segment& segment, int rate);

}  // namespace inpaint_reference
