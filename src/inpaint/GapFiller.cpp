#include "inpaint/GapFiller.h"

#include <algorithm>
#include <cmath>

namespace {

int msToSamples(double ms, int rate) { return std::max(1, static_cast<int>(std::lround(ms * rate / 1000.0))); }

double longest(const InpaintSettings& settings, double InpaintCandidate::*field)
{
    double most = 0.0;
    for (const InpaintCandidate& candidate : settings.candidates) {
        if (candidate.contextMs <= 0.0) break;
        most = std::max(most, candidate.*field);
    }
    return most;
}

// The period search reads no more than a model order on each side of a hole, so that
// on the validation stretches' inner side it stays clear of the gap.
PeriodicExtension periodicFor(const InpaintSettings& settings, int rate, int order, int maxChannels)
{
    const int maxPeriod = std::max(1, std::min(msToSamples(settings.periodicMaxMs, rate), order / 2));
    const int minPeriod = std::min(msToSamples(settings.periodicMinMs, rate), maxPeriod);
    const int window = std::max(1, std::min(msToSamples(settings.periodicWindowMs, rate), order - maxPeriod));
    return PeriodicExtension(minPeriod, maxPeriod, window, maxChannels);
}

// The repeat search's coarse pass looks at box sums of about 0.4 ms every 0.2 ms: the
// rhythm of a repeat shows there as well as at the full rate, at a fraction of the
// transform.
int coarseHop(int rate) { return std::max(1, rate / 5000); }

}  // namespace

GapFiller::GapFiller(int sampleRate, int maxGap, int maxChannels, InpaintSettings settings)
    : settings_(settings),
      contextSamples(msToSamples(longest(settings, &InpaintCandidate::contextMs), sampleRate)),
      order(std::min(msToSamples(longest(settings, &InpaintCandidate::orderMs), sampleRate), contextSamples)),
      errorWeightMaxGap(settings.errorWeightMaxGapMs > 0.0 ? msToSamples(settings.errorWeightMaxGapMs, sampleRate) : 0),
      sidedMaxGap(msToSamples(settings.sidedMaxGapMs, sampleRate)),
      holdOutMaxGap(msToSamples(settings.holdOutMaxGapMs, sampleRate)),
      nextToGapMaxGap(settings.nextToGapMaxGapMs > 0.0 ? msToSamples(settings.nextToGapMaxGapMs, sampleRate) : 0),
      nextToGapWidth(msToSamples(settings.nextToGapWidthMs, sampleRate)),
      edgeMaxGap(msToSamples(settings.edgeMaxGapMs, sampleRate)),
      periodicMinGap(msToSamples(settings.periodicMinGapMs, sampleRate)),
      patternMinGap(msToSamples(settings.patternMinGapMs, sampleRate)),
      patternReach(msToSamples(settings.patternReachMs, sampleRate)),
      patternBorder(msToSamples(settings.patternBorderMs, sampleRate)),
      patternLongGap(msToSamples(settings.patternLongGapMs, sampleRate)),
      patternWideMinGap(msToSamples(settings.patternWideMinGapMs, sampleRate)),
      patternWideReach(msToSamples(settings.patternWideReachMs, sampleRate)),
      repetitionReach(settings.repetitionReachMs > 0.0 ? msToSamples(settings.repetitionReachMs, sampleRate) : 0),
      repetitionMinGap(msToSamples(settings.repetitionMinGapMs, sampleRate)),
      repetitionMaxGap(msToSamples(settings.repetitionMaxGapMs, sampleRate)),
      maxGap_(maxGap),
      maxChannels_(maxChannels),
      segmentCapacity(2 * patternContext(maxGap) + maxGap),
      estimator(maxChannels * (2 * contextSamples + maxGap), 6 * maxChannels, order),
      flooring(order),
      normal(2 * arContext(maxGap) + maxGap, order),
      solver(std::max(maxGap, std::min(maxGap, nextToGapMaxGap) + 2 * nextToGapWidth), maxRows * maxChannels),
      edges(maxGap, order),
      sided(maxGap, order),
      search(maxGap >= patternMinGap ? 2 * patternContext(maxGap) + maxGap : 16, maxChannels,
             2 * std::max(patternBorder, static_cast<int>(settings.patternBorderShare * maxGap)) + maxGap),
      periodic(periodicFor(settings, sampleRate, order, maxChannels)),
      repeats_(repetitionReach > 0 ? 2 * contextLength(maxGap) + maxGap : 16, coarseHop(sampleRate),
               2 * arContext(maxGap) + maxGap),
      segments(new double[static_cast<std::size_t>(maxChannels) * segmentCapacity]()),
      work(new double[segmentCapacity]()),
      saved(new double[repetitionReach > 0 ? static_cast<std::size_t>(maxChannels) * savedStride() : 1]()),
      rightHandSides(new double[static_cast<std::size_t>(maxChannels) * (maxRows * maxGap + solver.maxSize())]()),
      rows(new double*[maxRows * maxChannels]()),
      rowSizes(new int[maxRows * maxChannels]()),
      segmentRows(new const double*[maxChannels]()),
      sourceRows(new const float*[maxChannels]()),
      column(new double[order + 1]()),
      model_(new double[order + 1]()),
      sideModels(new double[2 * (static_cast<std::size_t>(order) + 1)]()),
      candidateFills(new double[static_cast<std::size_t>(maxFills) * maxRows * maxChannels * maxGap]())
{
    for (const InpaintCandidate& candidate : settings.candidates) {
        if (candidate.contextMs <= 0.0) break;
        const int context = msToSamples(candidate.contextMs, sampleRate);
        candidateOrder[candidates] = std::min(context, msToSamples(candidate.orderMs, sampleRate));
        candidateContext[candidates] = context;
        candidateMaxGap[candidates] = candidate.maxGapMs > 0.0 ? msToSamples(candidate.maxGapMs, sampleRate) : maxGap;
        candidateMinGap[candidates] = candidate.minGapMs > 0.0 ? msToSamples(candidate.minGapMs, sampleRate) : 0;
        ++candidates;
    }
}

