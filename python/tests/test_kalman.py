"""ferrotip.Kalman: the restoration filter over numpy arrays, and the order of calls
the binding enforces so that no sequence of calls runs an unbuilt filter."""
import numpy as np
import pytest

import ferrotip

SIGNAL_AR = [1.0, -1.6, 0.9]  # a resonance: s(n) = 1.6 s(n-1) - 0.9 s(n-2) + w(n)
WHITE_NOISE_AR = [1.0, 0.0, 0.0]


def ar_signal(length, seed, drive=0.1):
    rng = np.random.default_rng(seed)
    w = rng.normal(0.0, drive, length)
    s = np.zeros(length)
    for n in range(2, length):
        s[n] = 1.6 * s[n - 1] - 0.9 * s[n - 2] + w[n]
    return s


def filter_for(delay=0, output_signal=True, flags=None, flagged_variance=0.25):
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    kalman.set_noise(0.01, 0.25, flagged_variance, flags)
    kalman.start(delay=delay, output_signal=output_signal)
    return kalman


def observed(length=4000, seed=5):
    rng = np.random.default_rng(seed + 1)
    signal = ar_signal(length, seed)
    return signal, (signal + rng.normal(0.0, 0.5, length)).astype(np.float32)


def test_blocks_of_any_size_give_the_bits_of_one_pass():
    _, y = observed()
    whole = filter_for(delay=3).process(y)
    kalman = filter_for(delay=3)
    pieces = [kalman.process(y[a:b]) for a, b in [(0, 1), (1, 2), (2, 999), (999, 999), (999, 4000)]]
    assert np.array_equal(np.concatenate(pieces).view(np.uint32), whole.view(np.uint32))
    assert whole.dtype == np.float32 and whole.shape == y.shape


def test_signal_and_noise_estimates_add_up_to_the_observation():
    # With no measurement noise the updated state reproduces the observation exactly,
    # up to float32 rounding of the two estimates.
    _, y = observed()
    signal = filter_for(output_signal=True).process(y)
    noise = filter_for(output_signal=False).process(y)
    np.testing.assert_allclose(signal + noise, y, rtol=0, atol=1e-5)


def test_fixed_lag_output_is_closer_to_the_signal_than_the_filtered_one():
    truth, y = observed(8000)
    filtered = filter_for().process(y)
    delay = 6
    lag = 2 + delay - 1  # the delayed signal output estimates the sample p + d - 1 back
    smoothed = filter_for(delay=delay).process(y)[lag:]
    error_filtered = np.mean((filtered[100:-lag] - truth[100:-lag]) ** 2)
    error_smoothed = np.mean((smoothed[100:] - truth[100:-lag]) ** 2)
    assert error_smoothed < error_filtered


def test_flagged_samples_give_their_burst_to_the_noise_estimate():
    truth, y = observed(6000)
    flags = np.zeros(y.size, bool)
    flags[3000:3050] = True
    y = y.copy()
    y[3000:3050] += np.float32(20.0)  # a loud burst the noise model is told about
    told = filter_for(flags=flags, flagged_variance=400.0).process(y)
    untold = filter_for().process(y)
    burst = slice(3000, 3050)
    assert np.mean((told[burst] - truth[burst]) ** 2) < 0.1 * np.mean((untold[burst] - truth[burst]) ** 2)


def test_only_a_flag_of_one_selects_the_flagged_variance():
    _, y = observed(500)
    ones = filter_for(flags=[0, 1, 1, 0] * 125, flagged_variance=50.0).process(y)
    others = filter_for(flags=[2, 1, 1, -1] * 125, flagged_variance=50.0).process(y)
    as_bools = filter_for(flags=np.array([0, 1, 1, 0] * 125, bool), flagged_variance=50.0).process(y)
    assert np.array_equal(ones, others) and np.array_equal(ones, as_bools)
    assert not np.array_equal(ones, filter_for().process(y))


def test_none_flags_mean_every_sample_is_clean():
    _, y = observed(500)
    assert np.array_equal(filter_for(flags=None).process(y), filter_for(flags=[0]).process(y))
    assert np.array_equal(filter_for(flags=None).process(y), filter_for(flags=np.zeros(500, int)).process(y))


def test_initial_state_starts_the_signal_block():
    zeros = filter_for()
    given = ferrotip.Kalman()
    given.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    given.set_noise(0.01, 0.25, 0.25)
    given.start(initial_state=[3.0, -2.0])
    y = np.zeros(5, np.float32)
    assert not np.array_equal(given.process(y), zeros.process(y))


