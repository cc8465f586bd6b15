"""ferrotip.declip() against `ferrotip declip` on float WAV files."""
import json
import subprocess

import numpy as np
import pytest

import ferrotip
import floatwav
from test_repair import same_bits
from test_threads import inside_call, run_at_once

RATE = 16000


def clipped(seed=20, frames=2 * RATE, level=0.6):
    """Tones and a little noise, hard-clipped at `level`."""
    rng = np.random.default_rng(seed)
    t = np.arange(frames) / RATE
    audio = np.stack([0.8 * np.sin(2 * np.pi * (180 + 70 * c) * t) * (0.6 + 0.4 * np.sin(2 * np.pi * 1.5 * t))
                      + 0.02 * rng.standard_normal(frames) for c in range(2)])
    return np.clip(audio, -level, level).astype(np.float32)


def run_cli(cli, *args):
    return subprocess.run([cli, *map(str, args)], capture_output=True, text=True, timeout=120)


def cli_declip(cli, tmp_path, audio, *options):
    source, target, report = tmp_path / "in.wav", tmp_path / "out.wav", tmp_path / "runs.json"
    floatwav.write(source, audio, RATE)
    done = run_cli(cli, "declip", source, target, f"--report={report}", "--quiet", *options)
    assert done.returncode == 0, done.stderr
    spans = [(s["channel"], s["first"], s["last"], s["start"], s["end"], s["label"])
             for s in json.loads(report.read_text())["spans"]]
    return floatwav.read(target)[0], spans


@pytest.mark.parametrize("level, option", [("auto", None), ("0.6", "--level=0.6"), (0.55, "--level=0.55"),
                                           ("-5dBFS", "--level=-5dBFS")])
def test_declip_is_bit_identical_to_the_cli_with_the_same_report(cli, tmp_path, level, option):
    audio = clipped()
    expected, expected_spans = cli_declip(cli, tmp_path, audio, *([option] if option else []))
    restored, spans = ferrotip.declip(audio, RATE, level)
    assert same_bits(restored, expected)
    assert spans == expected_spans and spans
    assert np.abs(restored).max() > 0.6


def test_mono_as_the_cli_restores_it(cli, tmp_path):
    audio = clipped()[0]
    expected, expected_spans = cli_declip(cli, tmp_path, audio[np.newaxis])
    restored, spans = ferrotip.declip(audio, RATE)
    assert restored.shape == audio.shape and same_bits(restored, expected[0])
    assert spans == expected_spans


def test_numpy_floats_are_levels_of_their_exact_value():
    audio = clipped(level=np.float32(0.6))
    for level in (np.float32(0.6), np.float64(0.6)):
        restored, spans = ferrotip.declip(audio, RATE, level)
        assert spans and same_bits(restored, ferrotip.declip(audio, RATE, float(level))[0])


@pytest.mark.parametrize("level", ["loud", "0.0001", "30dBFS", "-0.5 dBFS"])
def test_bad_levels_raise_the_cli_message(cli, tmp_path, level):
    source = tmp_path / "in.wav"
    floatwav.write(source, clipped(), RATE)
    done = run_cli(cli, "declip", source, tmp_path / "out.wav", f"--level={level}")
    assert done.returncode == 1
    message = done.stderr.removeprefix("ferrotip: ").rstrip("\n").replace("--level must", "level must")
    with pytest.raises(ValueError) as raised:
        ferrotip.declip(clipped(), RATE, level)
    assert str(raised.value) == message


def test_fast_is_bit_identical_to_the_cli_fast(cli, tmp_path):
    audio = clipped()
    expected, expected_spans = cli_declip(cli, tmp_path, audio, "--fast")
    restored, spans = ferrotip.declip(audio, RATE, fast=True)
    assert same_bits(restored, expected) and spans == expected_spans
    assert not same_bits(restored, ferrotip.declip(audio, RATE)[0])


def test_jobs_share_the_frames_and_give_the_same_bits():
    audio = clipped(32, 3 * RATE, level=0.3)
    alone = ferrotip.declip(audio, RATE)
    for jobs in (2, 3):
        restored, spans = ferrotip.declip(audio, RATE, jobs=jobs)
        assert same_bits(restored, alone[0]) and spans == alone[1]
    for jobs in (0, 257):
        with pytest.raises(ValueError, match="jobs"):
            ferrotip.declip(audio, RATE, jobs=jobs)


def test_declip_releases_the_gil_and_two_threads_give_the_bits_of_one():
    inputs = [clipped(30, 6 * RATE), clipped(31, 6 * RATE)]
    inside, (restored, _) = inside_call(lambda: ferrotip.declip(inputs[0], RATE))
    assert inside
    alone = [ferrotip.declip(a, RATE)[0] for a in inputs]
    together = [r[0] for r in run_at_once([lambda a=a: ferrotip.declip(a, RATE) for a in inputs])]
    assert same_bits(restored, alone[0])
    assert all(same_bits(a, b) for a, b in zip(alone, together))


def test_the_conversion_advised_for_integer_samples_leaves_an_unclipped_tone_unclipped():
    t = np.arange(2 * RATE) / RATE
    audio = np.round(16000 * np.sin(2 * np.pi * 440 * t)).astype(np.int16)  # half of int16's full scale
    with pytest.raises(TypeError) as refused:
        ferrotip.declip(audio, RATE)
    conversion = str(refused.value).split(" with ", 1)[1]
    assert conversion == "numpy.asarray(audio / 32768, dtype=numpy.float32)"
    converted = eval(conversion, {"numpy": np, "audio": audio})
    assert ferrotip.declip(converted, RATE, 0.9)[1] == []
    assert ferrotip.declip(audio.astype(np.float32), RATE, 0.9)[1]  # the bare cast: every peak beyond 0.9