// The validation stretches sit a model order away from the gap (their residuals never
// reach it) with a model order of known audio beyond them.
int GapFiller::arContext(int length) const
{
    const int validationReach = settings_.validate ? 2 * order + length : 0;
    return std::max(contextSamples, validationReach);
}

bool GapFiller::repeats(int length) const
{
    return repetitionReach > 0 && length >= repetitionMinGap && length <= repetitionMaxGap;
}

// The samples on each side that the models and the similarity search of long gaps read.
int GapFiller::patternContext(int length) const
{
    const int reach = arContext(length);
    if (length >= patternWideMinGap) return std::max(reach, patternWideReach);
    return length >= patternMinGap ? std::max(reach, patternReach) : reach;
}

// Every gap from the shortest the repeat search serves reads its reach, the longer
// ones too, so that the context of a longest gap serves every shorter one.
int GapFiller::contextLength(int length) const
{
    const bool repeatReach = repetitionReach > 0 && length >= repetitionMinGap;
    return std::max(patternContext(length), repeatReach ? arContext(length) + repetitionReach : 0);
}

// The segment holds what the models and the similarity search read; the recording
// reaches further, as far as the repeat search looks.
GapFiller::Layout GapFiller::layout(int length, int before, int after) const
{
    const int reach = patternContext(length), total = 2 * reach + length, searched = contextLength(length);
    const int recordedFrom = reach - std::clamp(before, 0, searched);
    const int recordedTo = reach + length + std::clamp(after, 0, searched);
    Layout at{length, arContext(length), reach, total, std::max(0, recordedFrom), std::min(total, recordedTo),
              recordedFrom, recordedTo, {}, 0, false};
    setStretches(at);
    return at;
}

double* GapFiller::segment(int channel) const
{
    return segments.get() + static_cast<std::size_t>(channel) * segmentCapacity;
}

// Up to nextToGapMaxGap the stretches lie next to the gap; longer gaps have theirs, of
// their own length, an order away, beyond the reach of the gap's prediction errors.
void GapFiller::setStretches(Layout& at) const
{
    at.stretches = 0;
    at.nextToGap = at.length <= nextToGapMaxGap;
    if (!settings_.validate) return;
    const int g = at.gap(), length = at.length;
    const int width = std::min(length, nextToGapWidth);
    at.stretch[0] = at.nextToGap ? Stretch{g - width, width} : Stretch{g - order - length, length};
    at.stretch[1] = at.nextToGap ? Stretch{g + length, width} : Stretch{g + length + order, length};
    at.stretches = 2;
}

