#include "declick/ClickRefill.h"

#include <ferrotip/ferrotip.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "declick/DitherScope.h"
#include "signal/SpreadOverThreads.h"
#include "module/MethodReach.h"
#include "module/MethodTable.h"

namespace {

// The click method that refills: least-squares AR, one pass.
constexpr int refillMethod = 2;

int scaledToRate(int samplesAt44k, int sampleRate)
{
    return std::max(1, static_cast<int>(std::lround(samplesAt44k * (sampleRate / 44100.0))));
}

MethodReach reachFor(int sampleRate, int length)
{
    return methodReach(refillMethod, deriveCounts(methodRow(refillMethod), sampleRate, length), length);
}

// How far behind the output's end an impulse may still be found: a block and the
// context after it. Spans settle that much later, so an impulse always joins the
// spans around it, whatever the chunking.
int impulseSearchLag(const ClickRefill::Settings& settings)
{
    return settings.impulseThreshold > 0.0 ? ImpulseFinder::block + ImpulseFinder::context : 0;
}

}  // namespace

ClickRefill::ClickRefill(int channels, int sampleRate, std::int64_t total, const Settings& settings)
    : sampleRate_(sampleRate),
      total_(total),
      standOut_(settings.standOut),
      minLength_(settings.minLength),
      refillEngineSpans_(settings.refillEngineSpans),
      margin_(scaledToRate(settings.margin, sampleRate)),
      levelReach_(scaledToRate(settings.levelReach, sampleRate)),
      maxLength_(deriveCounts(methodRow(refillMethod), sampleRate, 1).maxGapSamples),
      settleLag_(scaledToRate(1024, sampleRate) + impulseSearchLag(settings)),
      input_(static_cast<std::size_t>(channels)),
      output_(static_cast<std::size_t>(channels)),
      pending_(static_cast<std::size_t>(channels)),
      ditherStates_(static_cast<std::size_t>(channels), 1u),
      jobs_(std::max(settings.jobs, 1)),
      impulses_(static_cast<std::size_t>(channels)),
      findsFine_(settings.impulseThreshold > 0.0 && settings.fineThreshold > 0.0),
      fine_(static_cast<std::size_t>(channels))
{
    if (settings.impulseThreshold > 0.0) {
        searches_.reserve(static_cast<std::size_t>(channels));
        for (int c = 0; c < channels; ++c)
            searches_.push_back({ImpulseFinder(settings.impulseThreshold, settings.fineThreshold), {}, {}, {}});
    }
    // Output is held back until no span still to come can reach it: such a span
    // starts at least settleLag_ before the output's end, and its refill reads the
    // method's context before its widened start.
    const MethodReach longest = reachFor(sampleRate, std::max(maxLength_, 1));
    reachBefore_ = longest.before;
    reachAfter_ = longest.after;
    holdBack_ = settleLag_ + 3 * widestMargin() + 2 + maxLength_ + reachBefore_;
    if (findsFine_) holdBack_ = std::max(holdBack_, settleLag_ + widestMargin() + 1 + ShortGapFill::reachBefore);
}

void ClickRefill::addInput(const float* const* rows, int frames)
{
    for (std::size_t c = 0; c < input_.size(); ++c) input_[c].insert(input_[c].end(), rows[c], rows[c] + frames);
}

void ClickRefill::addSpan(const RepairedSpan& span)
{
    if (!refillEngineSpans_) return;
    pending_[static_cast<std::size_t>(span.channel)].push_back(span);
}

void ClickRefill::addOutput(const float* const* rows, int from, int count)
{
    for (std::size_t c = 0; c < output_.size(); ++c)
        output_[c].insert(output_[c].end(), rows[c] + from, rows[c] + from + count);
}

// A long click rings longer: its margin grows with its length, up to three times the shortest.
int ClickRefill::marginFor(std::int64_t first, std::int64_t last) const
{
    return margin_ + static_cast<int>(std::min<std::int64_t>(last - first + 1, 2 * margin_));
}

ClickRefill::Stretch ClickRefill::stretchOf(std::int64_t first, std::int64_t last) const
{
    const int margin = marginFor(first, last);
    const std::int64_t start = std::max<std::int64_t>(first - margin, 0);
    const std::int64_t end = std::min(last + margin + 1, total_);
    const int length = static_cast<int>(std::min<std::int64_t>(end - start, maxLength_ + 1));
    const MethodReach reach = reachFor(sampleRate_, length);
    return {start, length, reach.before, reach.after};
}

