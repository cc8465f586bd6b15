// Fills a gap of missing samples in one or more channels from the audio on both
// sides, by least-squares autoregressive (AR) interpolation over the whole gap
// (Janssen, Veldhuis & Vries, "Adaptive interpolation of discrete-time signals that
// can be modeled as autoregressive processes", 1986, run gap-wise as in Mokrý &
// Rajmic, "On the use of autoregressive methods for audio inpainting", 2024).
//
// The model comes from Burg's method over the context on both sides, never across
// the gap, pooled over the channels; a white floor under its spectrum keeps the
// solve regular. Further passes (if asked) take the model across the current fill.
// One banded Toeplitz system, solved by Levinson's recursion with FFT products for
// the right-hand sides, serves every channel. With several candidate models (context,
// order, passes), each gives a fill, and each also restores known audio that its
// model never saw: up to 80 ms the 5 ms on each side right next to the gap, filled
// with it as one widened hole from the same context. Up to 40 ms the fills are then
// combined by weights that sum to one, each inversely proportional to the square of
// its relative error on that audio (a soft choice of the model that suits the sound);
// longer gaps by the least-squares weights that would have restored it best (with one
// candidate, a gain of at most 1), which keeps an unreliable fill from doing worse
// than silence. Gaps the similarity search below leaves to the models from 80 ms on
// restore stretches of their own length an order away instead. Around 10 ms the
// short-context model's fill is half the fill under one model from each side
// (SidedLeastSquares), which follows a voice changing across the gap. From 10 ms, where
// both sides are clearly periodic, the pitch cycles of the two sides repeated across
// the gap in step (PeriodicExtension) join the candidates.
//
// From 2 to 80 ms the passage up to 20 s away whose surroundings best repeat the gap's
// (RepeatSearch) is taken away before the long model fills the rest, and added back:
// one more candidate, for music, which repeats its beats and bars, and its verses and
// choruses further away.
//
// Long gaps first look for a passage of the surrounding second whose borders match
// the gap's (PatternSearch); a close match replaces the models' fill.
//
// Samples are floats in any scale; only the gap's samples are written. The caller
// provides contextLength(length) samples before and after the gap, and may say how
// many of them are the recording's (near its ends). Up to edgeMaxGapMs the models are
// then estimated from those alone and the fill minimises only the prediction errors
// that lie within the recording (EdgeLeastSquares), so that nothing past the end
// pulls it towards silence; longer gaps take the audio past the end as silence.
// The constructor allocates for gaps up to maxGap samples and up to maxChannels
// channels; fill never allocates. Double arithmetic in plain loops
// and the signal library's FFT (the repeat search ranks its coarse matches in single
// precision): the same bits on every platform and path for the same
// maxGap (which sets the transform size). One thread at a time per object.
#pragma once

#include <memory>

#include "inpaint/BurgEstimator.h"
#include "inpaint/EdgeLeastSquares.h"
#include "inpaint/ModelFloor.h"
#include "inpaint/NormalProduct.h"
#include "inpaint/PatternSearch.h"
#include "inpaint/PeriodicExtension.h"
#include "inpaint/RepeatSearch.h"
#include "inpaint/SidedLeastSquares.h"
#include "inpaint/ToeplitzSolver.h"

// One candidate model: its context on each side, its AR order, its model / fill
// passes (later passes take the model across the current fill, as Janssen's
// iteration does) and the longest and shortest gaps it serves (0: no limit).
struct InpaintCandidate {
    double contextMs = 0.0;  // 0 ends the list
    double orderMs = 0.0;    // at most the context
    int passes = 1;
    double maxGapMs = 0.0;
    double minGapMs = 0.0;  // and the shortest
    // For gaps up to InpaintSettings::sidedMaxGapMs, the share of its fill of the gap
    // taken from the fill under one model from each side (SidedLeastSquares) instead,
    // with the same context and order.
    double sidedShare = 0.0;
};

