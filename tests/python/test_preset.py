"""Presets: the same JSON files and payloads as the larkspin program, the
library's own checks reported as ValueError."""

import subprocess

import numpy as np
import pytest

import larkspin

FIELDS = {
    "gain_db": (-42.14, 48.16),
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
        shape = getattr(preset, name).shape
        setattr(preset, name, rng.uniform(low, high, shape))
    preset.slow_delay_ms = np.round(preset.slow_delay_ms)
    preset.slow_time_constant_ms = np.round(preset.slow_time_constant_ms)
    return preset


@pytest.mark.parametrize("seed", [None, 1, 2])
def test_json_files_pass_unchanged_between_program_and_module(program, tmp_path, seed):
    preset = larkspin.Preset.default() if seed is None else random_preset(seed)
    (tmp_path / "preset.bin").write_bytes(preset.to_payload())

    # Written by the program, read and written again by the module.
    written = subprocess.run(
        [program, "preset", "decode", tmp_path / "preset.bin"], check=True, capture_output=True
    ).stdout
    (tmp_path / "program.json").write_bytes(written)
    loaded = larkspin.Preset.load(tmp_path / "program.json")
    loaded.save(tmp_path / "module.json")
    assert (tmp_path / "module.json").read_bytes() == written
    assert loaded.to_payload() == preset.to_payload()

    # Written by the module, encoded by the program.
    preset.save(tmp_path / "saved.json")
    subprocess.run(
        [program, "preset", "encode", tmp_path / "saved.json", tmp_path / "encoded.bin"], check=True, capture_output=True
    )
    assert (tmp_path / "encoded.bin").read_bytes() == preset.to_payload()


@pytest.mark.parametrize("seed", range(4))
def test_payload_round_trip_keeps_stored_values(seed):
    preset = random_preset(seed)
    payload = preset.to_payload()
    stored = larkspin.Preset.from_payload(payload)
    assert len(payload) == 196 and stored.to_payload() == payload
    assert stored.check() == []  # decoded values are stored exactly
    # Quantisation moves a value by at most half a step of its field; gains
    # are stored as linear factors n/128.
    linear = 10 ** (np.array([stored.gain_db, preset.gain_db]) / 20)
    np.testing.assert_allclose(linear[0], linear[1], atol=0.5 / 128 + 1e-6)
    steps = {"fast_ratio": 1 / 255, "slow_factor": 1 / 255, "fast_threshold_db": 1 / 128, "slow_threshold_db": 1 / 128}
    for name, step in steps.items():
        np.testing.assert_allclose(getattr(stored, name), getattr(preset, name), atol=step / 2 + 1e-6)


@pytest.mark.parametrize(
    "name, index, value, words",
    [
        ("gain_db", (3, 1), 90.0, ["band 3", "channel 1", "gainDb", "-42.14", "48.16"]),
        ("fast_ratio", (0, 0), float("nan"), ["band 0", "channel 0", "fastRatio"]),
        ("slow_delay_ms", 12, 300.0, ["band 12", "slowDelayMs", "0 to 255"]),
        ("slow_threshold_db", 5, 1.0, ["band 5", "slowThresholdDb", "-256 to 0"]),
    ],
)
def test_refused_values_raise_naming_band_channel_field_and_range(tmp_path, name, index, value, words):
    preset = larkspin.Preset()
    getattr(preset, name)[index] = value
    assert any(all(word in line for word in words) for line in preset.refused())
    for call in (
        preset.to_payload,
        lambda: preset.save(tmp_path / "refused.json"),
        lambda: larkspin.Processor(48000, 2, preset=preset),
    ):
        with pytest.raises(ValueError) as error:
            call()
        assert all(word in str(error.value) for word in words), str(error.value)
    assert not (tmp_path / "refused.json").exists()

    # The same values as JSON text are refused alike when loaded.
    (tmp_path / "refused.json").write_text(preset.to_json())
    with pytest.raises(ValueError, match=words[0]):
        larkspin.Preset.load(tmp_path / "refused.json")


def test_bad_files_and_arguments(tmp_path):
    (tmp_path / "broken.json").write_text('{"bands": [')
    with pytest.raises(ValueError):
        larkspin.Preset.load(tmp_path / "broken.json")
    with pytest.raises(FileNotFoundError):
        larkspin.Preset.load(tmp_path / "missing.json")
    with pytest.raises(ValueError, match="196 bytes"):
        larkspin.Preset.from_payload(b"\x01" * 10)
    with pytest.raises(TypeError, match="no field"):
        larkspin.Preset(gain=1.0)
    with pytest.raises(ValueError):
        larkspin.Preset().gain_db = np.zeros(5)  # not broadcastable to (13, 2)


def test_processor_reports_the_preset_in_force():
    preset = random_preset(9)
    with larkspin.Processor(48000, 2, preset=preset) as processor:
        assert processor.preset == larkspin.Preset.from_payload(preset.to_payload())
        processor.apply_preset(larkspin.Preset.default().to_payload())
        assert processor.preset == larkspin.Preset.default()


@pytest.mark.parametrize("rate", [32000, 44100, 48000, 96000, 192000])
def test_band_layout_tiles_the_spectrum(rate):
    bands = larkspin.Preset.band_layout(rate)
    assert len(bands) == 14 and [b.controlled for b in bands] == [True] * 13 + [False]
    assert bands[0].low_hz == 0.0 and bands[-1].high_hz == rate / 2
    for lower, upper in zip(bands, bands[1:]):
        assert lower.high_hz == upper.low_hz and lower.low_hz < lower.centre_hz < lower.high_hz


def test_band_layout_refuses_unsupported_rates():
    with pytest.raises(ValueError, match="32000 to 192000"):
        larkspin.band_layout(8000)