float ClickRefill::sampleAt(const std::vector<std::vector<float>>& rows, int channel, std::int64_t position) const
{
    const auto& row = rows[static_cast<std::size_t>(channel)];
    if (position < base_ || position - base_ >= static_cast<std::int64_t>(row.size())) return 0.0f;
    return row[static_cast<std::size_t>(position - base_)];
}

void ClickRefill::copySamples(const std::vector<std::vector<float>>& rows, int channel, std::int64_t from, int count,
                              std::int64_t end, float* out) const
{
    const auto& row = rows[static_cast<std::size_t>(channel)];
    const std::int64_t heldFrom = std::clamp<std::int64_t>(base_ - from, 0, count);
    const std::int64_t heldTo =
        std::clamp<std::int64_t>(std::min(base_ + static_cast<std::int64_t>(row.size()), end) - from, heldFrom, count);
    std::fill(out, out + heldFrom, 0.0f);
    std::copy(row.begin() + (from + heldFrom - base_), row.begin() + (from + heldTo - base_), out + heldFrom);
    std::fill(out + heldTo, out + count, 0.0f);
}

// Whether what the engines removed from the span stands out of the audio around it.
bool ClickRefill::standsOut(const RepairedSpan& span) const
{
    const auto& in = input_[static_cast<std::size_t>(span.channel)];
    double peak = 0.0;
    for (std::int64_t i = span.first; i <= span.last; ++i) {
        const auto at = static_cast<std::size_t>(i - base_);
        peak = std::max(peak, std::fabs(static_cast<double>(in[at]) - outputAt(span.channel, i)));
    }
    double energy = 0.0;
    std::int64_t count = 0;
    const auto addLevel = [&](std::int64_t from, std::int64_t to) {
        for (std::int64_t i = std::max<std::int64_t>(from, 0); i < std::min(to, total_); ++i, ++count) {
            const double x = outputAt(span.channel, i);
            energy += x * x;
        }
    };
    addLevel(span.first - levelReach_, span.first);
    addLevel(span.last + 1, span.last + 1 + levelReach_);
    const double rms = count > 0 ? std::sqrt(energy / static_cast<double>(count)) : 0.0;
    return span.length() >= minLength_ && peak > standOut_ * rms;
}

// Looks for impulses in the input, in every block whose output and context have come
// (with `final`, in all that is left). The input shows a click at its full height,
// whatever share of it the engines took.
void ClickRefill::findImpulses(bool final)
{
    if (searches_.empty()) return;
    std::int64_t end = searchedTo_;
    while (end < total_ && (final || outputEnd() >= end + ImpulseFinder::block + ImpulseFinder::context))
        end += ImpulseFinder::block;
    if (end == searchedTo_) return;
    const int channels = static_cast<int>(searches_.size());
    const int threads = std::min(jobs_, channels);
    // A thread costs tens of microseconds to start, a block's search a few.
    constexpr std::int64_t minBlocksToSpread = 8;
    if (threads == 1 || end - searchedTo_ < minBlocksToSpread * ImpulseFinder::block) {
        for (int channel = 0; channel < channels; ++channel) searchChannel(channel, searchedTo_, end);
    } else {
        // Each channel's search touches only its own state and lists: which thread runs
        // it changes nothing.
        spreadOverThreads(channels, threads, [&](int channel) { searchChannel(channel, searchedTo_, end); });
    }
    searchedTo_ = end;
}

void ClickRefill::searchChannel(int channel, std::int64_t from, std::int64_t to)
{
    for (std::int64_t start = from; start < to; start += ImpulseFinder::block) searchBlock(channel, start);
}