// Samples in a candidate's row: the gap's length, or its stretch's.
int GapFiller::rowLength(const Layout& at, int row, int channelCount) const
{
    return row < channelCount ? at.length : at.stretch[row / channelCount - 1].length;
}

double* GapFiller::rightHandSide(int row) const
{
    return rightHandSides.get() + static_cast<std::size_t>(row) * maxGap_;
}

// A channel's fill of the widened gap.
double* GapFiller::widenedRow(int channel) const
{
    return rightHandSides.get() + static_cast<std::size_t>(maxRows) * maxChannels_ * maxGap_ +
           static_cast<std::size_t>(channel) * solver.maxSize();
}

// The rows of the stretches beside the gap: the ends of each channel's widened fill.
void GapFiller::pointAtWidenedStretches(int channelCount, const Layout& at)
{
    for (int c = 0; c < channelCount; ++c) {
        rows[channelCount + c] = widenedRow(c);
        rows[2 * channelCount + c] = widenedRow(c) + at.stretch[0].length + at.length;
    }
}

// Whether a validation stretch and the audio its restoration reads lie in the recording:
// an order on both sides of a stretch of its own, on its outer side for one beside the
// gap (the inner side is the gap).
bool GapFiller::stretchKnown(const Layout& at, int i) const
{
    const Stretch& v = at.stretch[i];
    const int before = at.nextToGap && i == 1 ? 0 : order, after = at.nextToGap && i == 0 ? 0 : order;
    return at.holds(v.start - before, v.start + v.length + after);
}

// Past the recording's ends the segment holds silence again for the searches that
// read it.
void GapFiller::clearPastEdges(int channelCount, const Layout& at)
{
    for (int c = 0; c < channelCount; ++c) {
        std::fill(segment(c), segment(c) + at.knownFrom, 0.0);
        std::fill(segment(c) + at.knownTo, segment(c) + at.total, 0.0);
    }
}

// The repeat search reads the caller's audio beyond the segment as it is (sourceRows).
void GapFiller::load(float* const* channels, int channelCount, int start, const Layout& at)
{
    for (int c = 0; c < channelCount; ++c) {
        const float* from = channels[c] + start - at.reach;
        sourceRows[c] = from;
        double* to = segment(c);
        std::fill(to, to + at.knownFrom, 0.0);
        for (int i = at.knownFrom; i < at.gap(); ++i) to[i] = from[i];
        std::fill(to + at.gap(), to + at.gap() + at.length, 0.0);
        for (int i = at.gap() + at.length; i < at.knownTo; ++i) to[i] = from[i];
        std::fill(to + at.knownTo, to + at.total, 0.0);
    }
}

// Adds segment(c)[from, to) to the estimate, without any part of the validation
// stretches when they are held out.
void GapFiller::addContext(int c, const Layout& at, int from, int to, bool holdOut)
{
    const double* s = segment(c);
    from = std::max(from, at.knownFrom);
    to = std::min(to, at.knownTo);
    for (int i = 0; i < at.stretches && holdOut; ++i) {  // in the order they lie
        const Stretch& v = at.stretch[i];
        if (v.start < to && v.start + v.length > from) {  // any overlap, also of a stretch's tail
            if (v.start > from) estimator.add(s + from, v.start - from);
            from = v.start + v.length;
        }
    }
    if (to > from) estimator.add(s + from, to - from);
}

// A model order the recording's context can carry: near its ends, at most half the
// longer side's known audio.
int GapFiller::orderWithin(const Layout& at, int modelOrder) const
{
    const int side = std::max(at.gap() - at.knownFrom, at.knownTo - at.gap() - at.length);
    return side >= 2 * modelOrder ? modelOrder : std::max(1, side / 2);
}

