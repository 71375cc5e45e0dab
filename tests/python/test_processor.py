"""Processor: the same samples as the C interface, whatever the array's
shape, dtype, layout or length, delayed by `latency` however the stream is
cut; bad arguments answered in Python's terms."""

import re
import threading
import time

import numpy as np
import pytest

import larkspin
from conftest import noise

RATE = 48000
HOP = 64  # the library's hop at 48 kHz, a quarter of its FFT


def read_only(x):
    x.setflags(write=False)
    return x


@pytest.mark.parametrize(
    "channels, pieces, max_block, dtype, mono_1d",
    [
        (1, [0], 64, np.float32, True),
        (1, [4097], 1024, np.float64, True),
        (2, [1, 300, 0, 2048, 77], 512, np.float32, False),
    ],
)
def test_output_is_the_c_interface_s_one_hop_later(c_interface, payload, channels, pieces, max_block, dtype, mono_1d):
    """However the stream is cut: the library's output for whole hops,
    behind the one hop the queue adds."""
    frames = sum(pieces)
    x32 = noise(channels, frames)
    hops = -(-frames // HOP)
    whole = np.zeros((channels, (hops + 1) * HOP), np.float32)
    whole[:, HOP : HOP + frames] = x32
    expected = c_interface.process(whole[:, HOP:], RATE, HOP, payload, 0.7, [HOP] * hops)
    expected = np.concatenate([whole[:, :HOP], expected], axis=1)[:, :frames]

    x = x32.astype(dtype)
    with larkspin.Processor(RATE, channels, max_block, preset=payload, intensity=0.7) as processor:
        outputs, first = [], 0
        for n in pieces:
            part = x[0, first : first + n] if mono_1d else x[:, first : first + n]
            y = processor.process(part)
            assert y.dtype == dtype and y.shape == part.shape
            outputs.append(y.reshape(channels, n))
            first += n
    got = np.concatenate(outputs, axis=1).astype(np.float32)
    np.testing.assert_array_equal(got.view(np.uint32), expected.view(np.uint32))


@pytest.mark.parametrize(
    "arrange",
    [
        lambda x: (x, x),  # in place
        lambda x: (x, np.zeros(x.shape, np.float64)),
        lambda x: (np.asfortranarray(x), None),
        lambda x: (np.repeat(x, 2, axis=1)[:, ::2], np.zeros((2, 2 * x.shape[1]), np.float32)[:, 1::2]),
        lambda x: (x.astype(">f4"), None),
        lambda x: (read_only(x), None),
        lambda x: (x.tolist(), None),
    ],
    ids=["in-place", "out-float64", "fortran", "strided", "big-endian", "read-only", "list"],
)
def test_layouts_give_the_same_samples(payload, arrange):
    x = noise(2, 1500)
    with larkspin.Processor(RATE, 2, 256, preset=payload) as processor:
        reference = processor.process(x)
    source, out = arrange(x.copy())
    with larkspin.Processor(RATE, 2, 256, preset=payload) as processor:
        y = processor.process(source, out=out)
    if out is not None:
        assert y is out
    np.testing.assert_array_equal(np.asarray(y, np.float32), reference)


@pytest.mark.parametrize(
    "call, error, message",
    [
        (lambda p: p.process(np.zeros((2, 10), np.int16)), TypeError, "float32 or float64"),
        (lambda p: p.process(np.zeros((3, 10), np.float32)), ValueError, "(2, frames)"),
        (lambda p: p.process(np.zeros(10, np.float32)), ValueError, "(2, frames)"),
        (lambda p: p.process(np.zeros((2, 10), np.float32), out=[0.0]), TypeError, "out must be a numpy array"),
        (lambda p: p.process(np.zeros((2, 10)), out=np.zeros((2, 10), np.int32)), TypeError, "float32"),
        (lambda p: p.process(np.zeros((2, 10)), out=np.zeros((2, 11))), ValueError, "shape of x"),
        (lambda p: p.process(np.zeros((2, 10)), out=read_only(np.zeros((2, 10), np.float32))), ValueError, "read-only"),
        (lambda p: p.apply_preset(b"\x00" * 195), ValueError, "196 bytes"),
        (lambda p: p.apply_preset("preset"), TypeError, "196 bytes"),
        (lambda p: setattr(p, "intensity", float("nan")), ValueError, "intensity"),
        (lambda p: setattr(p, "intensity", 2), ValueError, "from 0 to 1, not 2"),
        (lambda p: larkspin.Processor(RATE, 2, intensity=-0.5), ValueError, "from 0 to 1, not -0.5"),
        (lambda p: larkspin.Processor(RATE, 3), ValueError, "channels must be 1"),
        (lambda p: larkspin.Processor(8000, 1), ValueError, "32000 to 192000"),
        (lambda p: (p.close(), p.process(np.zeros((2, 4)))), ValueError, "closed"),  # closing twice is fine
    ],
)
def test_bad_arguments_raise(payload, call, error, message):
    with larkspin.Processor(RATE, 2, preset=payload) as processor:
        with pytest.raises(error, match=re.escape(message)):
            call(processor)


@pytest.mark.parametrize("cut", [None, 1000, 777, 100])
def test_bypass_gives_the_input_delayed_by_the_latency_however_it_is_cut(payload, cut):
    """Once the mix has settled, a bypassed instance gives the input delayed
    by exactly `latency`, whatever the lengths of the arrays."""
    x = noise(2, RATE, level=0.05)
    with larkspin.Processor(RATE, 2, 512, preset=payload) as processor:
        processor.bypassed = True
        latency = processor.latency
        pieces = [x] if cut is None else [x[:, i : i + cut] for i in range(0, RATE, cut)]
        y = np.concatenate([processor.process(piece) for piece in pieces], axis=1)
    np.testing.assert_allclose(y[:, latency:][:, RATE // 2 :], x[:, :-latency][:, RATE // 2 :], atol=1e-5)


def test_interpreter_lock_is_released(payload):
    """Another Python thread keeps running while a long process() runs."""
    x = noise(2, RATE * 4)
    stamps = []
    done = threading.Event()

    def tick():
        while not done.is_set():
            stamps.append(time.perf_counter())

    with larkspin.Processor(RATE, 2, 1024, preset=payload) as processor:
        worker = threading.Thread(target=tick)
        worker.start()
        try:
            start = time.perf_counter()
            processor.process(x)
            end = time.perf_counter()
        finally:
            done.set()
            worker.join()
    inside = np.array([s for s in stamps if start <= s <= end])
    # Holding the lock, the ticker would stop for the whole call.
    longest_gap = np.diff(np.concatenate(([start], inside, [end]))).max()
    assert longest_gap < 0.5 * (end - start)


def test_process_keeps_no_references(payload):
    import sys

    x = noise(2, 480)
    out = np.empty_like(x)
    references = sys.getrefcount(x), sys.getrefcount(out)
    with larkspin.Processor(RATE, 2, 256, preset=payload) as processor:
        for _ in range(100):
            processor.process(x)
            processor.process(x, out=out)
    assert (sys.getrefcount(x), sys.getrefcount(out)) == references
