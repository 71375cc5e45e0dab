"""Presets as plain values: numpy arrays per field, the library's payload
and the JSON form the larkspin program reads and writes."""

import collections
import os

import numpy as np

from . import _larkspin

BAND_COUNT = 13  # controlled bands; band 13 (the top) always passes at unity gain

# Exactly the library's preset record: per band two channels of three values,
# then the four per-band values of the slow gain.
_CHANNEL = np.dtype([("gain_db", "<f4"), ("fast_threshold_db", "<f4"), ("fast_ratio", "<f4")])
_BAND = np.dtype(
    [
        ("channels", _CHANNEL, (2,)),
        ("slow_threshold_db", "<f4"),
        ("slow_factor", "<f4"),
        ("slow_delay_ms", "<f4"),
        ("slow_time_constant_ms", "<f4"),
    ]
)
_CHANNEL_FIELDS = _CHANNEL.names
_BAND_FIELDS = _BAND.names[1:]

Band = collections.namedtuple("Band", "low_hz centre_hz high_hz controlled")
Band.__doc__ = "One analysis band: nominal edges and geometric centre in Hz; False for the uncontrolled top band."


def band_layout(sample_rate):
    """The fourteen analysis bands at `sample_rate` (Hz, 32000 to 192000),
    as a list of Band(low_hz, centre_hz, high_hz, controlled).

    The engine works on FFT bins every sample_rate / N Hz (N = 256 up to
    50 kHz, 512 up to 100 kHz, 1024 above). At 44.1 and 48 kHz and their
    multiples (bins every 172.3 or 187.5 Hz) no bin falls inside band 1
    (210 to 297 Hz): its largest weight is -21.8 or -18.0 dB, so its gain
    moves the output by a few tenths of a dB at most (+10 dB: under +0.3 dB),
    its compressor and slow levelling see levels 44 or 36 dB low, and bands 0
    and 2 shape 210 to 297 Hz instead. At 32 kHz (bins every 125 Hz) every
    band holds a bin. `larkspin plot --rate RATE` marks such bands."""
    return [Band(*band) for band in _larkspin._band_layout(sample_rate)]


def _field(name, per_channel, doc):
    def get(self):
        return self._bands["channels"][name] if per_channel else self._bands[name]

    def set(self, value):
        get(self)[...] = value

    return property(get, set, doc=doc)