void GapFiller::estimate(int channelCount, const Layout& at, int context, int modelOrder, bool firstPass,
                         bool holdOut)
{
    estimator.begin(modelOrder);
    const int g = at.gap();
    for (int c = 0; c < channelCount; ++c) {
        if (firstPass) {
            addContext(c, at, g - context, g, holdOut);
            addContext(c, at, g + at.length, g + at.length + context, holdOut);
        } else {
            addContext(c, at, g - context, g + at.length + context, holdOut);
        }
    }
    // Burg's spectra of high order reach depths that make the fill's normal equations
    // singular in double precision; a white floor far below the signal bounds them.
    std::copy_n(flooring.floored(estimator.model(), modelOrder, settings_.whiteFloor), modelOrder + 1, model_.get());
    normal.setModel(model_.get(), modelOrder);
}

// The audio past the recording's ends, as far as the gap's prediction errors reach,
// continued by the current model from the known audio and the current fill: the
// continuation the least-squares fill would choose for samples it is free to set, so
// that no error there pulls the fill towards silence.
void GapFiller::continuePastEdges(int channelCount, const Layout& at, int modelOrder)
{
    const double* a = model_.get();
    const int p = modelOrder;
    const int afterEnd = std::min(at.arEnd(), at.gap() + at.length + p);
    const int beforeStart = std::max(at.arStart(), at.gap() - p);
    for (int c = 0; c < channelCount; ++c) {
        double* s = segment(c);
        for (int t = at.knownTo; t < afterEnd; ++t) {
            double sum = 0.0;
            for (int k = 1; k <= p; ++k) sum += a[k] * s[t - k];
            s[t] = -sum;
        }
        for (int t = at.knownFrom - 1; t >= beforeStart; --t) {
            double sum = 0.0;
            for (int k = 1; k <= p; ++k) sum += a[k] * s[t + k];
            s[t] = -sum;
        }
    }
}

// Near an end, the solve takes the audio past it as the model's continuation of the
// recording, and the fill (unless `refine` is off: a fill that is dropped) is then
// refined towards the one that minimises only the prediction errors within it.
void GapFiller::solveNearEdges(int channelCount, const Layout& at, int modelOrder, bool refine, bool widen)
{
    const bool nearEdge = at.knownFrom > at.gap() - modelOrder || at.knownTo < at.gap() + at.length + modelOrder;
    if (!nearEdge) {
        solve(channelCount, at, modelOrder, widen);
        return;
    }
    continuePastEdges(channelCount, at, modelOrder);
    solve(channelCount, at, modelOrder, widen);
    for (int c = 0; c < channelCount && refine; ++c) {
        edges.refine(model_.get(), modelOrder, column.get(), solver, segment(c), at.gap(), at.length, at.knownFrom,
                     at.knownTo, settings_.edgeIterations);
        std::copy_n(segment(c) + at.gap(), at.length, rows[c]);
    }
}

// The least-squares fill of the gap (and of the validation stretches) given the model:
// T x = -(A^T A s)[gap] with the unknowns zero in s, T[i][j] = c[|i - j|]. The far
// stretches are holes of their own, beyond the reach of the gap's prediction errors;
// those next to the gap are filled with it as one widened hole, whose fill of the gap
// is the one kept. All holes share the model's column, so one recursion solves them.
void GapFiller::solve(int channelCount, const Layout& at, int modelOrder, bool widen)
{
    std::copy_n(normal.modelAutocorrelation(), modelOrder + 1, column.get());
    const int holes = 1 + at.farStretches();
    for (int c = 0; c < channelCount; ++c) {
        double* q = work.get();
        std::copy_n(segment(c) + at.arStart(), at.arTotal(), q);
        std::fill_n(q + at.arReach, at.length, 0.0);
        for (int i = 0; i + 1 < holes; ++i) std::fill_n(q + at.stretch[i].start - at.arStart(), at.length, 0.0);
        normal.apply(q, at.arTotal(), q);
        for (int v = 0; v < holes; ++v) {
            const double* from = q + (v == 0 ? at.gap() : at.stretch[v - 1].start) - at.arStart();
            double* rhs = rightHandSide(v * channelCount + c);
            for (int i = 0; i < at.length; ++i) rhs[i] = -from[i];
            rows[v * channelCount + c] = rhs;
            rowSizes[v * channelCount + c] = at.length;
        }
    }
    const bool widened = widen && at.widened();  // then the gap is the only hole of its size
    if (widened) widenedRightHandSides(channelCount, at);
    solver.solve(column.get(), modelOrder, rowSizes.get(), rows.get(), (widened ? 2 : holes) * channelCount);
    if (widened) pointAtWidenedStretches(channelCount, at);
    for (int c = 0; c < channelCount; ++c) std::copy_n(rows[c], at.length, segment(c) + at.gap());
}

