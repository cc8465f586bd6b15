"""ferrotip.declick() and ferrotip.Declicker against `ferrotip declick` itself."""
import json

import numpy as np
import pytest

import ferrotip
import floatwav
from test_repair import damaged_recording, run_cli, same_bits
from test_threads import inside_call, run_at_once

RATE = 8000


def declick_with_cli(cli, tmp_path, audio, *options):
    """The CLI's output and its JSON report for audio written as a float WAV."""
    source, target, report = tmp_path / "in.wav", tmp_path / "out.wav", tmp_path / "report.json"
    floatwav.write(source, audio, RATE)
    done = run_cli(cli, "declick", source, target, "--quiet", f"--report={report}", *options)
    assert done.returncode == 0, done.stderr
    repaired, rate = floatwav.read(target)
    assert rate == RATE
    return repaired, json.loads(report.read_text())


def assert_report_matches(spans, report):
    assert report["sample_rate"] == RATE
    listed = [(s.channel + 1, s.first, s.last, s.start, s.end) for s in spans]
    assert listed == [(r["channel"], r["first"], r["last"], r["start"], r["end"]) for r in report["spans"]]


def cli_options(settings):
    """The command line's options for keyword settings."""
    options = []
    for key, value in settings.items():
        if key == "refill":
            options += [] if value else ["--no-refill"]
            continue
        option = "--" + key.replace("_", "-")
        options.append(option if value is True else f"{option}={value}")
    return options


CASES = [
    ("auto", {}),
    ("clicks", {}),
    ("crackle", {}),
    ("gentle", {"engine": "prediction", "block": 256}),
    ("auto", {"sensitivity": 8.5, "floor": 1e-6}),
    ("auto", {"relative_floor": 0.02, "shared_engine": True}),
    ("auto", {"refill": False}),
    ("clicks", {"listen": "difference", "jobs": 2}),
    ("crackle", {"silent_edges": True}),
]


@pytest.mark.parametrize("channels", [1, 2])
@pytest.mark.parametrize("preset, settings", CASES)
def test_declick_gives_the_bits_and_report_of_the_cli(cli, tmp_path, channels, preset, settings):
    audio = damaged_recording(channels=channels)
    expected, report = declick_with_cli(cli, tmp_path, audio, f"--preset={preset}", *cli_options(settings))
    repaired, spans = ferrotip.declick(audio if channels > 1 else audio[0], RATE, preset, **settings)
    assert same_bits(repaired.reshape(expected.shape), expected)
    assert_report_matches(spans, report)
    if not settings:
        assert spans, "the damaged recording should have clicks to repair"


def test_bypass_hands_back_the_input_bit_for_bit():
    audio = damaged_recording()
    audio[0, 5] = -0.0
    repaired, spans = ferrotip.declick(audio, RATE, listen="bypass")
    assert same_bits(repaired, audio) and spans == []
    assert repaired is not audio


def test_any_layout_and_thread_count_give_the_same_bits():
    audio = damaged_recording()
    alone = ferrotip.declick(audio, RATE, jobs=1, report=False)
    assert same_bits(ferrotip.declick(np.asfortranarray(audio), RATE, jobs=2, report=False), alone)
    wide = np.zeros((2, 2 * audio.shape[1]), np.float32)
    wide[:, ::2] = audio
    assert same_bits(ferrotip.declick(wide[:, ::2], RATE, report=False), alone)


def test_mean_squares_are_the_level_declick_measures():
    audio = damaged_recording()
    levels = ferrotip.mean_squares(audio)
    assert levels == pytest.approx(np.mean(audio.astype(np.float64) ** 2, axis=1), rel=1e-12)


