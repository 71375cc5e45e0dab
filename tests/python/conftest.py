"""Shared helpers: the C interface of the same liblarkspin.so as a reference."""

import ctypes
import os

import numpy as np
import pytest

import larkspin


class CInterface:
    """The library's C functions, called exactly as a C host would."""

    def __init__(self, path):
        self.lib = lib = ctypes.CDLL(path)
        lib.vora_ap_create_control.restype = ctypes.c_void_p
        lib.vora_ap_create_control.argtypes = [ctypes.c_float, ctypes.c_int, ctypes.c_int]
        lib.vora_ap_destroy_control.argtypes = [ctypes.c_void_p]
        lib.vora_ap_process.restype = ctypes.c_bool
        lib.vora_ap_apply_preset_payload.restype = ctypes.c_bool
        lib.vora_ap_process.argtypes = [ctypes.c_void_p, ctypes.POINTER(ctypes.c_void_p), ctypes.c_int]
        lib.vora_ap_set_vorafication_intensity.argtypes = [ctypes.c_float]

    def process(self, x, rate, max_block, payload, intensity, blocks):
        """Processes float32 x (channels, frames) in blocks of the given
        lengths on a fresh control; returns the output."""
        lib = self.lib
        channels = x.shape[0]
        control = lib.vora_ap_create_control(rate, max_block, int(channels == 2))
        assert control and lib.vora_ap_apply_preset_payload(bytes(payload))
        lib.vora_ap_set_vorafication_intensity(intensity)
        y = np.array(x, dtype=np.float32, order="C", copy=True)
        first = 0
        for n in blocks:
            pointers = (ctypes.c_void_p * channels)(*(y[c, first:].ctypes.data for c in range(channels)))
            assert lib.vora_ap_process(control, pointers, n)
            first += n
        lib.vora_ap_destroy_control(control)
        return y


@pytest.fixture(scope="session")
def c_interface():
    return CInterface(os.environ["LARKSPIN_LIBRARY"])


@pytest.fixture(scope="session")
def program():
    return os.environ["LARKSPIN_PROGRAM"]


def noise(channels, frames, seed=1, level=0.3):
    """Reproducible test audio, float32 (channels, frames)."""
    return (level * np.random.default_rng(seed).standard_normal((channels, frames))).astype(np.float32)


@pytest.fixture(scope="session")
def payload():
    """A payload that changes the sound audibly: the default preset with
    alternating band gains and stronger compression."""
    preset = larkspin.Preset.default()
    preset.gain_db[::2, :] -= 3.0
    preset.gain_db[1::2, 1] += 4.0
    preset.fast_ratio = 0.4
    return preset.to_payload()