def test_new_coefficients_without_delay_take_effect_at_once():
    _, y = observed(200)
    kalman = filter_for()
    kalman.process(y[:100])
    kalman.set_models([1.0, -1.5, 0.8], WHITE_NOISE_AR)
    changed = kalman.process(y[100:])
    unchanged = filter_for()
    unchanged.process(y[:100])
    assert not np.array_equal(changed, unchanged.process(y[100:]))


def test_restart_needs_set_models_and_then_gives_a_fresh_run():
    _, y = observed(300)
    kalman = filter_for()
    first = kalman.process(y)
    with pytest.raises(RuntimeError, match=r"^start needs set_models before it"):
        kalman.start()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    kalman.set_noise(0.01, 0.25, 0.25)
    kalman.start()
    assert np.array_equal(kalman.process(y), first)


def test_docstring_example_runs():
    import doctest
    for function in (ferrotip.Kalman, ferrotip.repair, ferrotip.declick):
        test = doctest.DocTestParser().get_doctest(function.__doc__, {}, function.__name__, None, 0)
        runner = doctest.DocTestRunner(optionflags=doctest.ELLIPSIS)
        runner.run(test)
        assert runner.summarize(verbose=False) == (0, len(test.examples)) and test.examples


# The order of calls.

def test_process_before_start_is_refused():
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    kalman.set_noise(0.01, 0.25, 0.25)
    with pytest.raises(RuntimeError, match=r"^process needs start after the latest set_models$"):
        kalman.process(np.zeros(3, np.float32))


def test_start_before_set_models_is_refused():
    with pytest.raises(RuntimeError, match=r"^start needs set_models before it"):
        ferrotip.Kalman().start()


def test_process_before_set_noise_is_refused():
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    kalman.start()
    with pytest.raises(RuntimeError, match=r"^process needs set_noise first$"):
        kalman.process(np.zeros(3, np.float32))


@pytest.mark.parametrize("change", ["delay", "order"])
def test_new_models_with_a_delay_or_another_order_need_a_start(change):
    kalman = filter_for(delay=2 if change == "delay" else 0)
    kalman.set_models([1.0, -0.5, 0.1, 0.05] if change == "order" else SIGNAL_AR, WHITE_NOISE_AR)
    with pytest.raises(RuntimeError, match=r"^process needs start"):
        kalman.process(np.zeros(3, np.float32))
    kalman.start()
    assert kalman.process(np.zeros(3, np.float32)).shape == (3,)


# Bad arguments.

@pytest.mark.parametrize("signal_ar", [[1.0], [], np.ones(1024)])
def test_signal_model_order_outside_its_range(signal_ar):
    with pytest.raises(ValueError, match=r"^signal_ar must hold 2 to 1023 coefficients \(1, a1, \.\.\., ap\), got "):
        ferrotip.Kalman().set_models(signal_ar, WHITE_NOISE_AR)


@pytest.mark.parametrize("noise_ar", [[1.0], [1.0, 0.5], [1.0, 0.1, 0.1, 0.1]])
def test_noise_model_must_be_second_order(noise_ar):
    with pytest.raises(ValueError, match=r"^noise_ar must hold 3 coefficients \(1, a1, a2: the noise model is "
                                         rf"second order\), got {len(noise_ar)}$"):
        ferrotip.Kalman().set_models(SIGNAL_AR, noise_ar)


@pytest.mark.parametrize("argument, value", [("signal_ar", [[1.0, 0.5]]), ("noise_ar", np.zeros((3, 1)))])
def test_models_are_one_dimensional(argument, value):
    models = {"signal_ar": SIGNAL_AR, "noise_ar": WHITE_NOISE_AR, argument: value}
    with pytest.raises(ValueError, match=rf"^{argument} must be one-dimensional, got shape "):
        ferrotip.Kalman().set_models(**models)


def test_models_must_be_numbers():
    with pytest.raises(TypeError, match=r"^signal_ar must be a sequence of numbers$"):
        ferrotip.Kalman().set_models(["one", "half"], WHITE_NOISE_AR)


