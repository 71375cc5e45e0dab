"""Presets: the same JSON files and payloads as the larkspin program, the
library's own checks reported as ValueError."""

import re
import subprocess

import numpy as np
import pytest

import larkspin

FIELDS = {
    "gain_db": (-20.0, 48.16),  # gains are stored linear: coarse in dB far below 0 dB
    "fast_threshold_db": (-256.0, 0.0),
    "fast_ratio": (0.0, 1.0),
    "slow_threshold_db": (-256.0, 0.0),
    "slow_factor": (0.0, 1.0),
    "slow_delay_ms": (0.0, 255.0),
    "slow_time_constant_ms": (0.0, 255.0),
}


def random_preset(seed):
    rng = np.random.default_rng(seed)
    preset = larkspin.Preset()
    for name, (low, high) in FIELDS.items():
        setattr(preset, name, rng.uniform(low, high, getattr(preset, name).shape))
    return preset


def test_payloads_and_json_files_pass_unchanged_between_program_and_module(program, tmp_path):
    preset = random_preset(1)
    payload = preset.to_payload()
    stored = larkspin.Preset.from_payload(payload)
    assert len(payload) == 196 and stored.to_payload() == payload
    assert stored.check() == []  # decoded values are stored exactly
    # Each field lands where it belongs: quantisation moves no value by more
    # than a small fraction of its field's range.
    for name, (low, high) in FIELDS.items():
        tolerance = 0.02 * (high - low)
        np.testing.assert_allclose(getattr(stored, name), getattr(preset, name), atol=tolerance, err_msg=name)

    # Written by the program, read and written again by the module.
    (tmp_path / "preset.bin").write_bytes(payload)
    written = subprocess.run(
        [program, "preset", "decode", tmp_path / "preset.bin"], check=True, capture_output=True
    ).stdout
    (tmp_path / "program.json").write_bytes(written)
    loaded = larkspin.Preset.load(tmp_path / "program.json")
    loaded.save(tmp_path / "module.json")
    assert (tmp_path / "module.json").read_bytes() == written
    assert loaded.to_payload() == payload


REFUSED = larkspin.Preset(slow_delay_ms=[20.0] * 12 + [300.0])
REFUSAL = "band 12, slowDelayMs = 300 is outside the allowed range 0 to 255"
ZEROS = bytes(196)  # what a fresh library instance stores; it refuses these values
ZEROS_REFUSAL = "the library refuses the payload 'payload': band 0, channel 0, fastThresholdDb = 82.6094 is outside"


@pytest.mark.parametrize(
    "call, error, message",
    [
        (lambda tmp: REFUSED.to_payload(), ValueError, REFUSAL),
        (lambda tmp: larkspin.Processor(48000, 2, preset=REFUSED), ValueError, REFUSAL),
        (lambda tmp: larkspin.Processor(48000, 2, preset=ZEROS), ValueError, ZEROS_REFUSAL),
        (lambda tmp: larkspin.Processor(48000, 1).apply_preset(ZEROS), ValueError, ZEROS_REFUSAL),
        (lambda tmp: setattr(larkspin.Processor(48000, 1), "payload", bytearray(ZEROS)), ValueError, ZEROS_REFUSAL),
        (lambda tmp: setattr(larkspin.Processor(48000, 1), "preset", REFUSED), ValueError, REFUSAL),
        (lambda tmp: larkspin.Preset.load(tmp / "refused.json"), ValueError, REFUSAL),
        (lambda tmp: larkspin.Preset.load(tmp / "broken.json"), ValueError, "JSON"),
        (lambda tmp: larkspin.Preset.load(tmp / "missing.json"), FileNotFoundError, ""),
        (lambda tmp: larkspin.Preset.from_payload(b"\x01" * 10), ValueError, "196 bytes"),
        (lambda tmp: larkspin.Preset(gain=1.0), TypeError, "no field"),
        (lambda tmp: setattr(larkspin.Preset(), "gain_db", np.zeros(5)), ValueError, ""),  # not (13, 2)
        (lambda tmp: larkspin.band_layout(8000), ValueError, "32000 to 192000"),
    ],
)
def test_bad_presets_files_and_arguments_raise(tmp_path, call, error, message):
    (tmp_path / "broken.json").write_text('{"bands": [')
    (tmp_path / "refused.json").write_text(REFUSED.to_json())
    assert any(REFUSAL in line for line in REFUSED.refused())
    with pytest.raises(error, match=re.escape(message)):
        call(tmp_path)


def test_processor_reports_the_preset_in_force():
    preset = random_preset(9)
    with larkspin.Processor(48000, 2, preset=preset) as processor:
        assert processor.preset == larkspin.Preset.from_payload(preset.to_payload())
        processor.payload = larkspin.Preset.default().to_payload()
        assert processor.preset == larkspin.Preset.default()
        # A refused payload changes nothing, also after a reset; any payload
        # decodes, refused values included.
        with pytest.raises(ValueError):
            processor.apply_preset(ZEROS)
        processor.reset()
        assert processor.preset == larkspin.Preset.default()
        assert len(larkspin.Preset.from_payload(ZEROS).refused()) > 0


def test_band_layout_is_the_library_s():
    bands = larkspin.Preset.band_layout(48000)
    assert len(bands) == 14 and [b.controlled for b in bands] == [True] * 13 + [False]
    assert bands[0].low_hz == 0.0 and bands[-1].high_hz == 24000.0
