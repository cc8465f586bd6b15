"""The GIL is released while C++ runs: other Python threads go on meanwhile, and
repairs or filters running at once in several threads give the bits of one."""
import sys
import threading

import numpy as np
import pytest

import ferrotip

RATE = 8000


def recording(seed, frames=4 * RATE):
    rng = np.random.default_rng(seed)
    t = np.arange(frames) / RATE
    audio = np.stack([np.sin(2 * np.pi * 440 * t + c) + 0.1 * rng.standard_normal(frames) for c in range(2)])
    return audio.astype(np.float32)


def long_repair(audio):
    # A 4-second search each way: long enough for the main thread to be scheduled.
    return ferrotip.repair(audio, RATE, 2 * RATE, 1000, 3)


def long_filter():
    kalman = ferrotip.Kalman()
    kalman.set_models(np.r_[1.0, np.zeros(23), 0.5], [1.0, 0.0, 0.0])
    kalman.set_noise(0.01, 0.1, 10.0)
    kalman.start()
    return kalman


def inside_call(call, meanwhile=lambda: None):
    """Runs call() in a worker thread and tells whether the main thread got to run
    while the worker was still inside it; meanwhile() runs at that moment.

    With a switch interval of 100 s the worker keeps the GIL until it blocks or
    releases it itself, so the main thread runs before the call returns only if the
    call releases the GIL. The call should do nothing else that could release it
    (build its arguments beforehand).
    """
    returned = threading.Event()
    result = {}

    def worker():
        try:
            result["value"] = call()
        finally:
            returned.set()

    interval = sys.getswitchinterval()
    sys.setswitchinterval(100.0)
    try:
        thread = threading.Thread(target=worker)
        thread.start()
        inside = not returned.is_set()
        if inside:
            meanwhile()
        thread.join()
    finally:
        sys.setswitchinterval(interval)
    return inside, result.get("value")


def test_repair_releases_the_gil():
    audio = recording(1)
    inside, (repaired, _, _) = inside_call(lambda: long_repair(audio))
    assert inside
    assert np.array_equal(repaired, long_repair(audio)[0])


def test_kalman_process_releases_the_gil():
    samples = recording(2)[0]
    kalman = long_filter()
    inside, estimates = inside_call(lambda: kalman.process(samples))
    assert inside
    assert np.array_equal(estimates, long_filter().process(samples))


def test_a_kalman_filter_busy_in_one_thread_refuses_another():
    kalman = long_filter()
    samples = recording(3)[0]
    refused = []

    def try_to_change():
        with pytest.raises(RuntimeError, match=r"^this Kalman filter is busy in another thread"):
            kalman.set_noise(0.01, 0.1, 10.0)
        refused.append(True)

    inside, _ = inside_call(lambda: kalman.process(samples), try_to_change)
    assert inside and refused


def run_at_once(calls):
    results = [None] * len(calls)
    start = threading.Barrier(len(calls))

    def run(i):
        start.wait()
        results[i] = calls[i]()

    threads = [threading.Thread(target=run, args=(i,)) for i in range(len(calls))]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    return results


@pytest.mark.parametrize("method", [1, 2, 3])
def test_repairs_in_two_threads_at_once_give_the_bits_of_one(method):
    inputs = [recording(10), recording(11)]
    length = {1: 8, 2: 20, 3: 1000}[method]
    alone = [ferrotip.repair(audio, RATE, 2 * RATE, length, method)[0] for audio in inputs]
    together = run_at_once([lambda a=audio: ferrotip.repair(a, RATE, 2 * RATE, length, method)[0]
                            for audio in inputs])
    for one, other in zip(alone, together):
        assert np.array_equal(one.view(np.uint32), other.view(np.uint32))


def test_kalman_filters_in_two_threads_at_once_give_the_bits_of_one():
    inputs = [recording(20)[0], recording(21)[0]]
    alone = [long_filter().process(samples) for samples in inputs]
    together = run_at_once([lambda s=samples: long_filter().process(s) for samples in inputs])
    for one, other in zip(alone, together):
        assert np.array_equal(one.view(np.uint32), other.view(np.uint32))