struct InpaintSettings {
    static constexpr int maxCandidates = 4;
    // The long model (order 1024 at 44.1 kHz from 90 ms each side) serves every gap;
    // quickly changing sound (speech) is better told by a short context and a lower
    // order, and short gaps leave the time for it. Around a 5 ms gap speech changes
    // within 30 ms, so the shortest gaps take two models of still shorter context.
    InpaintCandidate candidates[maxCandidates] = {
        {90.0, 23.2, 1, 0.0}, {32.0, 11.6, 2, 40.0, 7.0, 0.5}, {24.0, 11.6, 2, 7.0}, {16.0, 8.7, 2, 7.0}};
    // Gaps of patternMinGapMs or more first try the similarity search over
    // patternReachMs on each side with borders of patternBorderMs: a passage whose
    // borders match the gap's as well as patternTrust fills it instead of the models
    // (repeating sound, such as voiced speech, which AR extrapolation lets fade).
    double patternMinGapMs = 80.0;
    double patternReachMs = 1000.0;
    double patternBorderMs = 23.2;
    double patternTrust = 0.9;  // the least normalised correlation of the borders that wins
    // Longer gaps match borders of at least patternBorderShare of their length, and
    // the trust falls linearly to patternLongTrust at patternLongGapMs: the longer the
    // gap, the less of it a model's fill carries, so a looser match is worth taking.
    double patternBorderShare = 0.3;
    double patternLongTrust = 0.7;
    double patternLongGapMs = 250.0;
    // Gaps of patternWideMinGapMs or more, where a model's fill carries little, search
    // patternWideReachMs on each side instead and take a match from patternWideTrust:
    // music repeats over bars, seconds apart, and the wider search finds the bar.
    double patternWideMinGapMs = 200.0;
    double patternWideReachMs = 6000.0;
    double patternWideTrust = 0.85;
    // Gaps of periodicMinGapMs or more also get a candidate that repeats the pitch
    // cycle (periodicMinMs to periodicMaxMs, found over periodicWindowMs) of each side
    // across the gap in step with both edges (PeriodicExtension), when the period
    // correlation on both sides reaches periodicTrust (voiced speech, a held note):
    // such sound keeps its waveform where a model's fill rings down.
    double periodicMinGapMs = 10.0;
    double periodicMinMs = 2.5;
    double periodicMaxMs = 12.5;
    double periodicWindowMs = 10.0;
    double periodicTrust = 0.8;
    // A voice changes across a gap of 10 ms: a model from each side follows it, where
    // one model of both sides blurs the two. Longer gaps lose music by it.
    double sidedMaxGapMs = 12.0;
    int sidedIterations = 10;  // conjugate gradient steps of the two-sided fill
    bool validate = true;  // weight the fills by their restorations of known audio
    // Gaps up to nextToGapMaxGapMs are judged on the audio right next to them, the
    // most telling of what the gap held: nextToGapWidthMs (at most the gap's length)
    // on each side, which each candidate restores as part of the gap widened by both,
    // from the context the gap's own fill reads. Models never see those stretches.
    // Longer gaps (whose similarity search found no match) restore stretches of the
    // gap's length an order away from it, each a hole of its own.
    double nextToGapMaxGapMs = 80.0;
    double nextToGapWidthMs = 5.0;
    // Gaps up to holdOutMaxGapMs estimate each model twice: once without the
    // validation stretches, for their restorations, and once with them, for the gap's
    // fill (the stretches next to the gap are the nearest audio it has). Longer gaps
    // estimate once, without the stretches next to the gap (or with the far ones).
    double holdOutMaxGapMs = 40.0;
    // A held-out model restores the validation stretches less well than the model fit
    // on them restores the gap, so their least-squares weights shrink a good fill. Gaps
    // up to errorWeightMaxGapMs take weights that sum to one, each inversely
    // proportional to its fill's relative error on the stretches (each side's error
    // over its energy) to errorWeightPower.
    double errorWeightMaxGapMs = 40.0;
    int errorWeightPower = 2;
    // Gaps from repetitionMinGapMs to repetitionMaxGapMs look for the best repeat of
    // the long model's context around them within repetitionReachMs on each side
    // (RepeatSearch). When its borders correlate to repetitionTrust or more, the long
    // model also fills what the repeat leaves unexplained (the audio less the scaled
    // repeat, over the model's whole reach), and that fill plus the repeat joins the
    // candidates: music repeats its beats and bars, and what differs from the repeat is
    // a fainter signal that a model carries across the gap better. The validation
    // weighs it like any other candidate.
    // A song's verse or chorus comes back 10-20 s later, its bars within a few seconds:
    // the wider search finds the same notes where a bar's repeat has others.
    double repetitionReachMs = 20000.0;
    double repetitionTrust = 0.5;
    double repetitionMinGapMs = 2.0;
    double repetitionMaxGapMs = 80.0;
    double whiteFloor = 1e-8;  // white floor under the model's spectrum, relative to its power
    // Fills of gaps up to edgeMaxGapMs near a recording's end are refined by up to
    // edgeIterations steps of conjugate gradients towards the fill from the prediction
    // errors within the recording (EdgeLeastSquares). Longer ones take the audio past
    // the end as silence: a model's extrapolation carries little of them, and the
    // silence fades the fill out where the audio no longer tells it anything.
    int edgeIterations = 10;
    double edgeMaxGapMs = 40.0;
};