// The right-hand sides of the gap widened by the stretches next to it, one hole, in
// the rows after the gap's; solved, their ends are the stretches' rows.
void GapFiller::widenedRightHandSides(int channelCount, const Layout& at)
{
    const Stretch& before = at.stretch[0];
    const int hole = before.length + at.length + at.stretch[1].length;
    for (int c = 0; c < channelCount; ++c) {
        double* q = work.get();
        std::copy_n(segment(c) + at.arStart(), at.arTotal(), q);
        std::fill_n(q + (before.start - at.arStart()), hole, 0.0);
        normal.apply(q, at.arTotal(), q);
        double* rhs = widenedRow(c);
        for (int i = 0; i < hole; ++i) rhs[i] = -q[before.start - at.arStart() + i];
        rows[channelCount + c] = rhs;
        rowSizes[channelCount + c] = hole;
    }
}

// The similarity search's fill of the gap, written to the first candidate's rows;
// true when its borders match well enough to stand for the gap.
bool GapFiller::patternFill(int channelCount, const Layout& at)
{
    const int reach = patternContext(at.length);
    for (int c = 0; c < channelCount; ++c) {
        segmentRows[c] = segment(c) + (at.reach - reach);
        rows[c] = candidateFills.get() + static_cast<std::size_t>(c) * maxGap_;
    }
    search.begin(segmentRows.get(), channelCount, 2 * reach + at.length);
    const int border = std::max(patternBorder, static_cast<int>(settings_.patternBorderShare * at.length));
    const double along = patternLongGap > patternMinGap
                             ? std::clamp(double(at.length - patternMinGap) / (patternLongGap - patternMinGap), 0.0, 1.0)
                             : 1.0;
    const double trust = at.length >= patternWideMinGap
                             ? settings_.patternWideTrust
                             : settings_.patternTrust + along * (settings_.patternLongTrust - settings_.patternTrust);
    return search.fill(reach, at.length, border, rows.get()) >= trust;
}

void GapFiller::keepCandidate(int candidate, int channelCount, const Layout& at, int firstRow, int endRow)
{
    for (int r = firstRow * channelCount; r < endRow * channelCount; ++r)
        std::copy_n(rows[r], rowLength(at, r, channelCount), candidateFill(candidate, r));
}

// The validation system: gram[i][j] = <y_i, y_j> and gram[i][k] = <y_i, x> over the
// validation stretches, x their known audio and y_i candidate i's restorations of it.
void GapFiller::validationSystem(int channelCount, const Layout& at, double (*gram)[maxFills + 1]) const
{
    const int k = activeCandidates;
    for (int row = channelCount; row < (1 + at.stretches) * channelCount; ++row) {
        const int stretch = row / channelCount - 1, c = row % channelCount;
        if (!stretchKnown(at, stretch)) continue;
        const double* x = segment(c) + at.stretch[stretch].start;
        const int w = at.stretch[stretch].length;
        for (int i = 0; i < k; ++i) {
            const double* yi = candidateFill(i, row);
            for (int j = 0; j <= i; ++j) {
                const double* yj = candidateFill(j, row);
                double sum = 0.0;
                for (int t = 0; t < w; ++t) sum += yi[t] * yj[t];
                gram[i][j] += sum;
            }
            double sum = 0.0;
            for (int t = 0; t < w; ++t) sum += yi[t] * x[t];
            gram[i][k] += sum;
        }
    }
}

namespace {

// Gaussian elimination on the small symmetric positive definite system gram (k x k)
// with its right-hand side in column k; the solution goes to x.
template <int columns>
void solveSmall(double (*gram)[columns], int k, double* x)
{
    for (int col = 0; col < k; ++col)
        for (int row = col + 1; row < k; ++row) {
            const double f = gram[row][col] / gram[col][col];
            for (int j = col; j <= k; ++j) gram[row][j] -= f * gram[col][j];
        }
    for (int i = k - 1; i >= 0; --i) {
        double sum = gram[i][k];
        for (int j = i + 1; j < k; ++j) sum -= gram[i][j] * x[j];
        x[i] = sum / gram[i][i];
    }
}

}  // namespace

