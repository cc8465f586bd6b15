#include "RepairWindow.h"

#include <ferrotip/ferrotip.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "CliError.h"
#include "module/MethodReach.h"
#include "module/MethodTable.h"

namespace {

std::string lowercase(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

MethodDescription describe(int index)
{
    MethodDescription record{};
    record.index = index;
    getMethodDescription(&record);
    return record;
}

std::string methodList()
{
    std::string list;
    for (int i = 0; i < FERROTIP_METHOD_COUNT; ++i)
        list += (i ? ", " : "") + std::to_string(i) + " \"" + describe(i).name + "\"";
    return list;
}

}  // namespace

FrameSpan framesInside(const RepairWindow& window, std::int64_t frames)
{
    const std::int64_t first = std::max<std::int64_t>(window.first, 0);
    return {first, std::max(first, std::min(window.first + window.length, frames))};
}

void requireRegionInside(std::int64_t start, std::int64_t length, std::int64_t frames,
                         const std::string& source)
{
    if (start + length > frames)
        throw CliError("region " + std::to_string(start) + ".." + std::to_string(start + length) +
                       " lies outside " + source + ", which has " + std::to_string(frames) +
                       " frames");
}

MethodInfo findMethod(const std::string& text)
{
    for (int i = 0; i < FERROTIP_METHOD_COUNT; ++i) {
        const MethodDescription record = describe(i);
        if (text == std::to_string(i) || lowercase(text) == lowercase(record.name))
            return {i, record.name, record.maxGapMs};
    }
    throw CliError("unknown method '" + text + "'; choose one of " + methodList());
}

RepairWindow planRepair(const MethodInfo& method, int sampleRate, std::int64_t start,
                        std::int64_t length)
{
    if (length < 1) throw CliError("the region must be at least one sample long");
    if (sampleRate > maxRepairRate)
        throw CliError("the sample rate " + std::to_string(sampleRate) + " Hz is above the " +
                       std::to_string(maxRepairRate) + " Hz the repair methods are made for");
    const MethodDescription row = describe(method.index);
    const int limit = deriveCounts(row, sampleRate, 0).maxGapSamples;
    if (length > limit)
        throw CliError("region of " + std::to_string(length) + " samples is longer than \"" + method.name +
                       "\" allows: " + std::to_string(row.maxGapMs) + " ms, " + std::to_string(limit) + " samples at " +
                       std::to_string(sampleRate) + " Hz" +
                       (sampleRate % 1000 == 0 ? "" : " (whole samples per ms: " + std::to_string(sampleRate / 1000) + ")"));
    const int gap = static_cast<int>(length);
    const MethodReach reach = methodReach(method.index, deriveCounts(row, sampleRate, gap), gap);
    RepairWindow window;
    window.first = start - reach.before;
    window.length = std::int64_t{reach.before} + reach.after;
    window.startInWindow = reach.before;
    return window;
}

void requireFiniteRepair(const std::vector<std::vector<float>>& channels, const std::string& who)
{
    for (const auto& channel : channels)
        for (float v : channel)
            if (!std::isfinite(v))
                throw CliError(who + " gave samples that are not finite, as the audio around the region is too loud "
                               "for its single-precision sums; scale the audio down, or use --method inpaint");
}

RepairOutcome runRepair(std::vector<std::vector<float>>& channels, int sampleRate,
                        const RepairWindow& window, int length, const MethodInfo& method)
{
    std::vector<float*> pointers;
    for (auto& channel : channels) pointers.push_back(channel.data());
    RepairOutcome outcome;
    outcome.result = process(nullptr, pointers.data(), static_cast<int>(pointers.size()),
                             sampleRate, window.startInWindow, length, method.index,
                             &outcome.leftFade, &outcome.rightFade);
    if (outcome.result != 0)
        throw CliError("\"" + method.name + "\" refused the region (code " +
                       std::to_string(outcome.result) + ")");
    requireFiniteRepair(channels, "\"" + method.name + "\"");
    return outcome;
}
