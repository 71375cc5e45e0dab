"""larkspin for Python: numpy arrays through the real-time audio processor.

    import numpy as np, larkspin
    with larkspin.Processor(48000, channels=2) as processor:   # default preset
        processor.intensity = 0.8
        y = processor.process(x)            # x: float32/float64, (2, frames)

Processor    one processing instance (sample rate, channels, state, preset)
Preset       a listener's preset as plain values, its payload and JSON form
process_file read an audio file, process it, write the result
band_layout  the fourteen analysis bands at a sample rate
"""

from ._files import process_file
from ._preset import Band, Preset, band_layout
from ._processor import Processor

__all__ = ["Band", "Preset", "Processor", "band_layout", "process_file"]