// Each candidate's error over the validation stretches, each side's squared error
// relative to that side's energy (so that a loud side does not decide alone).
void GapFiller::relativeErrors(int channelCount, const Layout& at, double* errors) const
{
    for (int i = 0; i < activeCandidates; ++i) errors[i] = 0.0;
    for (int side = 0; side < at.stretches; ++side) {
        if (!stretchKnown(at, side)) continue;
        const int w = at.stretch[side].length;
        double energy = 0.0;
        for (int c = 0; c < channelCount; ++c) {
            const double* x = segment(c) + at.stretch[side].start;
            for (int t = 0; t < w; ++t) energy += x[t] * x[t];
        }
        if (!(energy > 0.0)) continue;
        for (int i = 0; i < activeCandidates; ++i) {
            double error = 0.0;
            for (int c = 0; c < channelCount; ++c) {
                const double* x = segment(c) + at.stretch[side].start;
                const double* y = candidateFill(i, (side + 1) * channelCount + c);
                for (int t = 0; t < w; ++t) error += (y[t] - x[t]) * (y[t] - x[t]);
            }
            errors[i] += error / energy;
        }
    }
}

namespace {

// x to a whole power by multiplications: the same bits on every platform, as a
// library's pow need not give.
double integerPower(double x, int power)
{
    double result = 1.0;
    for (int i = 0; i < power; ++i) result *= x;
    return result;
}

}  // namespace

// Weights that sum to one, each inversely proportional to a power of its fill's
// relative error on the validation stretches: a soft choice of the model that suits
// the sound (a short context for speech, the long one for music) which, unlike least
// squares on the stretches, neither shrinks a good fill nor chases their chance
// correlations. Taken relative to the least error, so no power overflows.
void GapFiller::weightByErrors(int channelCount, const Layout& at)
{
    double errors[maxFills];
    relativeErrors(channelCount, at, errors);
    const double least = *std::min_element(errors, errors + activeCandidates);
    double total = 0.0;
    for (int i = 0; i < activeCandidates; ++i) {
        // Without any error (silent stretches) the exact candidates share the weight.
        weights[i] = least > 0.0 ? integerPower(least / errors[i], settings_.errorWeightPower)
                                 : (errors[i] > 0.0 ? 0.0 : 1.0);
        total += weights[i];
    }
    for (int i = 0; i < activeCandidates; ++i) weights[i] /= total;
}

// Weights of the candidates' fills: for the shortest gaps from their errors on the
// validation stretches; for longer ones least squares of the known audio of the
// stretches on the candidates' restorations of it (a small ridge keeps the system
// regular), or the plain mean without validation.
void GapFiller::combineCandidates(int channelCount, const Layout& at)
{
    const int k = activeCandidates;
    for (int i = 0; i < k; ++i) weights[i] = 1.0 / k;
    if (!settings_.validate) return;
    if (at.length <= errorWeightMaxGap) {
        weightByErrors(channelCount, at);
        return;
    }
    // Column k: the known audio's products.
    double gram[maxFills][maxFills + 1] = {};
    validationSystem(channelCount, at, gram);
    double trace = 0.0;
    for (int i = 0; i < k; ++i) trace += gram[i][i];
    if (!(trace > 0.0)) return;
    for (int i = 0; i < k; ++i) {
        for (int j = i + 1; j < k; ++j) gram[i][j] = gram[j][i];
        gram[i][i] += 1e-3 * trace / k;
    }
    solveSmall(gram, k, weights);
    double total = 0.0;
    for (int i = 0; i < k; ++i) total += weights[i];
    if (total > 1.0)  // never louder than the candidates' own scale
        for (int i = 0; i < k; ++i) weights[i] /= total;
    if (total < 0.0)
        for (int i = 0; i < k; ++i) weights[i] = 0.0;
}

