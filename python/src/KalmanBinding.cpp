// ferrotip.Kalman: the Kalman restoration filter over numpy arrays. The binding
// enforces the order of calls the filter relies on (models, then start; the noise
// schedule before any sample), so no sequence of Python calls can run the filter
// on arrays it has not built. One object serves one thread at a time; a second
// thread gets RuntimeError instead of a data race.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <mutex>
#include <string>
#include <vector>

#include "ArrayViews.h"
#include "Bindings.h"
#include "ThreadClaim.h"
#include "kalman/Kalman.h"

namespace py = pybind11;

namespace ferrotip_python {

namespace {

// The covariance update costs N^3 per sample: a bound on N keeps a slip of the
// finger from asking for hours of work or gigabytes of matrices.
constexpr int maxStateSize = 1024;
constexpr int noiseOrder = 2;  // the noise model is second order: 1, a1, a2
constexpr int noiseLength = noiseOrder + 1;

using FloatArray = py::array_t<float, py::array::c_style | py::array::forcecast>;

// One NaN or infinity among the coefficients or the state spreads to every output.
void requireFiniteValues(const FloatArray& array, const char* name)
{
    for (py::ssize_t i = 0; i < array.size(); ++i)
        if (!std::isfinite(array.data()[i]))
            throw py::value_error(std::string(name) + " must hold finite numbers within float32's range (about "
                                  "3.4e38), got " + std::string(py::str(py::float_(array.data()[i]))) +
                                  " at index " + std::to_string(i));
}

FloatArray floatValues(const py::object& value, const char* name)
{
    FloatArray array;
    const auto refuse = [name] { return py::type_error(std::string(name) + " must be a sequence of numbers"); };
    try {
        array = value.cast<FloatArray>();
    } catch (const py::cast_error&) {
        throw refuse();
    } catch (const py::error_already_set& error) {  // numpy's own refusal ("could not convert ...")
        if (!error.matches(PyExc_ValueError) && !error.matches(PyExc_TypeError)) throw;
        throw refuse();
    }
    if (array.ndim() != 1)
        throw py::value_error(std::string(name) + " must be one-dimensional, got shape " +
                              std::string(py::str(array.attr("shape"))));
    requireFiniteValues(array, name);
    return array;
}

float variance(double value, const char* name)
{
    const float narrowed = static_cast<float>(value);
    if (!std::isfinite(narrowed) || narrowed < 0.0f)
        throw py::value_error(std::string(name) + " must be a finite number of at least 0, got " +
                              std::string(py::str(py::float_(value))));
    return narrowed;
}

// 1 marks a damaged sample; every other value is clean. None: every sample clean.
std::vector<int> flagValues(const py::object& flags)
{
    if (flags.is_none()) return {0};  // the last flag holds for every later sample
    const py::array array = py::module_::import("numpy").attr("asarray")(flags);
    if (array.ndim() != 1 || array.size() < 1 || array.size() > std::numeric_limits<int>::max())
        throw py::value_error("flags must be one-dimensional with 1 to " +
                              std::to_string(std::numeric_limits<int>::max()) +
                              " values (or None), got shape " + std::string(py::str(array.attr("shape"))));
    const char kind = array.dtype().kind();
    if (kind != 'b' && kind != 'i' && kind != 'u')
        throw py::type_error("flags must hold integers or booleans (1 marks a damaged sample), got " +
                             std::string(py::str(array.dtype())) + " values");
    const auto values = array.cast<py::array_t<std::int64_t, py::array::c_style | py::array::forcecast>>();
    std::vector<int> marks(static_cast<std::size_t>(values.size()));
    for (py::ssize_t i = 0; i < values.size(); ++i) marks[static_cast<std::size_t>(i)] = values.data()[i] == 1;
    return marks;
}

// Each sample's innovation variance is at least signal_variance plus that sample's
// noise drive variance, and the gain divides by it: with both 0 the gain is 0 / 0
// and every output from that sample on is NaN.
void requireSomethingToDivideBy(float signal, float clean, float flagged, const std::vector<int>& marks)
{
    if (signal > 0.0f) return;
    const bool cleanZeroUsed = clean == 0.0f && std::ranges::any_of(marks, [](int mark) { return mark == 0; });
    const bool flaggedZeroUsed = flagged == 0.0f && std::ranges::any_of(marks, [](int mark) { return mark == 1; });
    if (!cleanZeroUsed && !flaggedZeroUsed) return;
    const std::string kind = cleanZeroUsed ? "clean" : "flagged";
    throw py::value_error("signal_variance and " + kind + "_variance are both 0 (in float32): the filter would "
                          "divide 0 by 0 at every " + kind + " sample and return NaN; make one of them positive");
}

class KalmanFilter {
public:
    void setModels(const py::object& signalAr, const py::object& noiseAr)
    {
        const FloatArray signal = floatValues(signalAr, "signal_ar");
        const FloatArray noise = floatValues(noiseAr, "noise_ar");
        if (signal.size() < 2 || signal.size() > maxStateSize - noiseOrder + 1)
            throw py::value_error("signal_ar must hold 2 to " + std::to_string(maxStateSize - noiseOrder + 1) +
                                  " coefficients (1, a1, ..., ap), got " + std::to_string(signal.size()));
        if (noise.size() != noiseLength)
            throw py::value_error("noise_ar must hold 3 coefficients (1, a1, a2: the noise model is "
                                  "second order), got " + std::to_string(noise.size()));
        const auto lock = claim();
        const int order = static_cast<int>(signal.size()) - 1;
        // With no delay and the same orders the filter runs on with the new coefficients.
        const bool keepsRunning = running_ && kalman_.delay() == 0 && order == kalman_.signalOrder();
        kalman_.setModels(signal.data(), static_cast<int>(signal.size()), noise.data(), noiseLength);
        modelsSinceStart_ = true;
        running_ = keepsRunning;
    }