class Preset:
    """A listener's preset: per band and channel a fixed gain and a fast
    compressor, per band a slow adaptive gain.

    The values are float32 numpy arrays, one per field, indexed by band
    (0..12) and, for the first three, channel (0 = left or mono, 1 = right).
    They are views: change them in place or assign whole arrays.

        preset = larkspin.Preset.default()
        preset.gain_db[9:, :] += 2.0          # brighter, both channels
        preset.slow_factor = 0.0              # no slow levelling
        preset.save("bright.json")

    Allowed ranges (checked by the library when the preset is encoded, by
    to_payload(), save() or Processor.apply_preset(); a refused value raises
    ValueError naming band, channel, field and range):

    gain_db                (13, 2)  -42.14 to 48.16 dB
    fast_threshold_db      (13, 2)  -256 to 0 dB
    fast_ratio             (13, 2)  0 to 1; slope above the threshold
                                    (1 = no compression, 0.5 = 2:1)
    slow_threshold_db      (13,)    -256 to 0 dB
    slow_factor            (13,)    0 to 1; feedback factor f of the slow gain:
                                    above the slow threshold a steady band
                                    settles at 1 / (1 + f) dB out per dB in
                                    (0.2: 0.83, 0.5: 0.67, 1: 0.5; 0 = off)
    slow_delay_ms          (13,)    0 to 255 ms, whole ms
    slow_time_constant_ms  (13,)    0 to 255 ms, whole ms

    The payload quantises values (check() lists what it changes).
    """

    __slots__ = ("_bands",)

    gain_db = _field("gain_db", True, "Fixed band gain, dB, shape (13, 2).")
    fast_threshold_db = _field("fast_threshold_db", True, "Fast compressor threshold, dB, shape (13, 2).")
    fast_ratio = _field("fast_ratio", True, "Output slope above the fast threshold, 0..1, shape (13, 2).")
    slow_threshold_db = _field("slow_threshold_db", False, "Slow gain threshold, dB, shape (13,).")
    slow_factor = _field(
        "slow_factor",
        False,
        "Slow gain feedback factor f, 0..1, shape (13,): the gain is -f times the band's level over the slow "
        "threshold after the fast stage, slow gain included, so a steady band above it settles at 1 / (1 + f) "
        "dB out per dB in (r / (1 + f r) above a fast threshold of ratio r).",
    )
    slow_delay_ms = _field("slow_delay_ms", False, "Delay of the slow gain, ms, shape (13,).")
    slow_time_constant_ms = _field("slow_time_constant_ms", False, "Time constant of the slow gain, ms, shape (13,).")

    def __init__(self, **values):
        """A preset of the default's values, with any field given as a
        keyword replaced (for example Preset(slow_factor=0))."""
        self._bands = np.frombuffer(_larkspin._preset_default(), _BAND).copy()
        for name, value in values.items():
            if name not in _CHANNEL_FIELDS + _BAND_FIELDS:
                raise TypeError(f"Preset has no field {name!r}; fields: {', '.join(_CHANNEL_FIELDS + _BAND_FIELDS)}")
            setattr(self, name, value)

    @classmethod
    def _from_values(cls, raw):
        preset = cls.__new__(cls)
        preset._bands = np.frombuffer(raw, _BAND).copy()
        return preset

    @classmethod
    def default(cls):
        """The built-in default: a gentle presence lift, 2:1 compression
        above -20 dB and slow levelling with factor 0.2 above -40 dB (a
        steady band then rises 0.83 dB per dB above -40 dB)."""
        return cls()

    @classmethod
    def from_payload(cls, payload):
        """Decodes a 196-byte payload (bytes-like). Any 196 bytes decode;
        values the library would refuse stay as they are (see refused())."""
        return cls._from_values(_larkspin._preset_decode(bytes(memoryview(payload).cast("B"))))

    def to_payload(self):
        """The 196-byte payload; ValueError naming every refused value."""
        return _larkspin._preset_encode(self._raw())[1]

    @classmethod
    def load(cls, path):
        """Reads a preset file: a 196-byte payload, or the JSON form the
        larkspin program writes. ValueError for anything else or any value
        the library refuses; OSError when the file cannot be read."""
        with open(path, "rb") as f:
            text = f.read()
        return cls._from_values(_larkspin._preset_parse(text, os.fspath(path))[0])

    def save(self, path):
        """Writes the JSON form, as `larkspin preset decode` does; ValueError
        (nothing written) when the library refuses a value."""
        _larkspin._preset_encode(self._raw())
        with open(path, "w", encoding="utf-8") as f:
            f.write(self.to_json())

    def to_json(self):
        """The JSON form as text (values as they are, even refused ones)."""
        return _larkspin._preset_json(self._raw())

    def check(self):
        """One line per value the library refuses or the payload rounds,
        for example 'band 3, channel 0, fastRatio = 0.3 is stored as
        0.301961'; empty when the preset is stored exactly."""
        return [text for _, text in _larkspin._preset_issues(self._raw())]

    def refused(self):
        """The lines of check() for values the library refuses."""
        return [text for refused, text in _larkspin._preset_issues(self._raw()) if refused]

    band_layout = staticmethod(band_layout)

    def copy(self):
        """An independent preset with the same values."""
        return self._from_values(self._raw())

    def _raw(self):
        return self._bands.tobytes()

    def __eq__(self, other):
        return isinstance(other, Preset) and self._raw() == other._raw()

    def __repr__(self):
        fields = ",\n       ".join(
            f"{name}={np.array2string(getattr(self, name), separator=', ', precision=4, max_line_width=200)}"
            for name in _CHANNEL_FIELDS + _BAND_FIELDS
        )
        return f"Preset({fields})"
