"""The Processor with the conveniences of the package: a preset and an
intensity in force from the start."""

from . import _larkspin
from ._preset import Preset


class Processor(_larkspin.Processor):
    """One processing instance: a fixed sample rate and channel count.

    sample_rate  Hz, 32000 to 192000.
    channels     1 (mono) or 2 (stereo).
    max_block    largest block, in frames, handed to the library at once
                 (rounded down to whole hops, at least one); process()
                 takes any length.
    preset       a Preset or its 196-byte payload; None means
                 Preset.default().
    intensity    0 (dry) to 1 (fully processed); ValueError outside.

    The instance keeps its audio state between process() calls, so a long
    signal may be fed in pieces of any size: the output is the same, and
    delayed by exactly `latency` frames, however the signal is cut (the
    library is fed whole hops through a queue of one hop). Presets are
    checked with the library's own check before anything is applied: a
    refused value raises ValueError naming band, channel, field and range,
    and leaves the preset in force unchanged. The library's diagnostic
    lines, if any, arrive as RuntimeWarnings. Use it as a context manager,
    or call close(), to free it at once. Calls on one Processor from
    several threads are serialised; process() releases the interpreter
    lock while the library works, so several Processors run in parallel.

    Example:

        with larkspin.Processor(48000, 2) as processor:
            y = processor.process(x)        # x.shape == (2, frames)
    """

    __slots__ = ()

    def __init__(self, sample_rate, channels, max_block=1024, *, preset=None, intensity=1.0):
        """Sets the instance up; ValueError for a rate, channel count,
        block size or intensity the library does not take, or a preset it
        refuses."""
        super().__init__(sample_rate, channels, max_block)
        self.apply_preset(Preset.default() if preset is None else preset)
        self.intensity = intensity

    def apply_preset(self, preset):
        """Puts a preset in force on this Processor only.

        preset: a Preset, or its 196-byte payload (bytes, bytearray,
        memoryview or a uint8 array). Raises ValueError, naming the band,
        channel, field and allowed range of each value the library
        refuses; nothing is applied then.
        """
        super().apply_preset(preset.to_payload() if isinstance(preset, Preset) else preset)

    @property
    def preset(self):
        """The preset in force, decoded from its payload (a copy: changing
        it changes nothing until it is applied). Setting it is
        apply_preset()."""
        return Preset.from_payload(self.payload)

    @preset.setter
    def preset(self, preset):
        self.apply_preset(preset)