    void setNoise(double signalVariance, double cleanVariance, double flaggedVariance,
                  const py::object& flags)
    {
        const float signal = variance(signalVariance, "signal_variance");
        const float clean = variance(cleanVariance, "clean_variance");
        const float flagged = variance(flaggedVariance, "flagged_variance");
        const std::vector<int> marks = flagValues(flags);
        requireSomethingToDivideBy(signal, clean, flagged, marks);
        const auto lock = claim();
        kalman_.setNoise(signal, clean, flagged, marks.data(), static_cast<int>(marks.size()));
        noiseSet_ = true;
    }

    void start(const py::object& delayArgument, const py::object& initialState, bool outputSignal)
    {
        const auto lock = claim();
        if (!modelsSinceStart_)
            throw std::runtime_error("start needs set_models before it (each start rebuilds the filter "
                                     "from the models)");
        const int order = kalman_.signalOrder();
        const int delay = static_cast<int>(
            integerArgument(delayArgument, "delay", 0, maxStateSize - order - noiseOrder));
        std::vector<float> state(static_cast<std::size_t>(order + delay), 0.0f);
        if (!initialState.is_none()) {
            const FloatArray given = floatValues(initialState, "initial_state");
            if (given.size() != order + delay)
                throw py::value_error("initial_state must hold signal order + delay = " +
                                      std::to_string(order + delay) + " values, got " +
                                      std::to_string(given.size()));
            state.assign(given.data(), given.data() + given.size());
        }
        kalman_.start(delay, state.data(), outputSignal ? 1 : 0);
        modelsSinceStart_ = false;
        running_ = true;
    }

    py::array_t<float> process(const py::object& samples)
    {
        const AudioView view = sampleView(samples, "samples");
        auto lock = claim();
        if (!running_)
            throw std::runtime_error("process needs start after the latest set_models");
        if (!noiseSet_) throw std::runtime_error("process needs set_noise first");
        py::array_t<float> estimates(view.frames);
        float* out = estimates.mutable_data();
        {
            py::gil_scoped_release released;
            view.copyFrames(0, 0, view.frames, out);
            for (std::int64_t n = 0; n < view.frames; ++n) out[n] = kalman_.processSample(out[n]);
        }
        return estimates;
    }

private:
    std::unique_lock<std::mutex> claim() { return claimFor(busy_, "Kalman filter"); }