double* GapFiller::candidateFill(int candidate, int row) const
{
    return candidateFills.get() + (static_cast<std::size_t>(candidate) * maxRows * maxChannels_ + row) * maxGap_;
}

// The period repetition's fill of the gap and of the validation stretches: each far
// one a hole of its own (an order, more than its reach, away from the gap), those
// beside the gap as the ends of the widened hole.
void GapFiller::addPeriodicCandidate(int channelCount, const Layout& at)
{
    for (int c = 0; c < channelCount; ++c) segmentRows[c] = segment(c);
    for (int v = 0; v <= at.farStretches(); ++v) {
        for (int c = 0; c < channelCount; ++c) rows[c] = candidateFill(activeCandidates, v * channelCount + c);
        const double periodicity = periodic.fill(segmentRows.get(), channelCount,
                                                 v == 0 ? at.gap() : at.stretch[v - 1].start, at.length, rows.get());
        if (v == 0 && periodicity < settings_.periodicTrust) return;
    }
    if (at.widened()) {
        for (int c = 0; c < channelCount; ++c) rows[c] = widenedRow(c);
        periodic.fill(segmentRows.get(), channelCount, at.stretch[0].start,
                      at.stretch[0].length + at.length + at.stretch[1].length, rows.get());
        pointAtWidenedStretches(channelCount, at);
        keepCandidate(activeCandidates, channelCount, at, 1, maxRows);
    }
    ++activeCandidates;
}

// The candidate's fill of the gap moved `share` of the way to the fill under one model
// from each side (SidedLeastSquares), each estimated on its side's context alone.
// Near the recording's ends, where a side's context is short, the fill stays.
void GapFiller::blendSidedFill(int channelCount, const Layout& at, int context, int modelOrder, double share)
{
    const int g = at.gap(), p = modelOrder;
    if (at.knownFrom > g - context || at.knownTo < g + at.length + context) return;
    const std::size_t stride = static_cast<std::size_t>(order) + 1;
    for (int side = 0; side < 2; ++side) {
        estimator.begin(p);
        for (int c = 0; c < channelCount; ++c) estimator.add(segment(c) + (side == 0 ? g - context : g + at.length), context);
        std::copy_n(flooring.floored(estimator.model(), p, settings_.whiteFloor), p + 1, sideModels.get() + side * stride);
    }
    sided.setModels(sideModels.get(), sideModels.get() + stride, p, at.length);
    for (int c = 0; c < channelCount; ++c) {
        double* x = work.get();
        std::copy_n(segment(c) + g - p, at.length + 2 * p, x);
        sided.refine(solver, x, p, settings_.sidedIterations);
        for (int i = 0; i < at.length; ++i) rows[c][i] = (1.0 - share) * rows[c][i] + share * x[p + i];
    }
}

// One candidate model's fill of the gap and of the validation stretches, kept in the
// next candidate slot.
void GapFiller::fillCandidate(int candidate, int channelCount, const Layout& at)
{
    const InpaintCandidate& model = settings_.candidates[candidate];
    const int modelOrder = orderWithin(at, candidateOrder[candidate]);
    const int stretches = 1 + at.stretches;  // rows
    const bool holdOut = settings_.validate && at.length <= holdOutMaxGap;
    for (int heldOut = holdOut ? 1 : 0; heldOut >= 0; --heldOut) {
        // Without a held-out round the one estimate still leaves out the stretches
        // next to the gap, which its fill restores.
        const bool leaveOut = heldOut == 1 || (!holdOut && at.widened());
        for (int c = 0; c < channelCount; ++c) std::fill_n(segment(c) + at.gap(), at.length, 0.0);
        for (int pass = 0; pass < model.passes; ++pass) {
            estimate(channelCount, at, candidateContext[candidate], modelOrder, pass == 0, leaveOut);
            // The held-out estimate's last fill of the gap is not kept: near an end
            // it is left unrefined.
            const bool dropped = heldOut == 1 && pass + 1 == model.passes;
            solveNearEdges(channelCount, at, modelOrder, !dropped, leaveOut);
        }
        if (!heldOut && model.sidedShare > 0.0 && at.length <= sidedMaxGap)
            blendSidedFill(channelCount, at, candidateContext[candidate], modelOrder, model.sidedShare);
        if (heldOut) keepCandidate(activeCandidates, channelCount, at, 1, stretches);
        else keepCandidate(activeCandidates, channelCount, at, 0, holdOut ? 1 : stretches);
    }
}

