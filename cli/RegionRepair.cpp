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
#include "RegionPlan.h"
#include "RepairWindow.h"
#include "SpanList.h"

namespace {

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
        regions.push_back(singleRegion(request.start, request.length, rate, "--start", "--length"));
    }
    requireRegionsInside(regions, reader.channels(), reader.frames(), "'" + request.input + "'");
    return regions;
}

// The input as the module's floats, frame-addressed.
class FileFrames : public FrameSource {
public:
    explicit FileFrames(AudioReader& reader) : reader_(reader) {}
    int channels() const override { return reader_.channels(); }
    int sampleRate() const override { return reader_.sampleRate(); }
    std::int64_t frames() const override { return reader_.frames(); }
    void read(std::int64_t from, std::int64_t end, Channels& data, std::int64_t offset) override
    {
        const int channels = reader_.channels();
        std::vector<double> frames((end - from) * channels);
        reader_.seek(from);
        const std::int64_t got = reader_.read(frames.data(), end - from);
        const double scale = 1.0 / reader_.fullScale();
        for (std::int64_t f = 0; f < got; ++f)
            for (int c = 0; c < channels; ++c)
                data[c][offset + f] = static_cast<float>(frames[f * channels + c] * scale);
    }

private:
    AudioReader& reader_;
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
        if (got == 0) throw CliError("the input '" + reader.path() + "' ended early");
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

void repairRegions(const RegionRequest& request)
{
    AudioReader reader(request.input);
    requireOutputFor(reader, request.output);
    const int rate = reader.sampleRate();
    std::vector<Region> regions = merged(requestedRegions(request, reader), reader.channels());
    checkLengths(regions, request.method, rate);

    FileFrames frames(reader);
    const std::vector<Patch> patches = repairAll(frames, regions);

    AudioWriter writer(request.output, reader);
    noteLossyRewrite(reader, writer, request.input, request.output);
    writePatched(reader, writer, patches);
    writer.commit();
    for (const Region& r : regions)
        std::printf("repaired %lld samples at frame %lld%s with \"%s\"\n", static_cast<long long>(r.length()),
                    static_cast<long long>(r.first),
                    r.channel == allRegionChannels ? "" : (" of channel " + std::to_string(r.channel + 1)).c_str(),
                    r.choice.name().c_str());
    warnAboutNonFinite(reader, request.input);
    warnAboutConversionClipping(writer, request.output);
}