class GapFiller {
public:
    GapFiller(int sampleRate, int maxGap, int maxChannels, InpaintSettings settings = {});

    // Samples the fill reads on each side of a gap of `length` samples.
    int contextLength(int length) const;
    // Rewrites channels[c][start .. start + length) for c < channelCount; reads
    // contextLength(length) samples on each side. length <= maxGap, channelCount <= maxChannels.
    // Of those, `before` and `after` samples next to the gap belong to the recording
    // (fewer near its ends; the rest are not read).
    void fill(float* const* channels, int channelCount, int start, int length);
    void fill(float* const* channels, int channelCount, int start, int length, int before, int after);

private:
    // The models', the periodic and the repetition's.
    static constexpr int maxFills = InpaintSettings::maxCandidates + 2;
    // A stretch of known audio that the candidates restore for their weights: an order
    // away from the gap (a hole of its own) or next to it (part of the widened gap).
    struct Stretch {
        int start, length;
    };
    static constexpr int maxStretches = 2;  // before the gap, after it
    // Rows per channel of a candidate's fills: the gap's, then each stretch's.
    static constexpr int maxRows = 1 + maxStretches;
    // The segment holds `reach` samples on each side of the gap; the models and the
    // least-squares fills use the inner arReach of them.
    struct Layout {
        int length, arReach, reach, total;
        int knownFrom, knownTo;  // the recording's samples in the segment: [knownFrom, knownTo)
        // The recording's samples the caller gave, in the segment's indices but reaching
        // beyond it (as far as the repeat search looks), also for long gaps (which take the
        // rest of the segment as silence).
        int recordedFrom, recordedTo;
        // The validation stretches (none without validation), next to the gap or an
        // order away from it.
        Stretch stretch[maxStretches];
        int stretches;
        bool nextToGap;
        int farStretches() const { return nextToGap ? 0 : stretches; }
        bool widened() const { return nextToGap && stretches > 0; }
        int gap() const { return reach; }
        int arStart() const { return reach - arReach; }
        int arTotal() const { return 2 * arReach + length; }
        int arEnd() const { return arStart() + arTotal(); }
        bool holds(int from, int to) const { return from >= knownFrom && to <= knownTo; }
    };
    int arContext(int length) const;
    bool patternFill(int channelCount, const Layout& at);
    Layout layout(int length, int before, int after) const;
    double* segment(int channel) const;
    double* rightHandSide(int row) const;
    void load(float* const* channels, int channelCount, int start, const Layout& at);
    void addContext(int c, const Layout& at, int from, int to, bool holdOut);
    void estimate(int channelCount, const Layout& at, int context, int modelOrder, bool firstPass, bool holdOut);
    void keepCandidate(int candidate, int channelCount, const Layout& at, int firstRow, int endRow);
    void validationSystem(int channelCount, const Layout& at, double (*gram)[maxFills + 1]) const;
    void relativeErrors(int channelCount, const Layout& at, double* errors) const;
    void weightByErrors(int channelCount, const Layout& at);
    void combineCandidates(int channelCount, const Layout& at);
    void fillFromModels(int channelCount, const Layout& at);
    void addPeriodicCandidate(int channelCount, const Layout& at);
    void addRepetitionCandidate(int channelCount, const Layout& at);
    bool repeats(int length) const;
    int patternContext(int length) const;
    int savedStride() const;
    double* savedRegion(int channel) const;
    double unmodelled(int channel, const Layout& at, int t) const;
    void fillCandidate(int candidate, int channelCount, const Layout& at);
    void blendSidedFill(int channelCount, const Layout& at, int context, int modelOrder, double share);
    double* candidateFill(int candidate, int row) const;
    void solve(int channelCount, const Layout& at, int modelOrder, bool widen);
    void widenedRightHandSides(int channelCount, const Layout& at);
    void solveNearEdges(int channelCount, const Layout& at, int modelOrder, bool refine, bool widen);
    void setStretches(Layout& at) const;
    int rowLength(const Layout& at, int row, int channelCount) const;
    double* widenedRow(int channel) const;
    void pointAtWidenedStretches(int channelCount, const Layout& at);
    void continuePastEdges(int channelCount, const Layout& at, int modelOrder);
    bool stretchKnown(const Layout& at, int i) const;
    void clearPastEdges(int channelCount, const Layout& at);
    int orderWithin(const Layout& at, int modelOrder) const;

