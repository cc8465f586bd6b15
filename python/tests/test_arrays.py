"""What ferrotip.repair and Kalman.process accept as sample arrays.

float32 in native byte order is used where it lies, in any layout: C order,
Fortran order and strided views give the bits of their contiguous copies. Every
other dtype is refused with TypeError (never rounded silently); a wrong number of
dimensions, no channel at all or a shape that reads as (frames, channels) is a
ValueError.
"""
import numpy as np
import pytest

import ferrotip

RATE = 8000


def recording(channels=2, frames=RATE):
    rng = np.random.default_rng(2024)
    t = np.arange(frames) / RATE
    audio = np.stack([np.sin(2 * np.pi * (300 + 50 * c) * t) + 0.05 * rng.standard_normal(frames)
                      for c in range(channels)])
    audio[:, 4000:4010] = 0.9
    return audio.astype(np.float32)


def repaired(audio):
    return ferrotip.repair(audio, RATE, 4000, 10, 2)[0]


def running_filter():
    kalman = ferrotip.Kalman()
    kalman.set_models([1.0, -1.2, 0.5], [1.0, 0.0, 0.0])
    kalman.set_noise(0.01, 0.1, 10.0)
    kalman.start()
    return kalman


def test_fortran_order_and_strided_views_give_the_bits_of_a_contiguous_copy():
    audio = recording()
    expected = repaired(audio)
    fortran = np.asfortranarray(audio)
    assert not fortran.flags.c_contiguous
    assert np.array_equal(repaired(fortran).view(np.uint32), expected.view(np.uint32))

    wide = np.zeros((4, 2 * RATE), np.float32)
    wide[::2, ::2] = audio
    view = wide[::2, ::2]
    assert not view.flags.c_contiguous
    assert np.array_equal(repaired(view).view(np.uint32), expected.view(np.uint32))
    assert repaired(view).flags.c_contiguous


def test_one_channel_of_a_stereo_array_is_repaired_in_place_of_a_mono_one():
    audio = recording()
    mono = ferrotip.repair(audio[1], RATE, 4000, 10, 2)[0]
    assert mono.shape == (RATE,)
    assert np.array_equal(mono, ferrotip.repair(audio[1:], RATE, 4000, 10, 2)[0][0])


def unaligned_copy(audio):
    raw = np.zeros(audio.nbytes + 1, np.uint8)
    unaligned = raw[1:].view(np.float32).reshape(audio.shape)
    unaligned[...] = audio
    assert not unaligned.flags.aligned
    return unaligned


def test_unaligned_float32_samples_are_read_safely():
    audio = recording(channels=1)[0]
    assert np.array_equal(repaired(unaligned_copy(audio)), repaired(audio))


def test_a_value_that_is_not_finite_is_found_at_an_unaligned_address():
    audio = recording()
    audio[1, 1234] = np.nan
    with pytest.raises(ValueError, match="not finite.*channel 1, frame 1234"):
        repaired(unaligned_copy(audio))


@pytest.mark.parametrize("dtype", [np.float64, np.float16, np.complex64, ">f4"])
def test_other_dtypes_are_refused_with_the_conversion_to_use(dtype):
    audio = recording().astype(dtype)
    with pytest.raises(TypeError, match=r"^audio must be a float32 numpy array, got a .* array; convert it "
                                        r"with numpy\.asarray\(audio, dtype=numpy\.float32\)$"):
        repaired(audio)
    with pytest.raises(TypeError, match=r"^samples must be a float32 numpy array"):
        running_filter().process(audio[0])


@pytest.mark.parametrize("dtype, scaling", [
    (np.int16, "audio / 32768"),
    (np.int32, "audio / 2147483648"),
    (np.int8, "audio / 128"),
    (np.uint8, "audio / 128 - 1"),
])
def test_integer_dtypes_are_refused_with_the_scaling_to_full_scale(dtype, scaling):
    audio = np.zeros((2, 100), dtype)
    with pytest.raises(TypeError) as refused:
        repaired(audio)
    assert str(refused.value).endswith(
        f"got a {np.dtype(dtype).name} array; scale it to full scale 1.0 with "
        f"numpy.asarray({scaling}, dtype=numpy.float32)")


@pytest.mark.parametrize("value", [[0.0] * 100, (0.0,) * 100, 0.5, None, "audio"])
def test_objects_that_are_no_array_are_refused(value):
    with pytest.raises(TypeError, match=r"^audio must be a float32 numpy array, got "):
        ferrotip.repair(value, RATE, 10, 1, 0)