void ClickRefill::searchBlock(int channel, std::int64_t start)
{
    ChannelSearch& search = searches_[static_cast<std::size_t>(channel)];
    const std::int64_t from = start - ImpulseFinder::context;
    search.window.resize(ImpulseFinder::window);
    copySamples(input_, channel, from, ImpulseFinder::window, std::numeric_limits<std::int64_t>::max(),
                search.window.data());
    const int validFrom = static_cast<int>(std::clamp<std::int64_t>(-from, 0, ImpulseFinder::window));
    const int validTo = static_cast<int>(std::clamp<std::int64_t>(total_ - from, 0, ImpulseFinder::window));
    search.found.clear();
    search.fine.clear();
    search.finder.find(std::span<const float, ImpulseFinder::window>(search.window.data(), ImpulseFinder::window),
                       validFrom, validTo, search.found, findsFine_ ? &search.fine : nullptr);
    for (const ImpulseFinder::Impulse& crackle : search.fine) {
        const RepairedSpan span{channel, start + crackle.first - 1, start + crackle.last + 1};
        if (span.first >= 0 && span.last < total_) fine_[static_cast<std::size_t>(channel)].push_back(span);
    }
    for (const ImpulseFinder::Impulse& impulse : search.found) {
        const RepairedSpan span{channel, start + impulse.first, std::min(start + impulse.last, total_ - 1)};
        if (span.first >= total_) continue;
        pending_[static_cast<std::size_t>(channel)].push_back(span);
        impulses_[static_cast<std::size_t>(channel)].push_back(span);
    }
}

bool ClickRefill::holdsImpulse(int channel, const RepairedSpan& click) const
{
    return std::ranges::any_of(impulses_[static_cast<std::size_t>(channel)], [&](const RepairedSpan& impulse) {
        return impulse.first <= click.last && click.first <= impulse.last;
    });
}

// Fills channel's samples [first - margin, last + margin] again from the output
// around them, if the method takes a gap that long.
void ClickRefill::refill(int channel, std::int64_t first, std::int64_t last)
{
    const Stretch stretch = stretchOf(first, last);
    if (stretch.length > maxLength_) return;
    // The method reads relative to the stretch: hand it a window of its reach, with
    // silence beyond the recording.
    window_.resize(static_cast<std::size_t>(stretch.before + stretch.after));
    copySamples(output_, channel, stretch.start - stretch.before, stretch.before + stretch.after, total_, window_.data());
    float* rows[] = {window_.data()};
    std::int32_t leftFade = 0;
    std::int32_t rightFade = 0;
    {
        const DitherScope dither(ditherStates_[static_cast<std::size_t>(channel)]);
        if (process(nullptr, rows, 1, sampleRate_, stretch.before, stretch.length, refillMethod, &leftFade,
                    &rightFade) != 0)
            return;
    }
    auto& out = output_[static_cast<std::size_t>(channel)];
    std::copy_n(window_.begin() + stretch.before, stretch.length, out.begin() + (stretch.start - base_));
    refilled_.push_back({channel, stretch.start, stretch.start + stretch.length - 1});
}

// A cluster: a channel's spans whose widened stretches overlap or touch. The spans
// that overlap join into one click; of those that stand out, the widened stretches
// that overlap or touch are filled as one.
void ClickRefill::refillCluster(int channel, std::span<const RepairedSpan> cluster)
{
    // A cluster that came after the output it needs was handed on keeps the engines' repair.
    if (std::max<std::int64_t>(cluster.front().first - widestMargin() - reachBefore_, 0) < base_) {
        ++late_;
        return;
    }
    std::vector<RepairedSpan>& clicks = clicks_;
    clicks.assign(cluster.begin(), cluster.end());
    mergeOverlappingSpans(clicks);
    std::erase_if(clicks, [&](const RepairedSpan& click) { return !standsOut(click) && !holdsImpulse(channel, click); });
    for (std::size_t i = 0; i < clicks.size();) {
        std::int64_t last = clicks[i].last;
        std::size_t next = i + 1;
        while (next < clicks.size() && clicks[next].first - marginFor(clicks[next].first, clicks[next].last) <=
                                           last + marginFor(clicks[i].first, last) + 1)
            last = clicks[next++].last;
        refill(channel, clicks[i].first, last);
        i = next;
    }
}

// Whether a fine crackle's fill may go ahead: the output it reads has come, and
// no span still to come can start a cluster before it.
bool ClickRefill::fineReady(const RepairedSpan& fine, bool final) const
{
    if (final) return true;
    const std::int64_t reachEnd = std::min(fine.last + 1 + ShortGapFill::reachAfter, total_);
    return outputEnd() >= reachEnd && outputEnd() - settleLag_ - widestMargin() > fine.first;
}