def stream(declicker, audio, frames_per_call):
    """Feeds audio and latency frames of silence (or more) in calls of frames_per_call frames
    and returns the output lined up with the input."""
    latency = declicker.latency
    total = -(-(audio.shape[-1] + latency) // frames_per_call) * frames_per_call
    padded = np.zeros(audio.shape[:-1] + (total,), np.float32)
    padded[..., :audio.shape[-1]] = audio
    pieces = [declicker.process(padded[..., at:at + frames_per_call]) for at in range(0, total, frames_per_call)]
    return np.concatenate(pieces, axis=-1)[..., latency:latency + audio.shape[-1]]


@pytest.mark.parametrize("frames_per_call", [1, 37, 512, 1000, 3 * 512, 20000])
@pytest.mark.parametrize("preset", ["auto", "clicks"])
def test_streaming_in_any_blocks_gives_the_bits_of_the_whole_array(preset, frames_per_call):
    audio = damaged_recording()
    whole = ferrotip.declick(audio, RATE, preset, report=False, refill=False, silent_edges=True)
    declicker = ferrotip.Declicker(2, RATE, preset, level=ferrotip.mean_squares(audio))
    assert declicker.channels == 2 and declicker.rate == RATE and declicker.latency > declicker.block_size
    assert same_bits(stream(declicker, audio, frames_per_call), whole)


def test_a_mono_declicker_takes_one_dimensional_blocks():
    audio = damaged_recording(channels=1)
    whole = ferrotip.declick(audio[0], RATE, floor=1e-6, refill=False, report=False, silent_edges=True)
    declicker = ferrotip.Declicker(1, RATE, floor=1e-6)
    assert same_bits(stream(declicker, audio[0], 700), whole)


def test_declick_and_process_release_the_gil():
    audio = damaged_recording(frames=20 * RATE)
    inside, (repaired, _) = inside_call(lambda: ferrotip.declick(audio, RATE, jobs=1))
    assert inside
    assert same_bits(repaired, ferrotip.declick(audio, RATE, jobs=1)[0])
    declicker = ferrotip.Declicker(2, RATE, floor=1e-6, jobs=1)
    block = np.ascontiguousarray(audio)
    inside, _ = inside_call(lambda: declicker.process(block))
    assert inside


def test_declicks_in_two_threads_at_once_give_the_bits_of_one():
    inputs = [damaged_recording(seed=1), damaged_recording(seed=2)]
    alone = [ferrotip.declick(audio, RATE, jobs=1)[0] for audio in inputs]
    together = run_at_once([lambda a=audio: ferrotip.declick(a, RATE, jobs=1)[0] for audio in inputs])
    for one, other in zip(alone, together):
        assert same_bits(one, other)


def test_a_declicker_busy_in_one_thread_refuses_another():
    audio = damaged_recording(frames=40 * RATE)
    declicker = ferrotip.Declicker(2, RATE, floor=1e-6, jobs=1)
    block = np.ascontiguousarray(audio)
    refused = []

    def try_another():
        with pytest.raises(RuntimeError, match=r"^this Declicker is busy in another thread"):
            declicker.process(block[:, :declicker.block_size])
        refused.append(True)

    inside, _ = inside_call(lambda: declicker.process(block), try_another)
    assert inside and refused


BAD_SETTINGS = [
    {"block": 10}, {"block": 70000}, {"sensitivity": float("nan")}, {"sensitivity": 0.0},
    {"floor": 2.0}, {"floor": 0.1, "relative_floor": 2.0}, {"relative_floor": float("inf")},
    {"engine": "fast"}, {"jobs": 0}, {"listen": "both"}, {"preset": "loud"},
]


def cli_message(cli, tmp_path, settings):
    """The first line the CLI prints for these options, named as the keywords are."""
    source = tmp_path / "in.wav"
    floatwav.write(source, damaged_recording(channels=1, frames=RATE), RATE)
    done = run_cli(cli, "declick", source, tmp_path / "out.wav", *cli_options(settings))
    assert done.returncode != 0 and not (tmp_path / "out.wav").exists()
    message = done.stderr.splitlines()[0]
    for key in settings:
        message = message.replace("--" + key.replace("_", "-"), key)
    return message


@pytest.mark.parametrize("settings", BAD_SETTINGS)
def test_bad_settings_raise_the_cli_message(cli, tmp_path, settings):
    message = cli_message(cli, tmp_path, settings)
    audio = damaged_recording(channels=1, frames=RATE)
    with pytest.raises(ValueError) as raised:
        ferrotip.declick(audio, RATE, **settings)
    assert str(raised.value) == message
    with pytest.raises(ValueError) as raised:
        ferrotip.Declicker(1, RATE, level=0.1, **settings)
    assert str(raised.value) == message


def test_wrong_types_and_shapes_are_refused():
    audio = damaged_recording()
    with pytest.raises(TypeError, match="float32"):
        ferrotip.declick(audio.astype(np.float64), RATE)
    with pytest.raises(TypeError, match="unexpected keyword argument 'blocks'"):
        ferrotip.declick(audio, RATE, blocks=512)
    with pytest.raises(TypeError, match="block must be an int"):
        ferrotip.declick(audio, RATE, block=512.0)
    with pytest.raises(TypeError, match="sensitivity must be a number"):
        ferrotip.declick(audio, RATE, sensitivity="8")
    with pytest.raises(ValueError, match="rate must be between 1"):
        ferrotip.declick(audio, 0)
    with pytest.raises(ValueError, match="shaped"):
        ferrotip.declick(audio[None], RATE)


def test_a_declicker_needs_a_level_or_an_absolute_floor():
    with pytest.raises(ValueError, match="give level"):
        ferrotip.Declicker(2, RATE)
    with pytest.raises(ValueError, match="one per channel"):
        ferrotip.Declicker(2, RATE, level=[0.1, 0.2, 0.3])
    with pytest.raises(ValueError, match="finite mean squares"):
        ferrotip.Declicker(2, RATE, level=-1.0)
    ferrotip.Declicker(2, RATE, floor=1e-6)


def test_a_declicker_runs_the_engines_alone():
    with pytest.raises(ValueError, match="refill needs the whole recording"):
        ferrotip.Declicker(2, RATE, floor=1e-6, refill=True)
    ferrotip.Declicker(2, RATE, floor=1e-6, refill=False)


def test_a_level_in_any_layout_is_read_as_given():
    audio = damaged_recording()
    levels = ferrotip.mean_squares(audio)
    strided = np.array([levels[0], -1.0, levels[1]])[::2]
    outputs = [stream(ferrotip.Declicker(2, RATE, level=level), audio, 8192) for level in (levels, strided)]
    assert same_bits(*outputs)


def test_process_refuses_blocks_of_the_wrong_shape():
    declicker = ferrotip.Declicker(2, RATE, floor=1e-6)
    size = declicker.block_size
    with pytest.raises(ValueError, match="2 channels"):
        declicker.process(np.zeros(size, np.float32))
    with pytest.raises(ValueError, match="2 channels"):
        declicker.process(np.zeros((3, size), np.float32))
    assert declicker.process(np.zeros((2, 0), np.float32)).shape == (2, 0)


def test_a_recording_cut_mid_sound_keeps_its_first_and_last_samples():
    t = np.arange(2 * RATE) / RATE
    audio = (0.5 * np.cos(2 * np.pi * 220 * t) + 0.3 * np.sin(2 * np.pi * 97 * t + 1.0)).astype(np.float32)
    ends = np.r_[0:200, audio.size - 200:audio.size]
    for preset in ["auto", "clicks", "crackle"]:
        continued = ferrotip.declick(audio, RATE, preset, report=False)
        assert np.abs(continued - audio)[ends].max() < 1e-4, preset
    silent = ferrotip.declick(audio, RATE, "crackle", report=False, silent_edges=True)
    assert np.abs(silent - audio)[ends].max() > 0.01
    with pytest.raises(ValueError, match="no edges"):
        ferrotip.Declicker(1, RATE, floor=1e-6, silent_edges=False)


@pytest.mark.parametrize("keyword", ["shared_engine", "refill", "silent_edges"])
@pytest.mark.parametrize("value", ["no", 1, 0.0])
def test_flags_other_than_true_or_false_are_a_type_error_naming_the_keyword(keyword, value):
    with pytest.raises(TypeError, match=rf"^{keyword} must be True or False, got {type(value).__name__}$"):
        ferrotip.declick(damaged_recording(), RATE, **{keyword: value})
    with pytest.raises(TypeError, match=rf"^{keyword} must be True or False, got {type(value).__name__}$"):
        ferrotip.Declicker(2, RATE, floor=1e-6, **{keyword: value})


def test_numpy_bools_are_flags():
    audio = damaged_recording()
    expected = ferrotip.declick(audio, RATE, report=False, shared_engine=True, refill=False)
    assert same_bits(ferrotip.declick(audio, RATE, report=False, shared_engine=np.True_, refill=np.False_), expected)


def test_samples_beyond_what_the_engines_can_square_are_refused_naming_the_sample():
    audio = damaged_recording(2, 4000).astype(np.float32)
    audio[1, 1234] = 1e23
    with pytest.raises(ValueError, match="channel 1, frame 1234"):
        ferrotip.declick(audio, RATE)
    declicker = ferrotip.Declicker(2, RATE, level=[0.01, 0.01])
    with pytest.raises(ValueError, match="channel 1, frame 1234"):
        declicker.process(audio)
    bypassed = ferrotip.declick(audio, RATE, listen="bypass", report=False)
    assert np.array_equal(bypassed, audio)
    loud = (audio[:, :1000] / np.abs(audio[:, :1000]).max() * 1e15).astype(np.float32)
    assert np.isfinite(ferrotip.declick(loud, RATE, report=False)).all()
