#include "RegionPlan.h"

#include <algorithm>
#include <cctype>

#include "CliError.h"
#include "SampleCount.h"
#include "inpaint/AutoChoice.h"
#include "inpaint/GapFiller.h"

namespace {

std::string lowercase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

Choice autoChoice(std::int64_t length, int rate)
{
    const int method = autoMethodFor(length, rate);
    if (method == autoUsesGapFiller) return {};
    return {findMethod(std::to_string(method))};
}

Choice choose(const std::string& method, std::int64_t length, int rate)
{
    const std::string m = lowercase(method);
    if (m == "auto") return autoChoice(length, rate);
    if (m == "inpaint") return {};
    return {findMethod(method)};
}

// Frames [first, first + count) as the module's floats, zeros beyond the audio's ends,
// with the earlier repairs already in.
Channels readWindow(FrameSource& source, std::int64_t first, std::int64_t count, const std::vector<Patch>& patches)
{
    const int channels = source.channels();
    Channels data(channels, std::vector<float>(count, 0.0f));
    const std::int64_t from = std::max<std::int64_t>(first, 0);
    const std::int64_t end = std::min(first + count, source.frames());
    if (end > from) source.read(from, end, data, from - first);
    for (const Patch& p : patches) {
        if (!p.meets(first, count)) continue;
        for (int c = 0; c < channels; ++c)
            for (std::size_t i = 0; i < p.samples[c].size(); ++i) {
                const std::int64_t at = p.first + static_cast<std::int64_t>(i) - first;
                if (at >= 0 && at < count) data[c][at] = p.samples[c][i];
            }
    }
    return data;
}

// What the repair wrote, crossfades included: the stretch from the first to the
// last sample that changed in any channel.
Patch changedStretch(std::int64_t first, const Channels& repaired, const std::vector<int>& which,
                     const Channels& original)
{
    const std::int64_t count = static_cast<std::int64_t>(original[0].size());
    std::int64_t lo = count, hi = -1;
    for (std::size_t k = 0; k < which.size(); ++k)
        for (std::int64_t i = 0; i < count; ++i)
            if (repaired[k][i] != original[which[k]][i]) {
                lo = std::min(lo, i);
                hi = std::max(hi, i);
            }
    Patch patch{first + std::max<std::int64_t>(lo, 0), Channels(original.size()), {}};
    if (hi < lo) return patch;
    for (std::size_t k = 0; k < which.size(); ++k)
        patch.samples[which[k]].assign(repaired[k].begin() + lo, repaired[k].begin() + hi + 1);
    return patch;
}

class RegionRepairer {
public:
    // One filler for every length up to the longest, so a region's repair never
    // depends on which other regions the list holds.
    explicit RegionRepairer(FrameSource& source)
        : source_(source),
          filler_(source.sampleRate(), longestDropoutMs * source.sampleRate() / 1000, source.channels())
    {
    }

    Patch repair(const Region& r, const std::vector<Patch>& earlier)
    {
        const int rate = source_.sampleRate();
        const int length = static_cast<int>(r.length());
        std::int64_t before, after;
        if (r.choice.method) {
            const RepairWindow window = planRepair(*r.choice.method, rate, r.first, length);
            before = window.startInWindow;
            after = window.length - before;
        } else {
            before = filler_.contextLength(length);
            after = length + before;
        }
        Channels window = readWindow(source_, r.first - before, before + after, earlier);
        Channels selected;
        std::vector<int> which;
        for (int c = 0; c < source_.channels(); ++c)
            if (r.channel == allRegionChannels || r.channel == c) {
                selected.push_back(std::move(window[c]));
                which.push_back(c);
            }
        if (!r.choice.method) return fillGap(r, before, after, selected, which);
        RepairOutcome outcome;
        RepairWindow plan{r.first - before, before + after, static_cast<int>(before)};
        try {
            outcome = runRepair(selected, rate, plan, length, *r.choice.method);
        } catch (const CliError& error) {
            throw CliError(r.origin + ": " + error.what());
        }
        Patch patch = changedStretch(r.first - before, selected, which,
                                     readWindow(source_, r.first - before, before + after, earlier));
        patch.outcome = outcome;
        return patch;
    }

private:
    // The filler writes the gap alone, so only the gap is kept to see what changed and
    // checked for samples that are not finite (the window holds up to 40 s).
    Patch fillGap(const Region& r, std::int64_t before, std::int64_t after, Channels& selected,
                  const std::vector<int>& which)
    {
        const int length = static_cast<int>(r.length());
        Channels original(source_.channels(), std::vector<float>(length, 0.0f));
        std::vector<float*> pointers;
        for (std::size_t k = 0; k < which.size(); ++k) {
            std::copy_n(selected[k].begin() + before, length, original[which[k]].begin());
            pointers.push_back(selected[k].data());
        }
        // Near the file's ends the filler is told how much of the window is audio.
        const std::int64_t audioBefore = std::min(before, r.first);
        const std::int64_t audioAfter = std::min(after - length, source_.frames() - r.first - length);
        filler_.fill(pointers.data(), static_cast<int>(pointers.size()), static_cast<int>(before), length,
                     static_cast<int>(audioBefore), static_cast<int>(audioAfter));
        Channels filled;
        for (const auto& channel : selected) filled.emplace_back(channel.begin() + before, channel.begin() + before + length);
        requireFiniteRepair(filled, r.origin + ": \"inpaint\"");
        return changedStretch(r.first, filled, which, original);
    }

