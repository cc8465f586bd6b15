#include "RegionRepair.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <memory>
#include <optional>
#include <vector>

#include "AudioFile.h"
#include "CliError.h"
#include "RepairWindow.h"
#include "SampleCount.h"
#include "SpanList.h"
#include "inpaint/AutoChoice.h"
#include "inpaint/GapFiller.h"

namespace {

using Channels = std::vector<std::vector<float>>;

std::string lowercase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// What repairs a region: the gap filler, or a module method.
struct Choice {
    std::optional<MethodInfo> method;  // empty: the gap filler
    std::string name() const { return method ? method->name : "inpaint"; }
};

Choice autoChoice(std::int64_t length, int rate)
{
    const int method = autoMethodFor(length, rate);
    if (method == autoUsesGapFiller) return {};
    return {findMethod(std::to_string(method))};
}

struct Region {
    int channel;  // 0-based, or SampleSpan::allChannels
    std::int64_t first, last;
    std::string origin;  // where it came from, for messages
    Choice choice;
    std::int64_t length() const { return last - first + 1; }
};

std::vector<Region> requestedRegions(const RegionRequest& request, const AudioReader& reader)
{
    const int rate = reader.sampleRate();
    std::vector<Region> regions;
    if (!request.regionsFile.empty()) {
        if (!request.start.empty() || !request.length.empty())
            throw CliError("--regions and --start/--length exclude each other");
        const auto spans = readSpanList(request.regionsFile, rate);
        for (std::size_t i = 0; i < spans.size(); ++i) {
            const auto& s = spans[i];
            regions.push_back({s.channel, s.first, s.last,
                               "region " + std::to_string(i + 1) + " of '" + request.regionsFile + "'", {}});
        }
        if (regions.empty()) throw CliError("'" + request.regionsFile + "' lists no regions");
    } else {
        if (request.start.empty() || request.length.empty())
            throw CliError("give --start and --length, or --regions FILE");
        const std::int64_t start = parseSampleCount(request.start, rate, "--start");
        const std::int64_t length = parseSampleCount(request.length, rate, "--length");
        if (length < 1) throw CliError("--length must be at least one sample");
        regions.push_back({SampleSpan::allChannels, start, start + length - 1, "the region", {}});
    }
    for (const Region& r : regions) {
        if (r.channel != SampleSpan::allChannels && r.channel >= reader.channels())
            throw CliError(r.origin + " names channel " + std::to_string(r.channel + 1) + ", but '" +
                           request.input + "' has " + std::to_string(reader.channels()));
        if (r.first < 0 || r.last >= reader.frames())
            throw CliError(r.origin + " (frames " + std::to_string(r.first) + ".." + std::to_string(r.last) +
                           ") lies outside '" + request.input + "', which has " +
                           std::to_string(reader.frames()) + " frames");
    }
    return regions;
}

// Sorted by start; overlapping or adjacent regions become one, and a region for every
// channel takes in the single-channel ones it meets.
std::vector<Region> merged(std::vector<Region> regions)
{
    std::stable_sort(regions.begin(), regions.end(),
                     [](const Region& a, const Region& b) { return a.first < b.first; });
    std::vector<Region> out;
    for (const Region& r : regions) {
        Region* target = nullptr;
        for (auto o = out.rbegin(); o != out.rend() && !target; ++o)
            if (r.first <= o->last + 1 && (o->channel == r.channel || o->channel == SampleSpan::allChannels ||
                                           r.channel == SampleSpan::allChannels))
                target = &*o;
        if (!target) {
            out.push_back(r);
            continue;
        }
        target->last = std::max(target->last, r.last);
        if (target->channel != r.channel) target->channel = SampleSpan::allChannels;
        target->origin += " joined with " + r.origin;
    }
    return out;
}

Choice choose(const std::string& method, std::int64_t length, int rate)
{
    const std::string m = lowercase(method);
    if (m == "auto") return autoChoice(length, rate);
    if (m == "inpaint") return {};
    return {findMethod(method)};
}

// Checks every region's length against its method before anything is written.
void checkLengths(std::vector<Region>& regions, const std::string& method, int rate)
{
    const std::int64_t longest = static_cast<std::int64_t>(longestDropoutMs) * rate / 1000;
    for (Region& r : regions) {
        r.choice = choose(method, r.length(), rate);
        if (r.choice.method) {
            planRepair(*r.choice.method, rate, r.first, r.length());  // throws with the method's limit
        } else if (r.length() > longest) {
            throw CliError(r.origin + " is " + std::to_string(r.length()) + " samples long; \"" + method +
                           "\" fills up to " + std::to_string(longestDropoutMs) + " ms (" +
                           std::to_string(longest) + " samples at " + std::to_string(rate) + " Hz)");
        }
    }
}

// A repaired stretch, as the module's floats.
struct Patch {
    std::int64_t first;
    Channels samples;  // per channel; empty rows for channels left alone

