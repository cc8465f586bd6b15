"""ferrotip.scan() and ferrotip.repair_regions() against `ferrotip scan` and
`ferrotip repair --regions`."""
import json
import subprocess

import numpy as np
import pytest

import ferrotip
import floatwav
from test_repair import same_bits
from test_threads import inside_call, run_at_once

RATE = 16000
FRAMES = 3 * RATE


def with_dropouts(seed=19):
    """Two tones and noise, with zero runs and held values in one or both channels."""
    rng = np.random.default_rng(seed)
    t = np.arange(FRAMES) / RATE
    audio = np.stack([0.3 * np.sin(2 * np.pi * (330 + 90 * c) * t) + 0.05 * rng.standard_normal(FRAMES)
                      for c in range(2)]).astype(np.float32)
    audio[:, 5000:5160] = 0.0               # 10 ms in both channels
    audio[1, 12000:12800] = 0.0             # 50 ms in one channel
    audio[0, 20000:20040] = audio[0, 19999]  # held from 19999 on
    audio[:, 30000:33200] = 0.0             # 200 ms
    return audio


def run_cli(cli, *args):
    return subprocess.run([cli, *map(str, args)], capture_output=True, text=True, timeout=120)


def cli_scan(cli, tmp_path, audio):
    source, report = tmp_path / "in.wav", tmp_path / "dropouts.json"
    floatwav.write(source, audio, RATE)
    done = run_cli(cli, "scan", source, f"--report={report}")
    assert done.returncode == 0, done.stderr
    return [(s["channel"], s["first"], s["last"], s["start"], s["end"])
            for s in json.loads(report.read_text())["spans"]]


def cli_repair(cli, tmp_path, audio, regions, method):
    source, target, listing = tmp_path / "in.wav", tmp_path / "out.wav", tmp_path / "regions.json"
    floatwav.write(source, audio, RATE)
    listing.write_text(json.dumps(regions))
    done = run_cli(cli, "repair", source, target, f"--regions={listing}", f"--method={method}")
    return done, (floatwav.read(target)[0] if done.returncode == 0 else None), listing


def test_scan_lists_what_the_cli_reports(cli, tmp_path):
    audio = with_dropouts()
    spans = ferrotip.scan(audio, RATE)
    assert spans == cli_scan(cli, tmp_path, audio)
    assert [s[:3] for s in spans] == [(0, 5000, 5159), (2, 12000, 12799), (1, 19999, 20039), (0, 30000, 33199)]


def test_scan_of_clean_audio_and_of_one_channel():
    clean = with_dropouts()
    clean[:] = np.sin(np.arange(FRAMES) / 7.0)
    assert ferrotip.scan(clean, RATE) == []
    assert [s[:3] for s in ferrotip.scan(with_dropouts()[1], RATE)] == [(1, 5000, 5159), (1, 12000, 12799),
                                                                          (1, 30000, 33199)]


@pytest.mark.parametrize("method", ["auto", "inpaint", "3"])
def test_repair_regions_of_a_scan_is_bit_identical_to_the_cli(cli, tmp_path, method):
    audio = with_dropouts()
    spans = ferrotip.scan(audio, RATE)
    if method == "3":
        spans = spans[:3]
    listing = {"sample_rate": RATE, "spans": [dict(zip(("channel", "first", "last", "start", "end"), s))
                                              for s in spans]}
    done, expected, _ = cli_repair(cli, tmp_path, audio, listing, method)
    assert done.returncode == 0, done.stderr
    repaired = ferrotip.repair_regions(audio, RATE, spans, method)
    assert same_bits(repaired, expected)
    assert not same_bits(repaired, audio)


def test_regions_in_seconds_overlapping_and_unsorted_as_the_cli_takes_them(cli, tmp_path):
    audio = with_dropouts()
    seconds = [(30000 / RATE, 33200 / RATE), (0.3125, 0.3225), (0.3200, 0.3300), (12000 / RATE, 0.8)]
    done, expected, _ = cli_repair(cli, tmp_path, audio, [{"start": a, "end": b} for a, b in seconds], "auto")
    assert done.returncode == 0, done.stderr
    assert same_bits(ferrotip.repair_regions(audio, RATE, seconds), expected)


