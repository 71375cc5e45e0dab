#!/usr/bin/python3
"""Cost of Processor.process against the C interface for the same audio,
measured in one run: ten seconds of 48 kHz stereo, in blocks of 1024.

    PYTHONPATH=build/release/python bench/python_process.py build/release/src/liblarkspin.so

Prints the best of several runs of each path, its real-time factor and the
ratio of the module to the C interface (the cost of the Python layer:
argument checks, the copy into and out of the library's blocks).
"""

import ctypes
import sys
import time

import numpy as np

import larkspin

RATE, SECONDS, BLOCK, RUNS = 48000, 10, 1024, 5


def c_interface_seconds(library, x, payload):
    lib = ctypes.CDLL(library)
    lib.vora_ap_create_control.restype = ctypes.c_void_p
    lib.vora_ap_create_control.argtypes = [ctypes.c_float, ctypes.c_int, ctypes.c_int]
    lib.vora_ap_destroy_control.argtypes = [ctypes.c_void_p]
    lib.vora_ap_process.argtypes = [ctypes.c_void_p, ctypes.c_void_p, ctypes.c_int]
    lib.vora_ap_set_vorafication_intensity.argtypes = [ctypes.c_float]
    control = lib.vora_ap_create_control(RATE, BLOCK, 1)
    lib.vora_ap_apply_preset_payload(payload)
    lib.vora_ap_set_vorafication_intensity(ctypes.c_float(1.0))
    y = x.copy()
    # Pointer tables made beforehand: only the library's work is timed.
    tables = [
        (ctypes.c_void_p * 2)(y[0, i:].ctypes.data, y[1, i:].ctypes.data) for i in range(0, y.shape[1], BLOCK)
    ]
    start = time.perf_counter()
    for table in tables:
        lib.vora_ap_process(control, table, BLOCK)
    elapsed = time.perf_counter() - start
    lib.vora_ap_destroy_control(control)
    return elapsed


def module_seconds(x, dtype):
    with larkspin.Processor(RATE, 2, BLOCK) as processor:
        data = x.astype(dtype)
        start = time.perf_counter()
        processor.process(data)
        return time.perf_counter() - start


def main():
    frames = RATE * SECONDS // BLOCK * BLOCK
    x = (0.1 * np.random.default_rng(1).standard_normal((2, frames))).astype(np.float32)
    payload = larkspin.Preset.default().to_payload()
    times = {"C interface": [], "process float32": [], "process float64": []}
    for _ in range(RUNS):  # interleaved, so that both see the same machine
        times["C interface"].append(c_interface_seconds(sys.argv[1], x, payload))
        times["process float32"].append(module_seconds(x, np.float32))
        times["process float64"].append(module_seconds(x, np.float64))
    reference = min(times["C interface"])
    for name, values in times.items():
        best = min(values)
        print(f"{name:16s} {best * 1e3:8.1f} ms  {SECONDS / best:6.1f}x real time  ratio {best / reference:.3f}")


if __name__ == "__main__":
    main()
