// ferrotip.methods() and ferrotip.repair(): the method table, and one repair of a
// numpy array through the same checks, working window and C entry point as
// `ferrotip repair`, so both give the same bits.
#include <ferrotip/ferrotip.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "ArrayViews.h"
#include "Bindings.h"
#include "CliError.h"
#include "RegionPlan.h"
#include "RepairWindow.h"
#include "SampleCount.h"
#include "SpanList.h"
#include "ar/ClassicRand.h"

namespace py = pybind11;

namespace ferrotip_python {

namespace {

struct Method {
    int index = 0;
    std::string name;
    std::string description;
    int category = 0;
    int maxGapMs = 0;
    int contextBeforeMs = 0;
    int contextAfterMs = 0;
};

std::vector<Method> methods()
{
    std::vector<Method> list;
    for (int index = 0; index < FERROTIP_METHOD_COUNT; ++index) {
        MethodDescription row{};
        row.index = index;
        getMethodDescription(&row);
        list.push_back({row.index, row.name, row.description, row.category, row.maxGapMs,
                        row.contextBeforeMs, row.contextAfterMs});
    }
    return list;
}

// The array as the module's floats, frame-addressed; reading needs no GIL.
class ArrayFrames : public FrameSource {
public:
    ArrayFrames(const AudioView& audio, int rate) : audio_(audio), rate_(rate) {}
    int channels() const override { return static_cast<int>(audio_.channels); }
    int sampleRate() const override { return rate_; }
    std::int64_t frames() const override { return audio_.frames; }
    void read(std::int64_t from, std::int64_t end, Channels& data, std::int64_t offset) override
    {
        for (std::int64_t c = 0; c < audio_.channels; ++c) audio_.copyFrames(c, from, end, data[c].data() + offset);
    }

private:
    const AudioView& audio_;
    int rate_;
};

// Regions repaired as `ferrotip repair` repairs them with auto, inpaint or --regions:
// a new array with the patches in, only where a sample's value changed.
py::tuple repairArrayRegions(const AudioView& audio, int rate, std::vector<Region> regions,
                             const std::string& method)
{
    requireRegionsInside(regions, static_cast<int>(audio.channels), audio.frames, "the audio");
    regions = merged(regions, static_cast<int>(audio.channels));
    checkLengths(regions, method, rate);
    py::array_t<float> repaired(audio.shape);
    float* out = repaired.mutable_data();
    RepairOutcome outcome;
    {
        py::gil_scoped_release released;
        for (std::int64_t c = 0; c < audio.channels; ++c) audio.copyFrames(c, 0, audio.frames, out + c * audio.frames);
        ArrayFrames frames(audio, rate);
        ferrotip::srand(1);  // as in the command line's new process; see repair()
        const std::vector<Patch> patches = repairAll(frames, regions);
        // A patch may reach into the zeros beyond the array's ends: those are not written.
        for (const Patch& p : patches) {
            for (std::size_t c = 0; c < p.samples.size(); ++c)
                for (std::size_t i = 0; i < p.samples[c].size(); ++i) {
                    const std::int64_t f = p.first + static_cast<std::int64_t>(i);
                    if (f < 0 || f >= audio.frames) continue;
                    float& sample = out[static_cast<std::int64_t>(c) * audio.frames + f];
                    if (p.samples[c][i] != sample) sample = p.samples[c][i];
                }
        }
        if (patches.size() == 1) outcome = patches[0].outcome;
    }
    return py::make_tuple(repaired, outcome.leftFade, outcome.rightFade);
}

constexpr const char* countForms = "an int (samples) or a str such as '4410', '1.25s' or '3ms'";

py::tuple repair(const py::object& audioArgument, const py::object& rateArgument,
                 const py::object& startArgument, const py::object& lengthArgument,
                 const py::object& methodArgument)
{
    const AudioView audio = audioView(audioArgument, "audio");
    const int rate = static_cast<int>(
        integerArgument(rateArgument, "rate", 1, std::numeric_limits<std::int32_t>::max()));
    const std::string methodText = argumentText(methodArgument, "method", "an int or a str (number or name)");
    requireKnownMethod(methodText);
    if (isRegionMethod(methodText)) {
        const std::string startText = argumentText(startArgument, "start", countForms);
        const std::string lengthText = argumentText(lengthArgument, "length", countForms);
        return repairArrayRegions(audio, rate, {singleRegion(startText, lengthText, rate, "start", "length")},
                                  methodText);
    }
    const MethodInfo method = findMethod(methodText);
    const std::int64_t start = parseSampleCount(argumentText(startArgument, "start", countForms), rate, "start");
    const std::int64_t length =
        parseRegionLength(argumentText(lengthArgument, "length", countForms), rate, "length");
    requireRegionInside(start, length, audio.frames, "the audio");
    const RepairWindow window = planRepair(method, rate, start, length);

    py::array_t<float> repaired(audio.shape);
    float* out = repaired.mutable_data();
    RepairOutcome outcome;
    {
        py::gil_scoped_release released;
        const auto [first, end] = framesInside(window, audio.frames);
        std::vector<std::vector<float>> channels(static_cast<std::size_t>(audio.channels),
                                                 std::vector<float>(static_cast<std::size_t>(window.length), 0.0f));
        for (std::int64_t c = 0; c < audio.channels; ++c) {
            audio.copyFrames(c, 0, audio.frames, out + c * audio.frames);
            audio.copyFrames(c, first, end, channels[c].data() + (first - window.first));
        }
        // The click methods dither from this thread's generator, whose sequence runs on
        // across calls. Starting it afresh, as in the command line's new process, makes
        // a repair depend on its arguments alone.
        ferrotip::srand(1);
        outcome = runRepair(channels, rate, window, static_cast<int>(length), method);
        // Only samples whose value the repair changed are written back, as the command
        // line does: everything else keeps its bits (signed zeros included).
        for (std::int64_t c = 0; c < audio.channels; ++c)
            for (std::int64_t f = first; f < end; ++f) {
                const float value = channels[c][f - window.first];
                float& sample = out[c * audio.frames + f];
                if (value != sample) sample = value;
            }
    }
    return py::make_tuple(repaired, outcome.leftFade, outcome.rightFade);
}

constexpr const char* regionForms = "(start, end) in seconds or (channel, first, last, start, end)";

// A region's fields: any iterable but a str or bytes, whose characters would pass for fields.
py::tuple regionFields(const py::handle& item, const std::string& where)
{
    const auto refuse = [&] {
        return py::type_error(where + " must be " + regionForms + ", got " + typeName(item));
    };
    if (py::isinstance<py::str>(item) || py::isinstance<py::bytes>(item)) throw refuse();
    try {
        return py::tuple(py::reinterpret_borrow<py::object>(item));
    } catch (const py::error_already_set& error) {
        if (!error.matches(PyExc_TypeError)) throw;
        throw refuse();
    }
}

// A time in seconds: an int or a float (numpy's too), not a str or bool.
double secondsValue(const py::handle& value, const std::string& where, const char* field)
{
    if (!isNumber(value))
        throw py::type_error(where + ": " + field + " must be a number of seconds, got " + typeName(value));
    const double seconds = py::float_(py::reinterpret_borrow<py::object>(value));
    if (std::isfinite(seconds) && seconds > largestListSeconds)
        throw py::value_error(where + ": " + field + " " + std::string(py::repr(py::float_(seconds))) +
                              " s is too large; times go up to 1e9 s");
    return seconds;
}

// One region from (start, end) in seconds or from a span as scan() lists it
// (channel, first, last, start, end), whose samples and channel are taken.
Region regionFrom(const py::handle& item, int rate, const std::string& where)
{
    const py::tuple fields = regionFields(item, where);
    SampleSpan span;
    if (fields.size() == 2) {
        const double start = secondsValue(fields[0], where, "start");
        span = spanFromSeconds(start, secondsValue(fields[1], where, "end"), rate, where);
    } else if (fields.size() == 5) {
        span = spanFromSamples(integerArgument(fields[1], "first", 0, std::numeric_limits<std::int64_t>::max()),
                               integerArgument(fields[2], "last", 0, std::numeric_limits<std::int64_t>::max()),
                               where);
        setChannel(span, integerArgument(fields[0], "channel", 0, 65536), where);
    } else {
        throw py::type_error(where + " must be " + regionForms + ", got " + std::to_string(fields.size()) +
                             " fields");
    }
    return {span.channel, span.first, span.last, where, {}};
}

py::object repairRegionList(const py::object& audioArgument, const py::object& rateArgument,
                           const py::iterable& regionList, const py::object& methodArgument)
{
    const AudioView audio = audioView(audioArgument, "audio");
    const int rate = static_cast<int>(
        integerArgument(rateArgument, "rate", 1, std::numeric_limits<std::int32_t>::max()));
    const std::string method = argumentText(methodArgument, "method", "an int or a str (number or name)");
    requireKnownMethod(method);
    std::vector<Region> regions;
    for (const py::handle item : regionList)
        regions.push_back(regionFrom(item, rate, "region " + std::to_string(regions.size() + 1)));
    if (regions.empty()) throw CliError("regions lists no regions");
    return repairArrayRegions(audio, rate, std::move(regions), method)[0];
}

}  // namespace

void registerRepair(py::module_& module)
{
    py::class_<Method>(module, "Method", "One repair method: a row of the module's method table.")
        .def_readonly("index", &Method::index, "the method's number, 0 to 6")
        .def_readonly("name", &Method::name)
        .def_readonly("description", &Method::description)
        .def_readonly("category", &Method::category,
                      "0 straight line, 16 and 17 the AR family, 32 to 35 waveform replacement")
        .def_readonly("max_gap_ms", &Method::maxGapMs,
                      "longest region the method takes, in ms; repair refuses a longer one with every method")
        .def_readonly("context_before_ms", &Method::contextBeforeMs, "reach before the region, in ms")
        .def_readonly("context_after_ms", &Method::contextAfterMs, "reach after the region, in ms")
        .def("__repr__", [](const Method& method) {
            return "Method(index=" + std::to_string(method.index) + ", name='" + method.name +
                   "', max_gap_ms=" + std::to_string(method.maxGapMs) + ")";
        });

    module.def("methods", &methods, R"(methods() -> list[Method]

The seven repair methods, in the order of their numbers.

Each is a Method with index, name, description, category, max_gap_ms,
context_before_ms and context_after_ms.)");

    module.def("repair_regions", &repairRegionList, py::arg("audio"), py::arg("rate"), py::arg("regions"),
               py::arg("method") = "auto",
               R"(repair_regions(audio, rate, regions, method="auto") -> repaired

Repairs many regions in one pass, as `ferrotip repair --regions FILE` does.

regions  an iterable of (start, end) pairs in seconds (end exclusive, rounded to
         the nearest samples) or of spans as scan() returns them, (channel,
         first, last, start, end), whose channel (1-based, 0 for all) and frames
         are used.
method   "auto" (the default), "inpaint", or a method's number or name.

Every region is checked before anything is repaired; overlapping or adjacent
ones are merged, and each is repaired from audio that already holds the repairs
before it. The result, a new array, is bit-identical to the command line's on a
float32 file. Bad regions raise ValueError naming the region; the GIL is
released while the repairs run.)");

    module.def("repair", &repair, py::arg("audio"), py::arg("rate"), py::arg("start"),
               py::arg("length"), py::arg("method") = "auto",
               R"(repair(audio, rate, start, length, method="auto") -> (repaired, left_fade, right_fade)

Repairs a damaged region of every channel of a numpy array.

audio   float32 numpy array shaped (channels, frames) or (frames,), in any
        layout; it is read in place and left unchanged. Other dtypes raise
        TypeError saying how to convert: numpy.asarray(audio,
        dtype=numpy.float32), integers scaled to full scale 1.0 (audio / 32768
        for int16). Audio shaped (frames, channels) goes in as audio.T.
rate    sample rate in Hz, 1 to 2147483647.
start   first damaged frame, length the number of damaged frames: an int
        (samples) or a str in samples, seconds or ms ('4410', '1.25s', '3ms').
method  "auto" (the default: chosen by the region's length), "inpaint" (the
        gap filler for dropouts up to 250 ms), or a method's number 0 to 6 or
        name, any case ('normal clicks'); see methods().

The repair works on the window that `ferrotip repair` builds: the method's
reach around the region, zeros beyond the array's ends (which the gap filler,
told where the array ends, does not read). The result is a new
array of the same shape, bit-identical to `ferrotip repair` on a float32 file
with the same audio: each call starts the dither of the click methods afresh,
so the result depends on the arguments alone. left_fade and right_fade are the
crossfade lengths of the waveform methods (3 to 6), else 0. With "auto" or
"inpaint" the result is bit-identical to `ferrotip repair --method auto` or
`--method inpaint`. Bad arguments raise
ValueError with the command line's message; the GIL is released while the
repair runs.

>>> import numpy as np, ferrotip
>>> clean = np.sin(2 * np.pi * 440 / 48000 * np.arange(48000)).astype(np.float32)
>>> damaged = clean.copy()
>>> damaged[20000:20040] = 0.9                     # a 40-sample click
>>> repaired, left_fade, right_fade = ferrotip.repair(damaged, 48000, 20000, 40, "normal clicks")
>>> bool(np.abs(repaired - clean).max() < 0.01)
True)");
}

}  // namespace ferrotip_python
