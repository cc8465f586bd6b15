// ferrotip.declick(), ferrotip.Declicker and ferrotip.mean_squares(): the crackle
// engines over numpy arrays. The settings go through the command line's own option
// parser (same checks, same messages, the same text-to-number rounding) and a whole
// array runs through the command line's latency-compensated loop, so
// `ferrotip declick` and ferrotip.declick give the same bits.
#include <pybind11/stl.h>

#include <CLI/CLI.hpp>

#include <cmath>
#include <cstdio>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <optional>
#include <utility>
#include <vector>

#include "ArrayViews.h"
#include "Bindings.h"
#include "ThreadClaim.h"
#include "DeclickRun.h"

namespace py = pybind11;

namespace ferrotip_python {

namespace {

// The keyword arguments that pick and change a preset, as given (None when not).
struct SettingArguments {
    py::object preset, engine, block, sensitivity, floor, relativeFloor, sharedEngine, jobs, listen, refill,
        silentEdges;
};

// The preset and the settings among **keywords; TypeError for any other keyword.
SettingArguments settingArguments(const py::object& preset, const py::kwargs& keywords)
{
    SettingArguments given;
    given.preset = preset;
    std::pair<const char*, py::object*> slots[] = {
        {"engine", &given.engine},  {"block", &given.block},
        {"sensitivity", &given.sensitivity}, {"floor", &given.floor},
        {"relative_floor", &given.relativeFloor}, {"shared_engine", &given.sharedEngine},
        {"jobs", &given.jobs}, {"listen", &given.listen}, {"refill", &given.refill},
        {"silent_edges", &given.silentEdges}};
    std::size_t known = 0;
    for (auto& [name, slot] : slots) {
        *slot = keywords.contains(name) ? py::reinterpret_borrow<py::object>(keywords[name]) : py::none();
        known += keywords.contains(name) ? 1 : 0;
    }
    if (known != keywords.size())
        for (const auto& [key, value] : keywords)
            if (std::ranges::none_of(slots, [&](const auto& slot) { return py::str(key).cast<std::string>() == slot.first; }))
                throw py::type_error("unexpected keyword argument '" + py::str(key).cast<std::string>() + "'");
    return given;
}

// What the arguments decide, once checked.
struct DeclickChoice {
    DeclickSettings settings;
    DeclickListen listen = DeclickListen::repaired;
    bool sharedEngine = false;
    bool continueEdges = true;
    int jobs = 1;
};

std::string textArgument(const py::object& value, const char* name)
{
    if (!py::isinstance<py::str>(value))
        throw py::type_error(std::string(name) + " must be a str, got " + typeName(value));
    return value.cast<std::string>();
}

// True or False (numpy's bool too), `absent` for None; TypeError naming the keyword otherwise.
bool flagArgument(const py::object& value, const char* name, bool absent)
{
    if (value.is_none()) return absent;
    if (PyBool_Check(value.ptr()) || py::isinstance(value, py::module_::import("numpy").attr("bool_")))
        return value.cast<bool>();
    throw py::type_error(std::string(name) + " must be True or False, got " + typeName(value));
}

// A real number as the shortest text that reads back to it.
std::string numberText(const py::object& value, const char* name)
{
    if (!isNumber(value))
        throw py::type_error(std::string(name) + " must be a number, got " + typeName(value));
    return py::repr(py::float_(value));
}

// The command line's arguments for the given keywords, in the order CLI11 reads them (reversed).
std::vector<std::string> commandArguments(const SettingArguments& given)
{
    std::vector<std::string> arguments{"--preset=" + textArgument(given.preset, "preset")};
    const auto add = [&](const char* option, const py::object& value, const char* name, auto toText) {
        if (!value.is_none()) arguments.push_back(std::string(option) + "=" + toText(value, name));
    };
    const auto integerText = [](const py::object& value, const char* name) {
        return argumentText(value, name, "an int");
    };
    add("--engine", given.engine, "engine", textArgument);
    add("--block", given.block, "block", integerText);
    add("--sensitivity", given.sensitivity, "sensitivity", numberText);
    add("--floor", given.floor, "floor", numberText);
    add("--relative-floor", given.relativeFloor, "relative_floor", numberText);
    add("--jobs", given.jobs, "jobs", integerText);
    add("--listen", given.listen, "listen", textArgument);
    if (flagArgument(given.sharedEngine, "shared_engine", false)) arguments.emplace_back("--shared-engine");
    if (!flagArgument(given.refill, "refill", true)) arguments.emplace_back("--no-refill");
    if (flagArgument(given.silentEdges, "silent_edges", false)) arguments.emplace_back("--silent-edges");
    return {arguments.rbegin(), arguments.rend()};
}

// The command line's message with the options named as the keywords are.
std::string keywordMessage(std::string message)
{
    static const std::pair<const char*, const char*> names[] = {
        {"--relative-floor", "relative_floor"}, {"--shared-engine", "shared_engine"}, {"--preset", "preset"},
        {"--engine", "engine"}, {"--block", "block"}, {"--sensitivity", "sensitivity"}, {"--floor", "floor"},
        {"--jobs", "jobs"}, {"--listen", "listen"}};
    for (const auto& [option, keyword] : names)
        for (auto at = message.find(option); at != std::string::npos; at = message.find(option, at))
            message.replace(at, std::string(option).size(), keyword);
    return message;
}

DeclickChoice choose(const SettingArguments& given, int channels)
{
    CLI::App parser;
    DeclickSettingOptions options;
    addDeclickSettingOptions(&parser, options);
    addDeclickListenOption(&parser, options);
    std::vector<std::string> arguments = commandArguments(given);
    try {
        parser.parse(arguments);
    } catch (const CLI::ParseError& error) {
        throw py::value_error(keywordMessage(error.what()));
    }
    return {settingsFrom(options), listenFrom(options.listen), options.sharedEngine, continuesEdges(options),
            jobsFor(options, channels)};
}

// Each channel's mean square as declick measures it, read a chunk at a time.
std::vector<double> meanSquaresOf(const AudioView& audio, int chunk)
{
    MeanSquareMeter meter(static_cast<int>(audio.channels));
    std::vector<float> piece(static_cast<std::size_t>(chunk));
    for (std::int64_t c = 0; c < audio.channels; ++c)
        for (std::int64_t first = 0; first < audio.frames; first += chunk) {
            const std::int64_t end = std::min<std::int64_t>(first + chunk, audio.frames);
            audio.copyFrames(c, first, end, piece.data());
            meter.addRow(static_cast<int>(c), first, piece.data(), end - first, 1.0);
        }
    meter.countFrames(audio.frames);
    return meter.meanSquares();
}

// Refuses, as ValueError naming the sample, audio the engines' float squares would overflow on.
void requireDeclickRange(const AudioView& audio, const char* name)
{
    std::vector<float> piece(16384);
    float* rows[] = {piece.data()};
    for (std::int64_t c = 0; c < audio.channels; ++c)
        for (std::int64_t first = 0; first < audio.frames; first += static_cast<std::int64_t>(piece.size())) {
            const std::int64_t end = std::min<std::int64_t>(first + static_cast<std::int64_t>(piece.size()), audio.frames);
            audio.copyFrames(c, first, end, piece.data());
            if (const auto beyond = firstSampleOutOfRange(rows, 1, end - first)) {
                const std::string where = audio.shape.size() == 2 ? "channel " + std::to_string(c) + ", frame " : "frame ";
                char value[32];
                char limit[96];
                std::snprintf(value, sizeof value, "%g", static_cast<double>(beyond->value));
                std::snprintf(limit, sizeof limit, ", beyond the largest magnitude declick takes (%g, full scale being 1)",
                              static_cast<double>(largestDeclickSample));
                throw py::value_error(std::string(name) + " holds " + value + " at " + where +
                                      std::to_string(first + beyond->frame) + limit);
            }
        }
}

int rateArgument(const py::object& rate)
{
    return static_cast<int>(integerArgument(rate, "rate", 1, std::numeric_limits<std::int32_t>::max()));
}

struct ClickSpan {
    int channel = 0;
    std::int64_t first = 0;
    std::int64_t last = 0;
    double start = 0.0;
    double end = 0.0;
};

ClickSpan clickSpan(const RepairedSpan& span, int rate)
{
    return {span.channel, span.first, span.last, static_cast<double>(span.first) / rate,
            static_cast<double>(span.last + 1) / rate};
}

// The whole array through the engines, lined up with the input; the spans repaired.
std::vector<RepairedSpan> declickInto(const AudioView& audio, int rate, const DeclickChoice& choice, float* out)
{
    const int chunk = declickChunk(choice.settings);
    const std::vector<double> meanSquares = needsLevel(choice.settings, choice.listen)
                                                ? meanSquaresOf(audio, chunk)
                                                : std::vector<double>(static_cast<std::size_t>(audio.channels), 0.0);
    const DeclickStages stages =
        declickStagesFor(choice.settings, choice.listen, choice.continueEdges, rate, choice.jobs);
    MultichannelDeclicker declicker(choice.settings, meanSquares, choice.sharedEngine,
                                    enginesListen(choice.listen, stages), chunk, choice.jobs);
    std::int64_t consumed = 0;
    std::int64_t written = 0;
    const auto source = [&](float* const* rows, std::int64_t frames) {
        for (std::int64_t c = 0; c < audio.channels; ++c) audio.copyFrames(c, consumed, consumed + frames, rows[c]);
        consumed += frames;
        return frames;
    };
    const auto sink = [&](const float* const* rows, int from, int count) {
        for (std::int64_t c = 0; c < audio.channels; ++c)
            std::copy(rows[c] + from, rows[c] + from + count, out + c * audio.frames + written);
        written += count;
    };
    return declickRecording(declicker, audio.frames, chunk, source, sink, stages);
}

py::object declick(const py::object& audioArgument, const py::object& rateArgumentValue,
                   const SettingArguments& given, bool report)
{
    const AudioView audio = audioView(audioArgument, "audio");
    const int rate = rateArgument(rateArgumentValue);
    const DeclickChoice choice = choose(given, static_cast<int>(audio.channels));
    if (choice.listen != DeclickListen::bypass) requireDeclickRange(audio, "audio");
    py::array_t<float> repaired(audio.shape);
    float* out = repaired.mutable_data();
    std::vector<RepairedSpan> spans;
    {
        py::gil_scoped_release released;
        // Bypass hands back the input's own samples, as the command line copies the file.
        if (choice.listen == DeclickListen::bypass)
            for (std::int64_t c = 0; c < audio.channels; ++c) audio.copyFrames(c, 0, audio.frames, out + c * audio.frames);
        else
            spans = declickInto(audio, rate, choice, out);
    }
    if (!report) return repaired;
    std::vector<ClickSpan> listed;
    for (const RepairedSpan& span : spans) listed.push_back(clickSpan(span, rate));
    return py::make_tuple(repaired, listed);
}

std::vector<double> levelArgument(const py::object& level, int channels)
{
    const py::array values = py::module_::import("numpy").attr("asarray")(level, "float64").cast<py::array>();
    if (values.ndim() > 1 || (values.ndim() == 1 && values.size() != channels))
        throw py::value_error("level must be one mean square or one per channel (" + std::to_string(channels) +
                              "), got shape " + std::string(py::str(values.attr("shape"))));
    const auto contiguous = values.cast<py::array_t<double, py::array::c_style | py::array::forcecast>>();
    const double* data = contiguous.data();
    std::vector<double> levels(static_cast<std::size_t>(channels), data[0]);
    if (values.ndim() == 1) levels.assign(data, data + channels);
    for (double value : levels)
        if (!std::isfinite(value) || value < 0.0)
            throw py::value_error("level must hold finite mean squares of 0 or more, got " +
                                  std::string(py::str(level)));
    return levels;
}

class Declicker {
public:
    Declicker(const py::object& channelsArgument, const py::object& rate, const SettingArguments& given,
              const py::object& level)
        : channels_(static_cast<int>(integerArgument(channelsArgument, "channels", 1, maxChannels))),
          rate_(rateArgument(rate))
    {
        if (flagArgument(given.refill, "refill", false))
            throw py::value_error("a streaming Declicker keeps the engines' own repair: refill needs the whole "
                                  "recording (ferrotip.declick)");
        if (!flagArgument(given.silentEdges, "silent_edges", true))
            throw py::value_error("a streaming Declicker has no edges to continue: it takes what comes before "
                                  "its first block as silence");
        SettingArguments alone = given;  // the engines run alone: the presets' settings for that
        alone.refill = py::bool_(false);
        const DeclickChoice choice = choose(alone, channels_);
        std::vector<double> meanSquares(static_cast<std::size_t>(channels_), 0.0);
        if (needsLevel(choice.settings, choice.listen)) {
            if (level.is_none())
                throw py::value_error("this preset's floor follows the level: give level (each channel's mean "
                                      "square, e.g. ferrotip.mean_squares(audio)) or an absolute floor");
            meanSquares = levelArgument(level, channels_);
        }
        chunk_ = declickChunk(choice.settings);
        declicker_ = std::make_unique<MultichannelDeclicker>(choice.settings, meanSquares, choice.sharedEngine,
                                                             choice.listen, chunk_, choice.jobs);
        held_ = ready_ = blockSize() - 1;
        line_.assign(static_cast<std::size_t>(channels_),
                     std::vector<float>(static_cast<std::size_t>(chunk_ + held_), 0.0f));
        pointers_.resize(static_cast<std::size_t>(channels_));
    }

