#include "ArrayViews.h"

#include <cmath>
#include <cstring>

namespace py = pybind11;

namespace ferrotip_python {

namespace {

std::string shapeText(const py::array& array)
{
    return py::str(array.attr("shape"));
}

// The value of an int or numpy integer (bool excluded); TypeError otherwise.
py::int_ integerValue(const py::handle& value, const char* name, const char* forms)
{
    if (!PyBool_Check(value.ptr()) && PyIndex_Check(value.ptr())) {
        PyObject* number = PyNumber_Index(value.ptr());
        if (number == nullptr) throw py::error_already_set();
        return py::reinterpret_steal<py::int_>(number);
    }
    throw py::type_error(std::string(name) + " must be " + forms + ", got " + typeName(value));
}

std::string typeText(const py::handle& value)
{
    if (py::isinstance<py::array>(value)) return "a " + std::string(py::str(value.attr("dtype"))) + " array";
    return typeName(value);
}

// The call that makes float32 at full scale 1.0: integer samples keep their scale
// through a bare cast, so every full-scale check (a clip level of 0.9) would fail.
std::string conversionAdvice(const py::handle& value, const std::string& name)
{
    const std::string plain = "convert it with numpy.asarray(" + name + ", dtype=numpy.float32)";
    if (!py::isinstance<py::array>(value)) return plain;
    const auto array = py::reinterpret_borrow<py::array>(value);
    const char kind = array.dtype().kind();
    if (kind != 'i' && kind != 'u') return plain;
    const std::string fullScale = std::to_string(std::uint64_t{1} << (array.itemsize() * 8 - 1));
    const std::string offset = kind == 'u' ? " - 1" : "";  // unsigned samples centre on half their range
    return "scale it to full scale 1.0 with numpy.asarray(" + name + " / " + fullScale + offset +
           ", dtype=numpy.float32)";
}

py::array float32Array(const py::handle& value, const char* name)
{
    if (!py::isinstance<py::array_t<float>>(value))
        throw py::type_error(std::string(name) + " must be a float32 numpy array, got " + typeText(value) + "; " +
                             conversionAdvice(value, name));
    return py::reinterpret_borrow<py::array>(value);
}

// One NaN or infinity would spread through every filter after it.
void requireFinite(const AudioView& view, const char* name)
{
    for (std::int64_t c = 0; c < view.channels; ++c)
        for (std::int64_t f = 0; f < view.frames; ++f) {
            float sample;
            // Strided arrays may place samples at unaligned addresses: a byte copy keeps the read defined.
            std::memcpy(&sample, view.base + c * view.channelStride + f * view.frameStride, sizeof sample);
            if (std::isfinite(sample)) continue;
            const std::string where = view.shape.size() == 2 ? "channel " + std::to_string(c) + ", frame " : "frame ";
            throw py::value_error(std::string(name) + " holds a value that is not finite (NaN or infinite) at " + where +
                                  std::to_string(f));
        }
}

AudioView viewOf(const py::array& array, const char* name)
{
    if (array.ndim() != 1 && array.ndim() != 2)
        throw py::value_error(std::string(name) + " must be shaped (channels, frames) or (frames,), got shape " +
                              shapeText(array));
    AudioView view;
    view.base = static_cast<const char*>(array.data());
    view.shape.assign(array.shape(), array.shape() + array.ndim());
    const bool planar = array.ndim() == 2;
    view.channels = planar ? array.shape(0) : 1;
    view.frames = array.shape(planar ? 1 : 0);
    view.channelStride = planar ? array.strides(0) : 0;
    view.frameStride = array.strides(planar ? 1 : 0);
    if (view.channels < 1)
        throw py::value_error(std::string(name) + " must hold at least one channel, got shape " +
                              shapeText(array));
    return view;
}

// Audio readers return (frames, channels): taken as (channels, frames), a few
// seconds of stereo would become tens of thousands of channels, each with its own
// buffers. Many channels are therefore believed only with at least as many frames.
void requireChannelsFirst(const AudioView& view, const py::array& array, const char* name)
{
    const bool manyChannels = view.channels > maxChannelsWithoutFrames && view.channels > view.frames;
    if (view.channels <= maxChannels && !manyChannels) return;
    throw py::value_error(std::string(name) + " must be shaped (channels, frames), got shape " + shapeText(array) +
                          ": " + std::to_string(view.channels) + " channels of " + std::to_string(view.frames) +
                          " frames? More than " + std::to_string(maxChannelsWithoutFrames) +
                          " channels need at least as many frames, and " + std::to_string(maxChannels) +
                          " is the most; audio shaped (frames, channels), as audio file readers return it, "
                          "goes in as " + name + ".T");
}

}  // namespace

void AudioView::copyFrames(std::int64_t channel, std::int64_t first, std::int64_t end,
                           float* out) const
{
    if (end <= first) return;
    const char* from = base + channel * channelStride + first * frameStride;
    if (frameStride == static_cast<std::int64_t>(sizeof(float))) {
        std::memcpy(out, from, static_cast<std::size_t>(end - first) * sizeof(float));
        return;
    }
    // Strided (and possibly unaligned) samples: byte copies keep the reads defined.
    for (std::int64_t f = first; f < end; ++f, from += frameStride)
        std::memcpy(out + (f - first), from, sizeof(float));
}

std::string typeName(const py::handle& value)
{
    return py::str(value.get_type().attr("__name__"));
}

bool isNumber(const py::handle& value)
{
    return !PyBool_Check(value.ptr()) && !py::isinstance<py::str>(value) && PyNumber_Check(value.ptr());
}

AudioView audioView(const py::handle& value, const char* name)
{
    const py::array array = float32Array(value, name);
    const AudioView view = viewOf(array, name);
    requireChannelsFirst(view, array, name);
    requireFinite(view, name);
    return view;
}

AudioView blockView(const py::handle& value, const char* name, std::int64_t channels)
{
    const py::array array = float32Array(value, name);
    const AudioView view = viewOf(array, name);
    if (view.channels != channels) {
        const bool transposed = view.shape.size() == 2 && view.frames == channels;
        const std::string hint = transposed ? "; for (frames, channels) pass " + std::string(name) + ".T" : "";
        throw py::value_error(std::string(name) + " must hold " + std::to_string(channels) +
                              " channels, got shape " + shapeText(array) + hint);
    }
    requireFinite(view, name);
    return view;
}

AudioView sampleView(const py::handle& value, const char* name)
{
    const py::array array = float32Array(value, name);
    if (array.ndim() != 1)
        throw py::value_error(std::string(name) + " must be one-dimensional (frames,), got shape " +
                              shapeText(array));
    return audioView(array, name);
}

std::string argumentText(const py::handle& value, const char* name, const char* forms)
{
    if (py::isinstance<py::str>(value)) return value.cast<std::string>();
    return py::str(py::handle(integerValue(value, name, forms)));
}

std::int64_t integerArgument(const py::handle& value, const char* name, std::int64_t low,
                             std::int64_t high)
{
    const py::int_ number = integerValue(value, name, "an integer");
    if (number < py::int_(low) || number > py::int_(high))
        throw py::value_error(std::string(name) + " must be between " + std::to_string(low) + " and " +
                              std::to_string(high) + ", got " + std::string(py::str(py::handle(number))));
    return number.cast<std::int64_t>();
}

}  // namespace ferrotip_python