    Kalman kalman_;
    std::mutex busy_;
    bool modelsSinceStart_ = false;  // set_models has run since the last start
    bool noiseSet_ = false;
    bool running_ = false;           // processSample may run
};

}  // namespace

void registerKalman(py::module_& module)
{
    py::class_<KalmanFilter>(module, "Kalman", R"(Kalman restoration filter: separates a signal from noise.

The observation is modelled as y(n) = s(n) + v(n), a signal s following an AR
model of order p driven by white noise of variance signal_variance, plus a noise
v following a second-order AR model whose drive variance is chosen per sample:
flagged_variance where flags[n] is 1, clean_variance elsewhere. All arithmetic is
in float32. With a delay d the output is the estimate of an older sample, refined
by the samples seen since (fixed-lag smoothing).

Call set_models and set_noise (in either order), then start, then process once or
many times over consecutive blocks. Each start needs a set_models before it.

>>> import numpy as np, ferrotip
>>> rng = np.random.default_rng(3)
>>> signal = np.zeros(8000)
>>> drive = rng.normal(0.0, 0.1, signal.size)
>>> for n in range(2, signal.size):       # a resonance: s(n) = 1.6 s(n-1) - 0.9 s(n-2) + w(n)
...     signal[n] = 1.6 * signal[n - 1] - 0.9 * signal[n - 2] + drive[n]
>>> noisy = (signal + rng.normal(0.0, 0.5, signal.size)).astype(np.float32)
>>> kalman = ferrotip.Kalman()
>>> kalman.set_models([1.0, -1.6, 0.9], [1.0, 0.0, 0.0])   # white noise: a1 = a2 = 0
>>> kalman.set_noise(0.01, 0.25, 0.25)
>>> kalman.start()
>>> estimate = kalman.process(noisy)
>>> error_before = np.mean((noisy - signal) ** 2)
>>> error_after = np.mean((estimate - signal) ** 2)
>>> bool(error_after < error_before / 4)
True)")
        .def(py::init<>(), "Kalman()\n\nAn empty filter: call set_models, set_noise and start.")
        .def("set_models", &KalmanFilter::setModels, py::arg("signal_ar"), py::arg("noise_ar"),
             R"(set_models(signal_ar, noise_ar)

Sets the two AR models as full polynomials with leading 1 (ignored).

signal_ar   1, a1, ..., ap for s(n) = -a1 s(n-1) - ... - ap s(n-p) + w(n); p from 1.
noise_ar    1, a1, a2 for the second-order noise model.
Every coefficient must be finite in float32 (else ValueError).
Called again while running with no delay and the same signal order, the filter
runs on with the new coefficients; otherwise call start before processing.)")
        .def("set_noise", &KalmanFilter::setNoise, py::arg("signal_variance"),
             py::arg("clean_variance"), py::arg("flagged_variance"), py::arg("flags") = py::none(),
             R"(set_noise(signal_variance, clean_variance, flagged_variance, flags=None)

Sets the drive variances and the per-sample flags, and restarts the schedule.

flags   integers or booleans, one per sample processed from this call on: 1
        selects flagged_variance for that sample's noise drive, anything else
        clean_variance; past the last flag its variance holds. None: all clean.
        After a restart, call set_noise again to begin the schedule anew.
A signal_variance of 0 needs the drive variance of every sample to be above 0:
the filter divides by their sum (ValueError otherwise).)")
        .def("start", &KalmanFilter::start, py::arg("delay") = 0, py::arg("initial_state") = py::none(),
             py::arg("output_signal") = true,
             R"(start(delay=0, initial_state=None, output_signal=True)

Clears the filter's state and covariance and starts a run.

delay           fixed lag d >= 0: the signal output then estimates the sample
                p + d - 1 samples back, the noise output the one 1 sample back.
initial_state   the p + d signal values to start from, newest first (default
                zeros), finite in float32.
output_signal   True: return signal estimates; False: noise estimates.)")
        .def("process", &KalmanFilter::process, py::arg("samples"),
             R"(process(samples) -> numpy.ndarray

Runs the filter over a float32 array of observed samples; returns the estimates.

samples must be one-dimensional float32 (any stride); other dtypes raise
TypeError. Consecutive calls continue the same run. The GIL is released while
the filter runs.)");
}

}  // namespace ferrotip_python