// The best repeat of the models' reach around the gap, taken away before the long
// model (the first candidate) fills what remains of the gap and of the validation
// stretches, and added back after.
void GapFiller::addRepetitionCandidate(int channelCount, const Layout& at)
{
    if (at.recordedFrom > at.arStart() || at.recordedTo < at.arEnd()) return;
    const RepeatSearch::Match found = repeats_.find(sourceRows.get(), channelCount, at.recordedFrom, at.recordedTo,
                                                    at.gap(), at.length, at.arReach);
    if (found.correlation < settings_.repetitionTrust) return;
    const int shift = found.source - at.gap();
    for (int c = 0; c < channelCount; ++c) {
        std::copy_n(segment(c) + at.arStart(), at.arTotal(), savedRegion(c));
        double* s = segment(c);
        for (int t = at.arStart(); t < at.arEnd(); ++t)
            s[t] = unmodelled(c, at, t) - found.gain * unmodelled(c, at, t + shift);
    }
    fillCandidate(0, channelCount, at);
    for (int v = 0; v <= at.stretches; ++v) {
        const int from = (v == 0 ? at.gap() : at.stretch[v - 1].start) + shift;
        const int length = v == 0 ? at.length : at.stretch[v - 1].length;
        for (int c = 0; c < channelCount; ++c) {
            double* y = candidateFill(activeCandidates, v * channelCount + c);
            for (int i = 0; i < length; ++i) y[i] += found.gain * unmodelled(c, at, from + i);
        }
    }
    for (int c = 0; c < channelCount; ++c) std::copy_n(savedRegion(c), at.arTotal(), segment(c) + at.arStart());
    ++activeCandidates;
}

// The models' reach of the longest gap.
int GapFiller::savedStride() const { return 2 * arContext(maxGap_) + maxGap_; }

double* GapFiller::savedRegion(int channel) const
{
    return saved.get() + static_cast<std::size_t>(channel) * savedStride();
}

// The sample t as recorded (t in the recording, outside the gap), while the models'
// reach in the segment holds what the repeat leaves unexplained.
double GapFiller::unmodelled(int channel, const Layout& at, int t) const
{
    return t >= at.arStart() && t < at.arEnd() ? savedRegion(channel)[t - at.arStart()] : sourceRows[channel][t];
}

void GapFiller::fillFromModels(int channelCount, const Layout& at)
{
    activeCandidates = 0;
    for (int candidate = 0; candidate < candidates; ++candidate) {
        if (at.length > candidateMaxGap[candidate] || at.length < candidateMinGap[candidate]) continue;
        fillCandidate(candidate, channelCount, at);
        ++activeCandidates;
    }
    clearPastEdges(channelCount, at);
    if (at.length >= periodicMinGap) addPeriodicCandidate(channelCount, at);
    if (repeats(at.length)) addRepetitionCandidate(channelCount, at);
    combineCandidates(channelCount, at);
}

void GapFiller::fill(float* const* channels, int channelCount, int start, int length)
{
    const int reach = contextLength(length);
    fill(channels, channelCount, start, length, reach, reach);
}

void GapFiller::fill(float* const* channels, int channelCount, int start, int length, int before, int after)
{
    if (length <= 0 || channelCount <= 0) return;
    Layout at = layout(length, before, after);
    load(channels, channelCount, start, at);
    if (length > edgeMaxGap) {  // silence past the ends, taken as audio
        at.knownFrom = 0;
        at.knownTo = at.total;
    }
    if (length >= patternMinGap && patternFill(channelCount, at)) {
        activeCandidates = 1;
        weights[0] = 1.0;
    } else {
        fillFromModels(channelCount, at);
    }
    for (int c = 0; c < channelCount; ++c)
        for (int i = 0; i < length; ++i) {
            double sum = 0.0;
            for (int candidate = 0; candidate < activeCandidates; ++candidate)
                sum += weights[candidate] * candidateFill(candidate, c)[i];
            channels[c][start + i] = static_cast<float>(sum);
        }
}