    int channels() const { return channels_; }
    int rate() const { return rate_; }
    int latency() const { return declicker_->latency() + held_; }
    int blockSize() const { return declicker_->blockSize(); }

    py::array_t<float> process(const py::object& audioArgument)
    {
        const AudioView audio = blockView(audioArgument, "audio", channels_);
        requireDeclickRange(audio, "audio");
        py::array_t<float> out(audio.shape);
        float* rows = out.mutable_data();
        const std::unique_lock<std::mutex> lock = claim();
        {
            py::gil_scoped_release released;
            for (std::int64_t first = 0; first < audio.frames; first += chunk_) {
                const int count = static_cast<int>(std::min<std::int64_t>(chunk_, audio.frames - first));
                pass(audio, first, count, rows + first, audio.frames);
            }
        }
        return out;
    }

private:
    // Frames [first, first + count) of the audio through the line, the output of
    // latency() frames earlier into out[c * stride ...]. The line holds block - 1
    // frames between calls: outputs not yet handed on, then inputs short of a whole
    // block. With count more frames at least count outputs are ready, so any count
    // passes and the delay stays the same.
    void pass(const AudioView& audio, std::int64_t first, int count, float* out, std::int64_t stride)
    {
        for (int c = 0; c < channels_; ++c) audio.copyFrames(c, first, first + count, line_[c].data() + held_);
        const int whole = (held_ + count - ready_) / blockSize() * blockSize();
        for (int c = 0; c < channels_; ++c) pointers_[c] = line_[c].data() + ready_;
        if (whole > 0) declicker_->process(pointers_.data(), whole);
        ready_ += whole - count;
        for (int c = 0; c < channels_; ++c) {
            std::copy_n(line_[c].begin(), count, out + c * stride);
            std::copy(line_[c].begin() + count, line_[c].begin() + count + held_, line_[c].begin());
        }
    }