    InpaintSettings settings_;
    int candidates = 0;
    int activeCandidates = 0;  // of the gap being filled
    int candidateContext[InpaintSettings::maxCandidates] = {};
    int candidateOrder[InpaintSettings::maxCandidates] = {};
    int candidateMaxGap[InpaintSettings::maxCandidates] = {};
    int candidateMinGap[InpaintSettings::maxCandidates] = {};
    int contextSamples;  // the longest candidate's
    int order;           // the highest candidate's
    int errorWeightMaxGap, sidedMaxGap;
    int holdOutMaxGap, nextToGapMaxGap, nextToGapWidth, edgeMaxGap, periodicMinGap, patternMinGap, patternReach, patternBorder, patternLongGap;
    int patternWideMinGap, patternWideReach;
    int repetitionReach, repetitionMinGap, repetitionMaxGap;
    int maxGap_;
    int maxChannels_;
    int segmentCapacity;
    BurgEstimator estimator;
    ModelFloor flooring;
    NormalProduct normal;
    ToeplitzSolver solver;
    EdgeLeastSquares edges;
    SidedLeastSquares sided;
    PatternSearch search;
    PeriodicExtension periodic;
    RepeatSearch repeats_;
    std::unique_ptr<double[]> segments;   // maxChannels rows of segmentCapacity
    std::unique_ptr<double[]> work;       // segmentCapacity
    std::unique_ptr<double[]> saved;      // maxChannels rows of the models' reach, when repeating
    // maxRows * maxChannels rows of maxGap, then maxChannels widened gaps
    std::unique_ptr<double[]> rightHandSides;
    std::unique_ptr<double*[]> rows;      // maxRows * maxChannels right-hand sides
    std::unique_ptr<int[]> rowSizes;      // and their lengths
    std::unique_ptr<const double*[]> segmentRows;  // maxChannels
    // maxChannels: the caller's audio of the gap being filled, at segment indices
    std::unique_ptr<const float*[]> sourceRows;
    std::unique_ptr<double[]> column;     // order + 1
    std::unique_ptr<double[]> model_;     // order + 1: the floored model of the current pass
    std::unique_ptr<double[]> sideModels;  // 2 x (order + 1): before and after the gap
    std::unique_ptr<double[]> candidateFills;  // maxFills x maxRows x maxChannels x maxGap
    double weights[maxFills] = {};
};