@pytest.mark.parametrize("shape", [(), (1, 1, RATE), (2, 2, 2, 2)])
def test_arrays_of_other_dimensions_are_refused(shape):
    audio = np.zeros(shape, np.float32)
    with pytest.raises(ValueError, match=r"^audio must be shaped \(channels, frames\) or \(frames,\), got shape "):
        ferrotip.repair(audio, RATE, 0, 1, 0)


def test_an_array_without_channels_is_refused():
    with pytest.raises(ValueError, match=r"^audio must hold at least one channel, got shape \(0, 8000\)$"):
        ferrotip.repair(np.zeros((0, RATE), np.float32), RATE, 10, 1, 0)


# Every function that takes a whole recording, with the channel count given by the shape.
WHOLE_RECORDING_CALLS = {
    "repair": lambda audio: ferrotip.repair(audio, RATE, 0, 1, 0),
    "repair_regions": lambda audio: ferrotip.repair_regions(audio, RATE, [(0.0, 2 / RATE)]),
    "scan": lambda audio: ferrotip.scan(audio, RATE),
    "declick": lambda audio: ferrotip.declick(audio, RATE, floor=1e-6, block=64),
    "declip": lambda audio: ferrotip.declip(audio, RATE),
    "mean_squares": ferrotip.mean_squares,
}
TRANSPOSE_HINT = r"audio shaped \(frames, channels\), as audio file readers return it, goes in as audio\.T$"


@pytest.mark.parametrize("call", WHOLE_RECORDING_CALLS.values(), ids=WHOLE_RECORDING_CALLS.keys())
def test_audio_shaped_frames_by_channels_is_refused_before_anything_is_allocated(call):
    frames_by_channels = np.zeros((20 * RATE, 2), np.float32)  # 20 s of stereo, as an audio reader returns it
    with pytest.raises(ValueError, match=r"^audio must be shaped \(channels, frames\), got shape \(160000, 2\): "
                                         r"160000 channels of 2 frames\? .*" + TRANSPOSE_HINT):
        call(frames_by_channels)


def test_more_than_4096_channels_are_refused_whatever_the_frames():
    audio = np.zeros((4097, 4097), np.float32)  # zero pages: nothing is written, nothing is read
    with pytest.raises(ValueError, match=r"got shape \(4097, 4097\).*4096 is the most"):
        ferrotip.scan(audio, RATE)


@pytest.mark.parametrize("call", WHOLE_RECORDING_CALLS.values(), ids=WHOLE_RECORDING_CALLS.keys())
def test_short_multichannel_audio_with_up_to_64_channels_is_taken_as_it_is_shaped(call):
    call(np.zeros((64, 4), np.float32))


def test_more_than_64_channels_need_as_many_frames():
    with pytest.raises(ValueError, match=r"More than 64 channels need at least as many frames"):
        ferrotip.scan(np.zeros((65, 64), np.float32), RATE)
    assert ferrotip.scan(np.zeros((65, 65), np.float32), RATE) == []


def test_a_declicker_block_may_be_shorter_than_its_channels_but_names_a_transposed_one():
    declicker = ferrotip.Declicker(100, RATE, floor=1e-6, block=64)
    assert declicker.process(np.zeros((100, 3), np.float32)).shape == (100, 3)
    with pytest.raises(ValueError, match=r"^audio must hold 100 channels, got shape \(3, 100\); for \(frames, "
                                         r"channels\) pass audio\.T$"):
        declicker.process(np.zeros((3, 100), np.float32))


def test_an_empty_array_has_no_region_inside():
    with pytest.raises(ValueError, match=r"^region 0\.\.1 lies outside the audio, which has 0 frames$"):
        ferrotip.repair(np.zeros(0, np.float32), RATE, 0, 1, 0)


def test_kalman_reads_strided_samples_like_contiguous_ones():
    samples = recording(channels=1)[0]
    wide = np.zeros(2 * samples.size, np.float32)
    wide[::2] = samples
    assert np.array_equal(running_filter().process(wide[::2]), running_filter().process(samples))


def test_kalman_takes_one_dimension_only():
    with pytest.raises(ValueError, match=r"^samples must be one-dimensional \(frames,\), got shape \(2, 8000\)$"):
        running_filter().process(recording())


@pytest.mark.parametrize("bad", [np.nan, np.inf, -np.inf])
@pytest.mark.parametrize("call", [
    lambda audio: ferrotip.repair(audio, RATE, 4000, 10, 2),
    lambda audio: ferrotip.declick(audio, RATE),
    lambda audio: ferrotip.declip(audio, RATE),
])
def test_a_sample_that_is_not_finite_is_a_value_error_naming_where(call, bad):
    audio = recording()
    audio[1, 1234] = bad
    with pytest.raises(ValueError, match="not finite.*channel 1, frame 1234"):
        call(audio)