    std::unique_lock<std::mutex> claim() { return claimFor(busy_, "Declicker"); }

    int channels_;
    int rate_;
    int chunk_ = 0;
    int held_ = 0;   // frames in the line between calls: block - 1
    int ready_ = 0;  // of them, outputs not yet handed on (silence at first)
    std::vector<std::vector<float>> line_;
    std::vector<float*> pointers_;
    std::unique_ptr<MultichannelDeclicker> declicker_;
    std::mutex busy_;
};

std::vector<double> meanSquares(const py::object& audio)
{
    const AudioView view = audioView(audio, "audio");
    py::gil_scoped_release released;
    return meanSquaresOf(view, 16384);
}

}  // namespace

void registerDeclick(py::module_& module)
{
    py::class_<ClickSpan>(module, "ClickSpan", "A run of samples the declicker rewrote.")
        .def_readonly("channel", &ClickSpan::channel, "the channel, from 0")
        .def_readonly("first", &ClickSpan::first, "first sample rewritten")
        .def_readonly("last", &ClickSpan::last, "last sample rewritten (inclusive)")
        .def_readonly("start", &ClickSpan::start, "first / rate, in seconds")
        .def_readonly("end", &ClickSpan::end, "(last + 1) / rate, in seconds")
        .def("__repr__", [](const ClickSpan& span) {
            return "ClickSpan(channel=" + std::to_string(span.channel) + ", first=" + std::to_string(span.first) +
                   ", last=" + std::to_string(span.last) + ")";
        });

    module.def(
        "declick",
        [](const py::object& audio, const py::object& rate, const py::object& preset, bool report,
           const py::kwargs& settings) { return declick(audio, rate, settingArguments(preset, settings), report); },
        py::arg("audio"), py::arg("rate"), py::arg("preset") = std::string(defaultDeclickPreset().name),
        py::arg("report") = true, R"(declick(audio, rate, preset='auto', report=True, **settings) -> (repaired, spans)

Removes clicks and crackle from every channel of a whole recording.

audio   float32 numpy array shaped (channels, frames) or (frames,), in any
        layout; read in place and left unchanged.
rate    sample rate in Hz (it only turns the spans' samples into seconds).
preset  'auto', 'gentle', 'clicks' or 'crackle'.
settings, each replacing the preset's:
        engine='standard' or 'prediction', block=64..65536 samples,
        sensitivity=0.01..1000, floor=0..1 (a bin power) or
        relative_floor=0..1000 (a multiple of each channel's mean square),
        shared_engine=True (one engine for all channels), jobs=1..256
        threads (the result does not depend on it), listen='difference'
        (what was removed) or 'bypass' (the input as it is), refill=False
        (keep the engines' own repair: every preset fills by least-squares
        AR the clicks far louder than the music, which the engines let
        through, 'auto' also the loud clicks they repaired, and 'auto' and
        'crackle' the fine crackle they left; 'auto' then runs the two
        engine passes a streaming Declicker runs),
        silent_edges=True (take the audio past the array's ends as silence, as
        a stream does).

The result is a new array of the same shape, lined up with the input sample
for sample: the engines' latency is taken off. Each end of the array is
continued by its reflection about the end sample (faded out), so audio that
starts or stops mid-sound keeps its first and last samples; with
shared_engine=True or silent_edges=True silence is fed past the ends instead.
A floor relative to the level uses each channel's mean square over the whole
array (see mean_squares). The bits are those of `ferrotip declick` on a
float32 file with the same audio and options. With report=True it returns
(repaired, spans): the ClickSpans rewritten, sorted by first sample, overlaps
of a channel joined; else the array alone. Bad settings raise ValueError
with the command line's message; the GIL is released while the engines run.

>>> import numpy as np, ferrotip
>>> rng = np.random.default_rng(2)
>>> t = np.arange(44100) / 44100
>>> clean = (0.3 * np.sin(2 * np.pi * 330 * t) + 0.01 * rng.standard_normal(t.size)).astype(np.float32)
>>> audio = clean.copy()
>>> audio[[5000, 20000, 31000]] += 0.6                 # three clicks
>>> repaired, spans = ferrotip.declick(audio, 44100, preset="clicks")
>>> bool(np.abs(repaired - clean).max() < 0.1)
True
>>> [(span.first, span.last) for span in spans if 4990 <= span.first <= 5010]
[(4999, 5000)])");

    module.def("mean_squares", &meanSquares, py::arg("audio"), R"(mean_squares(audio) -> list[float]

Each channel's mean square (full scale 1), summed in time order in double as
declick measures it: the level to give a streaming Declicker so that its floor
matches declick's on the same recording.)");

    py::class_<Declicker>(module, "Declicker", R"(Declicker(channels, rate, preset='auto', level=None, **settings)

Streaming click and crackle removal: one engine per channel (or one for all with
shared_engine=True), run in parallel over jobs threads. The settings are
declick's. A streaming declicker cannot measure the level first: where the
preset's floor follows each channel's mean square, give level (one mean square
for every channel or one per channel, e.g. mean_squares of the recording or of
a typical passage) or an absolute floor; otherwise ValueError.

process(audio) takes the next float32 block shaped (channels, frames) or
(frames,) for one channel, of any length, and returns as many frames: the
output of latency samples earlier (silence at first). The engines work on
whole blocks of block_size frames, gathered as they come, so latency is the
engines' delay plus block_size - 1 whatever the calls' lengths. Feeding a
recording in any blocks, then latency frames of silence more, and dropping the
first latency output frames gives declick's bits for the same level with
refill=False and silent_edges=True (a Declicker runs the engines alone, on
what comes as it comes).)")
        .def(py::init([](const py::object& channels, const py::object& rate, const py::object& preset,
                         const py::object& level, const py::kwargs& settings) {
                 return std::make_unique<Declicker>(channels, rate, settingArguments(preset, settings), level);
             }),
             py::arg("channels"), py::arg("rate"), py::arg("preset") = std::string(defaultDeclickPreset().name),
             py::arg("level") = py::none())
        .def("process", &Declicker::process, py::arg("audio"),
             "process(audio) -> as many repaired frames, latency samples late; the GIL is released meanwhile.")
        .def_property_readonly("latency", &Declicker::latency, "output delay in samples: the engines' plus block_size - 1")
        .def_property_readonly("block_size", &Declicker::blockSize, "frames per engine block")
        .def_property_readonly("channels", &Declicker::channels)
        .def_property_readonly("rate", &Declicker::rate);
}

}  // namespace ferrotip_python