@pytest.mark.parametrize("regions, method", [([(0.5, 0.8)], "inpaint"), ([(2.9, 3.1)], "auto"),
                                             ([(0.2, 0.1)], "auto"), ([(0.1, 0.11)], "clicks"),
                                             ([(3, 0, 10, 0.0, 0.0)], "auto")])
def test_bad_regions_raise_the_cli_message(cli, tmp_path, regions, method):
    audio = with_dropouts()
    listing = [dict(zip(("start", "end") if len(r) == 2 else ("channel", "first", "last", "start", "end"), r))
               for r in regions]
    done, _, path = cli_repair(cli, tmp_path, audio, listing, method)
    assert done.returncode == 1 and done.stderr.startswith("ferrotip: ")
    message = done.stderr[len("ferrotip: "):].rstrip("\n")
    message = message.replace(f" of '{path}'", "").replace(f"'{path}' entry", "region")
    message = message.replace(f"'{tmp_path / 'in.wav'}'", "the audio")
    with pytest.raises(ValueError) as raised:
        ferrotip.repair_regions(audio, RATE, regions, method)
    assert str(raised.value) == message


FORMS = r"\(start, end\) in seconds or \(channel, first, last, start, end\)"


@pytest.mark.parametrize("region, message", [
    ((1, 2, 3), rf"^region 2 must be {FORMS}, got 3 fields$"),
    ("ab", rf"^region 2 must be {FORMS}, got str$"),
    (5, rf"^region 2 must be {FORMS}, got int$"),
    (("0.1", "0.2"), r"^region 2: start must be a number of seconds, got str$"),
    ((0.1, None), r"^region 2: end must be a number of seconds, got NoneType$"),
    ((True, 0.2), r"^region 2: start must be a number of seconds, got bool$"),
])
def test_regions_of_the_wrong_form_are_a_type_error_naming_the_region(region, message):
    with pytest.raises(TypeError, match=message):
        ferrotip.repair_regions(with_dropouts(), RATE, [(0.3125, 0.3225), region])


@pytest.mark.parametrize("region, field, shown", [((2e14, 2e14 + 1e-4), "start", "200000000000000.0"),
                                                  ((0.1, 1e9 + 1), "end", "1000000001.0")])
def test_a_time_beyond_what_a_region_list_reads_is_too_large(region, field, shown):
    with pytest.raises(ValueError) as refused:
        ferrotip.repair_regions(with_dropouts(), RATE, [region])
    assert str(refused.value) == f"region 1: {field} {shown} s is too large; times go up to 1e9 s"


def test_numpy_numbers_are_taken_as_times():
    audio = with_dropouts()
    expected = ferrotip.repair_regions(audio, RATE, [(0.3125, 0.3225), (1, 1.01)])
    given = [(np.float32(0.3125), np.float64(0.3225)), np.array([np.int64(1), 1.01])]
    assert same_bits(ferrotip.repair_regions(audio, RATE, given), expected)


def test_scan_and_repair_regions_release_the_gil_and_agree_across_threads():
    audio = with_dropouts()
    spans = ferrotip.scan(audio, RATE)
    inside, repaired = inside_call(lambda: ferrotip.repair_regions(audio, RATE, spans))
    assert inside
    alone = [ferrotip.repair_regions(a, RATE, spans) for a in (audio, audio[::-1].copy())]
    together = run_at_once([lambda a=a: ferrotip.repair_regions(a, RATE, spans) for a in (audio, audio[::-1].copy())])
    assert same_bits(repaired, alone[0])
    assert all(same_bits(a, b) for a, b in zip(alone, together))
    assert run_at_once([lambda: ferrotip.scan(audio, RATE)] * 2) == [spans, spans]


@pytest.mark.parametrize("method", ["3", "auto"])
def test_regions_at_the_array_ends_as_the_cli_repairs_them(cli, tmp_path, method):
    # The working window and a waveform method's crossfades reach past both ends.
    audio = with_dropouts()
    spans = [(0, 2, 801, 2 / RATE, 802 / RATE), (0, FRAMES - 801, FRAMES - 2, (FRAMES - 801) / RATE, (FRAMES - 1) / RATE)]
    listing = [dict(zip(("channel", "first", "last", "start", "end"), s)) for s in spans]
    done, expected, _ = cli_repair(cli, tmp_path, audio, listing, method)
    assert done.returncode == 0, done.stderr
    assert same_bits(ferrotip.repair_regions(audio, RATE, spans, method), expected)