// Fills the channel's fine crackle that starts before `before` (a cluster's widened
// start), in order, as far as it is ready. One too near the recording's ends for the
// model is left as is.
void ClickRefill::fillFine(int channel, std::int64_t before, bool final)
{
    auto& fine = fine_[static_cast<std::size_t>(channel)];
    std::size_t done = 0;
    for (; done < fine.size() && fine[done].first < before && fineReady(fine[done], final); ++done) {
        const RepairedSpan& crackle = fine[done];
        const std::int64_t from = crackle.first - ShortGapFill::reachBefore;
        const std::int64_t to = crackle.last + 1 + ShortGapFill::reachAfter;
        if (from < base_ || to > outputEnd()) continue;
        auto& out = output_[static_cast<std::size_t>(channel)];
        const std::span<float> reach(out.data() + (from - base_), static_cast<std::size_t>(to - from));
        if (shortGapFill_.fill(reach, ShortGapFill::reachBefore, static_cast<int>(crackle.length())))
            refilled_.push_back(crackle);
    }
    fine.erase(fine.begin(), fine.begin() + static_cast<std::ptrdiff_t>(done));
}

// Refills the clusters no later span can join: spans arrive before the output
// reaches them, or at most settleLag_ samples after.
void ClickRefill::refillSettled(bool final)
{
    for (int channel = 0; channel < static_cast<int>(pending_.size()); ++channel) {
        auto& spans = pending_[static_cast<std::size_t>(channel)];
        std::sort(spans.begin(), spans.end(),
                  [](const RepairedSpan& a, const RepairedSpan& b) { return a.first < b.first; });
        std::size_t done = 0;
        while (done < spans.size()) {
            std::int64_t last = spans[done].last;
            std::size_t end = done + 1;
            while (end < spans.size() && spans[end].first - widestMargin() <= last + widestMargin() + 1)
                last = std::max(last, spans[end++].last);
            const std::int64_t reachEnd = last + widestMargin() + 1 + maxLength_ + reachAfter_;
            const bool settled = outputEnd() - settleLag_ > last + 2 * widestMargin() + 1 &&
                                 outputEnd() >= std::min(reachEnd, total_);
            if (!final && !settled) break;
            const std::int64_t clusterStart = spans[done].first - widestMargin();
            fillFine(channel, clusterStart, final);
            auto& fine = fine_[static_cast<std::size_t>(channel)];
            if (!fine.empty() && fine.front().first < clusterStart) break;
            // Fine crackle inside an impulse is left to the impulse's fill.
            std::erase_if(fine, [&](const RepairedSpan& crackle) { return holdsImpulse(channel, crackle); });
            refillCluster(channel, {spans.data() + done, end - done});
            done = end;
        }
        fillFine(channel, done < spans.size() ? spans[done].first - widestMargin() : total_, final);
        spans.erase(spans.begin(), spans.begin() + static_cast<std::ptrdiff_t>(done));
        // An impulse is also a pending span: those before the first one left are done.
        std::erase_if(impulses_[static_cast<std::size_t>(channel)], [&](const RepairedSpan& impulse) {
            return spans.empty() || impulse.first < spans.front().first;
        });
    }
}

void ClickRefill::release(const DeclickFrameSink& sink, bool final)
{
    findImpulses(final);
    refillSettled(final);
    std::int64_t end = final ? outputEnd() : outputEnd() - holdBack_;
    for (const auto& spans : pending_)
        for (const RepairedSpan& span : spans) {
            const Stretch stretch = stretchOf(span.first, span.last);
            end = std::min(end, stretch.start - stretch.before);
        }
    for (const auto& fine : fine_)
        if (!fine.empty()) end = std::min(end, fine.front().first - ShortGapFill::reachBefore);
    const int count = static_cast<int>(std::max<std::int64_t>(end - base_, 0));
    if (count == 0) return;
    rows_.clear();
    for (const auto& row : output_) rows_.push_back(row.data());
    sink(rows_.data(), 0, count);
    for (auto& row : input_) row.erase(row.begin(), row.begin() + count);
    for (auto& row : output_) row.erase(row.begin(), row.begin() + count);
    base_ += count;
}
