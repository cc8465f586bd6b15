"""ferrotip.methods() and ferrotip.repair() against the `ferrotip` program itself."""
import subprocess

import numpy as np
import pytest

import ferrotip
import floatwav

RATE = 8000
FRAMES = 2 * RATE
SEED = 16


def damaged_recording(channels=2, frames=FRAMES, rate=RATE, seed=SEED):
    """Two tones and a little noise, with clicks and a dropout written over them."""
    rng = np.random.default_rng(seed)
    t = np.arange(frames) / rate
    audio = np.stack([0.4 * np.sin(2 * np.pi * (220 + 110 * c) * t) + 0.2 * np.sin(2 * np.pi * 1375 * t + c)
                      + 0.01 * rng.standard_normal(frames) for c in range(channels)])
    audio[:, frames // 3:frames // 3 + 300] = 0.0
    for position in rng.integers(0, frames, 40):
        audio[:, position] += 0.8
    return audio.astype(np.float32)


def run_cli(cli, *args):
    return subprocess.run([cli, *map(str, args)], capture_output=True, text=True, timeout=120)


def repair_with_cli(cli, tmp_path, audio, rate, start, length, method):
    source, target = tmp_path / "in.wav", tmp_path / "out.wav"
    floatwav.write(source, audio, rate)
    done = run_cli(cli, "repair", source, target, f"--start={start}", f"--length={length}", f"--method={method}")
    assert done.returncode == 0, done.stderr
    repaired, written_rate = floatwav.read(target)
    assert written_rate == rate
    return repaired, done.stdout


def cli_error(cli, tmp_path, audio, rate, start, length, method):
    """The one-line message that `ferrotip repair` prints for these arguments, with the
    audio and the options named as the module names them."""
    source = tmp_path / "in.wav"
    floatwav.write(source, audio, rate)
    done = run_cli(cli, "repair", source, tmp_path / "out.wav", f"--start={start}", f"--length={length}",
                   f"--method={method}")
    assert done.returncode == 1, done.stdout
    assert not (tmp_path / "out.wav").exists()
    prefix = "ferrotip: "
    assert done.stderr.startswith(prefix)
    message = done.stderr[len(prefix):].rstrip("\n").replace(f"'{source}'", "the audio")
    message = message.replace("--start '", "start '").replace("--length '", "length '")
    return message.replace("--length must", "length must")


def same_bits(a, b):
    return a.shape == b.shape and a.dtype == b.dtype == np.float32 and np.array_equal(a.view(np.uint32),
                                                                                        b.view(np.uint32))


def test_methods_are_the_seven_rows_of_the_table():
    methods = ferrotip.methods()
    assert [m.index for m in methods] == list(range(7))
    assert [m.name for m in methods] == ["Linear Interpolation", "Optimal Small Clicks", "Normal Clicks",
                                         "Waveform Replacment", "Waveform Replacment Near",
                                         "Waveform Replacment Left", "Waveform Replacment Right"]
    assert [m.category for m in methods] == [0, 16, 17, 32, 33, 34, 35]
    assert [m.max_gap_ms for m in methods] == [10000, 1, 3, 250, 250, 250, 250]
    assert [m.context_before_ms for m in methods] == [1, 10, 50, 4000, 500, 6000, 6000]
    assert [m.context_after_ms for m in methods] == [1, 10, 50, 4000, 500, 6000, 6000]
    assert methods[6].description == ("Replace the corrupted samples by the best fit of rightside neighbourhood "
                                      "samples, Looking in both direction up to 6s")
    assert "Normal Clicks" in repr(methods[2])


@pytest.mark.parametrize("method", ferrotip.methods(), ids=lambda method: method.name)
def test_every_method_refuses_a_region_longer_than_its_max_gap(method):
    length = method.max_gap_ms * RATE // 1000 + 1
    assert "refuses a longer one with every method" in type(method).max_gap_ms.__doc__
    with pytest.raises(ValueError, match=rf"^region of {length} samples is longer than \"{method.name}\" allows: "):
        ferrotip.repair(np.zeros(length + 200, np.float32), RATE, 100, length, method.index)


# Lengths near each method's limit at 8 kHz; positions in the middle and so close to
# the ends that the working window reaches past them (zero padding).
LENGTHS = {0: 50, 1: 8, 2: 20, 3: 400, 4: 400, 5: 2000, 6: 400}


@pytest.mark.parametrize("method", range(7))
@pytest.mark.parametrize("where", ["middle", "first frames", "last frames"])
def test_repair_is_bit_identical_to_the_cli(cli, tmp_path, method, where):
    audio = damaged_recording()
    length = LENGTHS[method]
    start = {"middle": FRAMES // 2 + 17, "first frames": 3, "last frames": FRAMES - length - 1}[where]
    expected, _ = repair_with_cli(cli, tmp_path, audio, RATE, start, length, method)
    repaired, left_fade, right_fade = ferrotip.repair(audio, RATE, start, length, method)
    assert same_bits(repaired, expected)
    assert not same_bits(repaired, audio)
    crossfade = min(max(length // 4, 80), 500) if method >= 3 else 0
    assert (left_fade, right_fade) == (crossfade, crossfade)


# Dropouts for the gap filler and for auto's choice by length, from a few samples to
# 250 ms, in the middle and so close to the ends that the context runs past them.
@pytest.mark.parametrize("method", ["auto", "inpaint", "AUTO"])
@pytest.mark.parametrize("start, length", [(FRAMES // 3, 300), (FRAMES // 2 + 5, 8), (20, 40),
                                           (FRAMES - 2001, 2000), (4000, "250ms")])
def test_auto_and_inpaint_are_bit_identical_to_the_cli(cli, tmp_path, method, start, length):
    audio = damaged_recording()
    expected, _ = repair_with_cli(cli, tmp_path, audio, RATE, start, length, method)
    repaired, left_fade, right_fade = ferrotip.repair(audio, RATE, start, length, method)
    assert same_bits(repaired, expected)
    assert not same_bits(repaired, audio)
    if method == "inpaint":
        assert (left_fade, right_fade) == (0, 0)


def test_method_defaults_to_auto_as_in_the_cli():
    audio = damaged_recording()
    assert same_bits(ferrotip.repair(audio, RATE, FRAMES // 3, 300)[0],
                     ferrotip.repair(audio, RATE, FRAMES // 3, 300, "auto")[0])


def test_mono_times_and_names_as_the_cli_takes_them(cli, tmp_path):
    audio = damaged_recording(channels=1)
    expected, stdout = repair_with_cli(cli, tmp_path, audio, RATE, "0.5s", "2ms", "normal CLICKS")
    repaired, _, _ = ferrotip.repair(audio[0], RATE, "0.5s", "2ms", "normal CLICKS")
    assert repaired.shape == (FRAMES,)
    assert same_bits(repaired, expected[0])
    assert "repaired 16 samples at frame 4000" in stdout


def test_repeated_repairs_in_one_thread_give_the_same_bits():
    audio = damaged_recording()
    first = [ferrotip.repair(audio, RATE, 5000, 8, method)[0] for method in (1, 2)]
    again = [ferrotip.repair(audio, RATE, 5000, 8, method)[0] for method in (1, 2)]
    assert all(same_bits(a, b) for a, b in zip(first, again))


def test_repair_leaves_its_input_alone_and_returns_a_new_array():
    audio = damaged_recording()
    before = audio.copy()
    repaired, _, _ = ferrotip.repair(audio, RATE, 6000, 300, 4)
    assert same_bits(audio, before)
    assert not np.shares_memory(repaired, audio)
    # Only the region and its crossfades change.
    changed = np.flatnonzero(np.any(repaired != audio, axis=0))
    assert changed.min() >= 6000 - 80 and changed.max() < 6300 + 80


def test_numpy_integers_are_taken_like_ints():
    audio = damaged_recording()
    expected = ferrotip.repair(audio, RATE, 7000, 10, 2)[0]
    repaired = ferrotip.repair(audio, np.int32(RATE), np.int64(7000), np.uint16(10), np.int8(2))[0]
    assert same_bits(repaired, expected)


# Each bad argument, given to the program and to the module alike.
CLI_ERRORS = [
    pytest.param(RATE, 100, 10, "9", id="unknown method number"),
    pytest.param(RATE, 100, 10, "clicks", id="unknown method name"),
    pytest.param(RATE, 100, 25, "2", id="region longer than the method allows"),
    pytest.param(RATE, 100, 2001, "5", id="region longer than a waveform method allows"),
    pytest.param(RATE, -5, 10, "0", id="negative start"),
    pytest.param(RATE, "1.5", 10, "0", id="fractional start"),
    pytest.param(RATE, "soon", 10, "0", id="start that is no count"),
    pytest.param(RATE, "1e20", 10, "0", id="start too large"),
    pytest.param(RATE, 100, "-3ms", "0", id="negative length"),
    pytest.param(RATE, 100, 0, "0", id="empty region"),
    pytest.param(RATE, FRAMES - 5, 10, "0", id="region past the end"),
    pytest.param(RATE, FRAMES, 1, "0", id="region starting at the end"),
    pytest.param(400000, 100, 10, "4", id="rate above the tested range"),
    pytest.param(800, 100, 1, "1", id="rate below 1 kHz for a click method"),
    pytest.param(RATE, 100, 2001, "inpaint", id="region longer than the gap filler takes"),
    pytest.param(RATE, 100, 2001, "auto", id="region longer than auto takes"),
    pytest.param(RATE, 100, 0, "auto", id="empty region for auto"),
    pytest.param(RATE, FRAMES - 5, 10, "inpaint", id="region past the end for inpaint"),
    pytest.param(RATE, "soon", 10, "auto", id="start that is no count for auto"),
]


@pytest.mark.parametrize("rate, start, length, method", CLI_ERRORS)
def test_bad_arguments_raise_the_cli_message(cli, tmp_path, rate, start, length, method):
    audio = damaged_recording(frames=FRAMES, rate=rate)
    message = cli_error(cli, tmp_path, audio, rate, start, length, method)
    with pytest.raises(ValueError) as raised:
        ferrotip.repair(audio, rate, start, length, method)
    assert str(raised.value) == message


@pytest.mark.parametrize("rate", [0, -44100, 2**31])
def test_rate_outside_its_range_is_a_value_error(rate):
    with pytest.raises(ValueError, match=r"^rate must be between 1 and 2147483647, got "):
        ferrotip.repair(damaged_recording(), rate, 100, 10, 0)


@pytest.mark.parametrize("argument, value", [("rate", 44100.0), ("rate", "44100"), ("start", 1.0),
                                             ("start", None), ("length", True), ("method", 2.0),
                                             ("method", None)])
def test_arguments_of_the_wrong_type_are_a_type_error(argument, value):
    arguments = {"audio": damaged_recording(), "rate": RATE, "start": 100, "length": 10, "method": 0}
    arguments[argument] = value
    with pytest.raises(TypeError, match=rf"^{argument} must be "):
        ferrotip.repair(**arguments)
