"""Audio files through a Processor, read and written with soundfile."""

import numpy as np

from ._processor import Processor


def process_file(in_path, out_path, preset=None, intensity=1.0, align=False, max_block=1024):
    """Processes an audio file and writes the result; returns it as an array.

    in_path    any file soundfile (libsndfile) reads, mono or stereo, at
               32 to 192 kHz.
    out_path   written in the input's format, subtype and rate (integer
               formats clip at full scale).
    preset     a Preset or its 196-byte payload; None means Preset.default().
    intensity  0 (dry) to 1 (fully processed).
    align      remove the processing latency, so that the output lines up
               with the input sample for sample; the output always has the
               input's length.

    The file goes through a fresh Processor, without the hop its queue adds;
    at full intensity without bypass that gives the same samples as
    `larkspin process` with a --block of whole hops, its default 256
    included (the program lets the mix settle on silence first when the
    intensity is lower).

    Returns the processed audio as float32, shape (channels, frames).
    Needs Debian's python3-soundfile.
    """
    try:
        import soundfile
    except ImportError as error:
        raise ImportError("process_file needs soundfile (Debian: apt install python3-soundfile)") from error

    info = soundfile.info(str(in_path))
    if info.channels not in (1, 2):
        raise ValueError(f"{in_path}: {info.channels} channels; only mono and stereo are processed")
    data, rate = soundfile.read(str(in_path), dtype="float32", always_2d=True)
    frames = data.shape[0]
    with Processor(rate, info.channels, max_block, preset=preset, intensity=intensity) as processor:
        # Without the queue's hop the output is the library's own; aligned,
        # without the library's latency too. The tail of silence flushes it.
        skip = processor.latency if align else processor._queue_frames
        x = np.zeros((info.channels, frames + skip), np.float32)
        x[:, :frames] = data.T
        y = np.ascontiguousarray(processor.process(x, out=x)[:, skip : skip + frames])
    if info.subtype not in ("FLOAT", "DOUBLE"):
        np.clip(y, -1.0, 1.0, out=y)
    soundfile.write(str(out_path), y.T, rate, subtype=info.subtype, format=info.format)
    return y