    std::int64_t end() const
    {
        std::size_t longest = 0;
        for (const auto& row : samples) longest = std::max(longest, row.size());
        return first + static_cast<std::int64_t>(longest);
    }
    bool meets(std::int64_t from, std::int64_t count) const { return first < from + count && end() > from; }
};

// Frames [first, first + count) as the module's floats, zeros beyond the file's ends,
// with the earlier repairs already in.
Channels readWindow(AudioReader& reader, std::int64_t first, std::int64_t count,
                    const std::vector<Patch>& patches)
{
    const int channels = reader.channels();
    Channels data(channels, std::vector<float>(count, 0.0f));
    const std::int64_t from = std::max<std::int64_t>(first, 0);
    const std::int64_t end = std::min(first + count, reader.frames());
    if (end > from) {
        std::vector<double> frames((end - from) * channels);
        reader.seek(from);
        const std::int64_t got = reader.read(frames.data(), end - from);
        const double scale = 1.0 / reader.fullScale();
        for (std::int64_t f = 0; f < got; ++f)
            for (int c = 0; c < channels; ++c)
                data[c][from - first + f] = static_cast<float>(frames[f * channels + c] * scale);
    }
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

class RegionRepairer {
public:
    // One filler for every length up to the longest, so a region's repair never
    // depends on which other regions the list holds.
    explicit RegionRepairer(AudioReader& reader)
        : reader_(reader),
          filler_(reader.sampleRate(), longestDropoutMs * reader.sampleRate() / 1000, reader.channels())
    {
    }

    Patch repair(const Region& r, const std::vector<Patch>& earlier)
    {
        const int rate = reader_.sampleRate();
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
        Channels window = readWindow(reader_, r.first - before, before + after, earlier);
        Channels selected;
        std::vector<int> which;
        for (int c = 0; c < reader_.channels(); ++c)
            if (r.channel == SampleSpan::allChannels || r.channel == c) {
                selected.push_back(std::move(window[c]));
                which.push_back(c);
            }
        if (r.choice.method) {
            RepairWindow plan{r.first - before, before + after, static_cast<int>(before)};
            runRepair(selected, rate, plan, length, *r.choice.method);
        } else {
            std::vector<float*> pointers;
            for (auto& channel : selected) pointers.push_back(channel.data());
            filler_.fill(pointers.data(), static_cast<int>(pointers.size()), static_cast<int>(before), length);
        }
        return changedStretch(r.first - before, selected, which, readWindow(reader_, r.first - before, before + after, earlier));
    }

private:
    // What the repair wrote, crossfades included: the stretch from the first to the
    // last sample that changed in any channel.
    Patch changedStretch(std::int64_t first, const Channels& repaired, const std::vector<int>& which,
                         const Channels& original) const
    {
        const std::int64_t count = static_cast<std::int64_t>(original[0].size());
        std::int64_t lo = count, hi = -1;
        for (std::size_t k = 0; k < which.size(); ++k)
            for (std::int64_t i = 0; i < count; ++i)
                if (repaired[k][i] != original[which[k]][i]) {
                    lo = std::min(lo, i);
                    hi = std::max(hi, i);
                }
        Patch patch{first + std::max<std::int64_t>(lo, 0), Channels(original.size())};
        if (hi < lo) return patch;
        for (std::size_t k = 0; k < which.size(); ++k)
            patch.samples[which[k]].assign(repaired[k].begin() + lo, repaired[k].begin() + hi + 1);
        return patch;
    }


    AudioReader& reader_;
    GapFiller filler_;
};

constexpr std::int64_t copyBlockFrames = 65536;

// A module float in the file's scale; integer formats keep to their range.
double toFileScale(float value, double scale)
{
    const double sample = value * scale;
    return scale > 1.0 ? std::clamp(sample, -scale, scale - 1.0) : sample;
}

// Copies the input to the writer with the patches in; untouched samples stay bit for bit.
void writePatched(AudioReader& reader, AudioWriter& writer, const std::vector<Patch>& patches)
{
    const int channels = reader.channels();
    const double scale = reader.fullScale();
    std::vector<double> block(copyBlockFrames * channels);
    reader.seek(0);
    for (std::int64_t position = 0; position < reader.frames();) {
        const std::int64_t got = reader.read(block.data(), copyBlockFrames);
        if (got == 0) throw CliError("the input ended early");
        for (const Patch& p : patches) {
            if (!p.meets(position, got)) continue;
            for (int c = 0; c < channels; ++c)
                for (std::size_t i = 0; i < p.samples[c].size(); ++i) {
                    const std::int64_t f = p.first + static_cast<std::int64_t>(i) - position;
                    if (f < 0 || f >= got) continue;
                    double& sample = block[f * channels + c];
                    const float value = p.samples[c][i];
                    if (value != static_cast<float>(sample / scale)) sample = toFileScale(value, scale);
                }
        }
        writer.write(block.data(), got);
        position += got;
    }
}

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

void repairRegions(const RegionRequest& request)
{
    AudioReader reader(request.input);
    requireDistinctFiles(request.input, request.output);
    const int rate = reader.sampleRate();
    std::vector<Region> regions = merged(requestedRegions(request, reader));
    checkLengths(regions, request.method, rate);

    RegionRepairer repairer(reader);
    std::vector<Patch> patches;
    for (const Region& r : regions) patches.push_back(repairer.repair(r, patches));

    AudioWriter writer(request.output, reader.info());
    writePatched(reader, writer, patches);
    writer.commit();
    for (const Region& r : regions)
        std::printf("repaired %lld samples at frame %lld%s with \"%s\"\n", static_cast<long long>(r.length()),
                    static_cast<long long>(r.first),
                    r.channel == SampleSpan::allChannels ? "" : (" of channel " + std::to_string(r.channel + 1)).c_str(),
                    r.choice.name().c_str());
}
