#include "declip/BoundedArFill.h"

#include <algorithm>
#include <cmath>

namespace {

// sum a[i] b[i] over i < count in four interleaved partial sums joined in a fixed
// order: independent lanes the compiler may run side by side, the same bits on every
// target.
[[gnu::always_inline]] inline double dot(const double* a, const double* b, int count)
{
    double lane[4] = {0.0, 0.0, 0.0, 0.0};
    int i = 0;
    for (; i + 4 <= count; i += 4)
        for (int l = 0; l < 4; ++l) lane[l] += a[i + l] * b[i + l];
    for (int l = 0; i < count; ++i, ++l) lane[l] += a[i] * b[i];
    return (lane[0] + lane[1]) + (lane[2] + lane[3]);
}

}  // namespace

BoundedArFill::BoundedArFill(int frameLength, int order)
    : length_(frameLength),
      order_(order),
      burg_(frameLength, 1, order),
      windowed_(frameLength),
      correlation_(2 * order + 1),
      known_(frameLength),
      unknown_(frameLength),
      position_(frameLength),
      rowStart_(frameLength),
      rowOffset_(frameLength + 1),
      factor_(static_cast<std::size_t>(frameLength) * (order + 1)),
      solution_(frameLength)
{
}

void BoundedArFill::fill(double* frame, const float* lower, const float* upper, const float* window)
{
    estimate(frame, window);
    for (int n = 0; n < length_; ++n) unknown_[n] = lower[n] != upper[n] ? 1 : 0;
    for (int round = 0; round < rounds; ++round) {
        gatherUnknowns();
        if (position_.empty()) return;
        factor();
        solve(frame);
        if (!holdViolations(frame, lower, upper)) return;
    }
}

// Burg's model of the windowed frame, and its autocorrelation r[k] = sum_m a[m] a[m + k].
void BoundedArFill::estimate(const double* frame, const float* window)
{
    for (int n = 0; n < length_; ++n) windowed_[n] = frame[n] * window[n];
    burg_.begin(order_);
    burg_.add(windowed_.data(), length_);
    const double* a = burg_.model();
    for (int k = 0; k <= order_; ++k) {
        double sum = 0.0;
        for (int m = 0; m + k <= order_; ++m) sum += a[m] * a[m + k];
        correlation_[order_ + k] = correlation_[order_ - k] = sum;
    }
}

// The unknowns in ascending order, and each row's envelope: the columns of the
// unknowns within the order before it.
void BoundedArFill::gatherUnknowns()
{
    position_.clear();
    for (int n = 0; n < length_; ++n)
        if (unknown_[n]) position_.push_back(n);
    const int count = static_cast<int>(position_.size());
    int first = 0;
    rowOffset_[0] = 0;
    for (int i = 0; i < count; ++i) {
        while (position_[i] - position_[first] > order_) ++first;
        rowStart_[i] = first;
        rowOffset_[i + 1] = rowOffset_[i] + static_cast<std::size_t>(i - first + 1);
    }
}

// Cholesky factor L of the normal matrix, row by row on its envelope.
void BoundedArFill::factor()
{
    const int count = static_cast<int>(position_.size());
    const double ridge = 1e-9 * correlation_[order_];
    for (int i = 0; i < count; ++i) {
        double* row = factor_.data() + rowOffset_[i] - rowStart_[i];  // row[j]: L(i, j)
        for (int j = rowStart_[i]; j <= i; ++j) {
            const double* other = factor_.data() + rowOffset_[j] - rowStart_[j];
            const int first = std::max(rowStart_[i], rowStart_[j]);
            const double sum = correlation_[order_ + position_[i] - position_[j]] + (i == j ? ridge : 0.0) -
                               dot(row + first, other + first, j - first);
            if (j < i) {
                row[j] = sum / other[j];
            } else {
                // Rounding can leave a pivot of a nearly singular matrix at or below zero;
                // the ridge is the least it can be.
                row[i] = std::sqrt(std::max(sum, ridge > 0.0 ? ridge : 1e-300));
            }
        }
    }
}

// The unknowns that minimise the prediction error energy, given the known samples.
void BoundedArFill::solve(const double* frame)
{
    const int count = static_cast<int>(position_.size());
    // Right-hand side: minus the known samples' part of the normal equations, from
    // the frame with its unknowns at zero.
    for (int n = 0; n < length_; ++n) known_[n] = unknown_[n] ? 0.0 : frame[n];
    for (int i = 0; i < count; ++i) {
        const int at = position_[i];
        const int first = std::max(at - order_, 0), end = std::min(at + order_ + 1, length_);
        solution_[i] = -dot(correlation_.data() + order_ + first - at, known_.data() + first, end - first);
    }
    // L y = b, then L' x = y (by rows of L, each solved unknown taken out of the earlier ones).
    for (int i = 0; i < count; ++i) {
        const double* row = factor_.data() + rowOffset_[i] - rowStart_[i];
        const int first = rowStart_[i];
        solution_[i] = (solution_[i] - dot(row + first, solution_.data() + first, i - first)) / row[i];
    }
    for (int i = count - 1; i >= 0; --i) {
        const double* row = factor_.data() + rowOffset_[i] - rowStart_[i];
        solution_[i] /= row[i];
        for (int k = rowStart_[i]; k < i; ++k) solution_[k] -= row[k] * solution_[i];
    }
}

// Writes the solution into the frame; unknowns beyond their bounds are held at them
// and known from now on. So are the unknowns of a cluster (unknowns closer than the
// order to the next; clusters decouple) that holds no violation: holding samples of
// other clusters changes neither its equations nor its factor, so its solution is
// final. Returns whether any unknown was held.
bool BoundedArFill::holdViolations(double* frame, const float* lower, const float* upper)
{
    bool any = false;
    const int count = static_cast<int>(position_.size());
    for (int first = 0; first < count;) {
        int end = first + 1;
        while (end < count && rowStart_[end] < end) ++end;
        bool held = false;
        for (int i = first; i < end; ++i) {
            const int at = position_[i];
            const double value = solution_[i];
            const bool below = value < lower[at], above = value > upper[at];
            frame[at] = below ? lower[at] : (above ? upper[at] : value);
            if (below || above) unknown_[at] = 0, held = true;
        }
        if (!held)
            for (int i = first; i < end; ++i) unknown_[position_[i]] = 0;
        any = any || held;
        first = end;
    }
    return any;
}