@pytest.mark.parametrize("argument", ["signal_variance", "clean_variance", "flagged_variance"])
@pytest.mark.parametrize("value", [-1.0, float("nan"), float("inf"), 1e300])
def test_variances_are_finite_and_not_negative(argument, value):
    variances = {"signal_variance": 0.01, "clean_variance": 0.25, "flagged_variance": 1.0, argument: value}
    with pytest.raises(ValueError, match=rf"^{argument} must be a finite number of at least 0, got "):
        ferrotip.Kalman().set_noise(**variances)


@pytest.mark.parametrize("zero, flags", [("clean", None), ("clean", [1, 0]), ("flagged", [0, 1])])
def test_a_zero_signal_variance_with_a_zero_drive_in_use_is_refused(zero, flags):
    variances = {"signal_variance": 0.0, "clean_variance": 0.25, "flagged_variance": 0.25, f"{zero}_variance": 0.0}
    with pytest.raises(ValueError, match=rf"^signal_variance and {zero}_variance are both 0 \(in float32\): the "
                                         rf"filter would divide 0 by 0 at every {zero} sample"):
        ferrotip.Kalman().set_noise(**variances, flags=flags)


def test_a_zero_signal_variance_runs_where_every_sample_in_use_has_a_drive():
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    kalman.set_noise(0.0, 0.0, 0.25, flags=[1])  # every sample flagged: the zero clean variance is never used
    kalman.start()
    assert np.isfinite(kalman.process(observed()[1])).all()


NOT_FINITE_IN_FLOAT32 = [float("nan"), float("inf"), -float("inf"), 1e39]


@pytest.mark.filterwarnings("ignore:overflow encountered in cast:RuntimeWarning")
@pytest.mark.parametrize("value", NOT_FINITE_IN_FLOAT32)
@pytest.mark.parametrize("argument, index", [("signal_ar", 2), ("noise_ar", 1)])
def test_model_coefficients_must_be_finite_in_float32(argument, index, value):
    models = {"signal_ar": list(SIGNAL_AR), "noise_ar": list(WHITE_NOISE_AR)}
    models[argument][index] = value
    with pytest.raises(ValueError, match=rf"^{argument} must hold finite numbers within float32's range .* at "
                                         rf"index {index}$"):
        ferrotip.Kalman().set_models(**models)


@pytest.mark.filterwarnings("ignore:overflow encountered in cast:RuntimeWarning")
@pytest.mark.parametrize("value", NOT_FINITE_IN_FLOAT32)
def test_initial_state_must_be_finite_in_float32(value):
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    with pytest.raises(ValueError, match=r"^initial_state must hold finite numbers within float32's range .* at "
                                         r"index 1$"):
        kalman.start(initial_state=[0.0, value])


@pytest.mark.parametrize("flags, error, message", [
    ([0.0, 1.0], TypeError, r"^flags must hold integers or booleans \(1 marks a damaged sample\), got float64"),
    (["1"], TypeError, r"^flags must hold integers or booleans"),
    ([], ValueError, r"^flags must be one-dimensional with 1 to 2147483647 values \(or None\), got shape \(0,\)$"),
    ([[1, 0]], ValueError, r"^flags must be one-dimensional with 1 to 2147483647 values \(or None\), got shape \(1, 2\)$"),
])
def test_bad_flags(flags, error, message):
    with pytest.raises(error, match=message):
        ferrotip.Kalman().set_noise(0.01, 0.25, 1.0, flags)


@pytest.mark.parametrize("delay", [-1, 1021])
def test_delay_outside_its_range(delay):
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    with pytest.raises(ValueError, match=rf"^delay must be between 0 and 1020, got {delay}$"):
        kalman.start(delay=delay)


def test_delay_must_be_an_integer():
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    with pytest.raises(TypeError, match=r"^delay must be an integer, got float$"):
        kalman.start(delay=1.5)


@pytest.mark.parametrize("state", [[1.0], [1.0, 2.0, 3.0, 4.0]])
def test_initial_state_must_fill_the_signal_block(state):
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    with pytest.raises(ValueError, match=rf"^initial_state must hold signal order \+ delay = 3 values, got {len(state)}$"):
        kalman.start(delay=1, initial_state=state)


def test_a_refused_start_leaves_the_models_in_place():
    kalman = ferrotip.Kalman()
    kalman.set_models(SIGNAL_AR, WHITE_NOISE_AR)
    kalman.set_noise(0.01, 0.25, 0.25)
    with pytest.raises(ValueError):
        kalman.start(delay=-1)
    kalman.start()
    assert kalman.process(np.ones(2, np.float32)).shape == (2,)