    FrameSource& source_;
    GapFiller filler_;
};

}  // namespace

bool isRegionMethod(const std::string& method)
{
    const std::string m = lowercase(method);
    return m == "auto" || m == "inpaint";
}

void requireKnownMethod(const std::string& method)
{
    if (isRegionMethod(method)) return;
    try {
        findMethod(method);
    } catch (const CliError& error) {
        std::string message = error.what();
        const std::string list = "choose one of ";
        const auto at = message.find(list);
        if (at != std::string::npos) message.insert(at + list.size(), "auto, inpaint, ");
        throw CliError(message);
    }
}

Region singleRegion(const std::string& start, const std::string& length, int rate, const std::string& startName,
                    const std::string& lengthName)
{
    const std::int64_t first = parseSampleCount(start, rate, startName);
    const std::int64_t count = parseRegionLength(length, rate, lengthName);
    return {allRegionChannels, first, first + count - 1, "the region", {}};
}

void requireRegionsInside(const std::vector<Region>& regions, int channels, std::int64_t frames,
                          const std::string& source)
{
    for (const Region& r : regions) {
        if (r.channel != allRegionChannels && r.channel >= channels)
            throw CliError(r.origin + " names channel " + std::to_string(r.channel + 1) + ", but " + source +
                           " has " + std::to_string(channels));
        if (r.first < 0 || r.last >= frames)
            throw CliError(r.origin + " (frames " + std::to_string(r.first) + ".." + std::to_string(r.last) +
                           ") lies outside " + source + ", which has " + std::to_string(frames) + " frames");
    }
}

namespace {

// One channel's regions, sorted by start, overlapping or adjacent ones joined.
std::vector<Region> joinedOnChannel(const std::vector<Region>& regions, int channel)
{
    std::vector<Region> mine;
    for (const Region& r : regions)
        if (r.channel == channel || r.channel == allRegionChannels) {
            mine.push_back(r);
            mine.back().channel = channel;
        }
    std::stable_sort(mine.begin(), mine.end(), [](const Region& a, const Region& b) { return a.first < b.first; });
    std::vector<Region> joined;
    for (const Region& r : mine) {
        if (!joined.empty() && r.first <= joined.back().last + 1) {
            joined.back().last = std::max(joined.back().last, r.last);
            if (joined.back().origin != r.origin) joined.back().origin += " joined with " + r.origin;
        } else {
            joined.push_back(r);
        }
    }
    return joined;
}

}  // namespace

std::vector<Region> merged(const std::vector<Region>& regions, int channels)
{
    std::vector<Region> spans;
    for (int c = 0; c < channels; ++c) {
        std::vector<Region> joined = joinedOnChannel(regions, c);
        spans.insert(spans.end(), joined.begin(), joined.end());
    }
    std::stable_sort(spans.begin(), spans.end(), [](const Region& a, const Region& b) {
        return a.first != b.first ? a.first < b.first : a.last < b.last;
    });
    // A span that every channel has alike is repaired once, for all channels together.
    std::vector<Region> out;
    for (std::size_t i = 0; i < spans.size();) {
        std::size_t end = i;
        while (end < spans.size() && spans[end].first == spans[i].first && spans[end].last == spans[i].last) ++end;
        if (end - i == static_cast<std::size_t>(channels)) {
            out.push_back(spans[i]);
            out.back().channel = allRegionChannels;
        } else {
            out.insert(out.end(), spans.begin() + static_cast<std::ptrdiff_t>(i),
                       spans.begin() + static_cast<std::ptrdiff_t>(end));
        }
        i = end;
    }
    return out;
}

void checkLengths(std::vector<Region>& regions, const std::string& method, int rate)
{
    const std::int64_t longest = static_cast<std::int64_t>(longestDropoutMs) * rate / 1000;
    for (Region& r : regions) {
        r.choice = choose(method, r.length(), rate);
        if (r.choice.method) {
            try {
                planRepair(*r.choice.method, rate, r.first, r.length());  // throws with the method's limit
            } catch (const CliError& error) {
                throw CliError(r.origin + ": " + error.what());
            }
        } else if (r.length() > longest) {
            throw CliError(r.origin + " is " + std::to_string(r.length()) + " samples long; \"" + method +
                           "\" fills up to " + std::to_string(longestDropoutMs) + " ms (" +
                           std::to_string(longest) + " samples at " + std::to_string(rate) + " Hz)");
        }
    }
}

std::int64_t Patch::end() const
{
    std::size_t longest = 0;
    for (const auto& row : samples) longest = std::max(longest, row.size());
    return first + static_cast<std::int64_t>(longest);
}

bool Patch::meets(std::int64_t from, std::int64_t count) const
{
    return first < from + count && end() > from;
}

std::vector<Patch> repairAll(FrameSource& source, const std::vector<Region>& regions)
{
    RegionRepairer repairer(source);
    std::vector<Patch> patches;
    for (const Region& r : regions) patches.push_back(repairer.repair(r, patches));
    return patches;
}
