// ferrotip.scan(): the digital dropouts of a numpy array, found with the same
// scanner and criteria as `ferrotip scan`, as the spans its report lists.
#include <algorithm>
#include <limits>
#include <vector>

#include "ArrayViews.h"
#include "Bindings.h"
#include "ScanCriteria.h"

namespace py = pybind11;

namespace ferrotip_python {

namespace {

constexpr std::int64_t blockFrames = 65536;

std::vector<Dropout> findDropouts(const AudioView& audio, int rate)
{
    DropoutScanner scanner(static_cast<int>(audio.channels), dropoutCriteria(rate, 1.0));
    std::vector<float> channel(blockFrames);
    // A short recording needs no more than its own frames interleaved.
    std::vector<double> block(std::min(blockFrames, audio.frames) * audio.channels);
    for (std::int64_t first = 0; first < audio.frames; first += blockFrames) {
        const std::int64_t end = std::min(first + blockFrames, audio.frames);
        for (std::int64_t c = 0; c < audio.channels; ++c) {
            audio.copyFrames(c, first, end, channel.data());
            for (std::int64_t f = 0; f < end - first; ++f) block[f * audio.channels + c] = channel[f];
        }
        scanner.push(block.data(), end - first);
    }
    return scanner.finish();
}

py::list scan(const py::object& audioArgument, const py::object& rateArgument)
{
    const AudioView audio = audioView(audioArgument, "audio");
    const int rate = static_cast<int>(
        integerArgument(rateArgument, "rate", 1, std::numeric_limits<std::int32_t>::max()));
    std::vector<Dropout> dropouts;
    {
        py::gil_scoped_release released;
        dropouts = findDropouts(audio, rate);
    }
    py::list spans;
    for (const Dropout& d : dropouts) {
        const int channel = d.channel == Dropout::allChannels ? 0 : d.channel + 1;
        spans.append(py::make_tuple(channel, d.first, d.last, static_cast<double>(d.first) / rate,
                                    static_cast<double>(d.last + 1) / rate));
    }
    return spans;
}

}  // namespace

void registerDropouts(py::module_& module)
{
    module.def("scan", &scan, py::arg("audio"), py::arg("rate"),
               R"(scan(audio, rate) -> list[(channel, first, last, start, end)]

Finds digital dropouts: runs of exact zeros or of one held value, 0.5 to
250 ms long, with sound above -60 dBFS within 10 ms on both sides. Silence
between tracks, fades to zero and runs touching the array's ends are not
dropouts.

audio   float32 numpy array shaped (channels, frames) or (frames,), read in place.
rate    sample rate in Hz.

Each span is a tuple as `ferrotip scan --report` lists it: channel (1-based,
0 when the same run is in every channel), first and last frame (inclusive),
start and end in seconds (first / rate, (last + 1) / rate). The list goes
straight to repair_regions(). The GIL is released while the scan runs.)");
}

}  // namespace ferrotip_python
