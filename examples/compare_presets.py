#!/usr/bin/python3
"""Processes a recording with the default preset and two variations of it
and draws what they do: the long-term spectra of input and outputs, and
the band gains of each preset.

    examples/compare_presets.py [recording.wav] [--out compare_presets.png]

The recording must be mono or stereo at 32 to 192 kHz, the rates the
library runs at (convert others first, for example with sox). Without a
recording a test signal of its own is used (ten seconds of speech-like
noise: a falling spectrum, syllable-rate bursts). Needs the
larkspin package (or PYTHONPATH=build/dev/python), numpy, matplotlib and,
for a recording, soundfile.
"""

import argparse

import matplotlib

matplotlib.use("Agg")
import matplotlib.pyplot as plt  # noqa: E402
import numpy as np  # noqa: E402
from matplotlib.ticker import FuncFormatter, LogLocator, NullFormatter  # noqa: E402

import larkspin  # noqa: E402


def test_signal(rate=48000, seconds=10.0, seed=7):
    """Stereo noise with a speech-like spectrum (-6 dB per octave above
    500 Hz) and a syllable-rate envelope, peaks around -10 dBFS."""
    rng = np.random.default_rng(seed)
    frames = int(rate * seconds)
    spectrum = np.fft.rfft(rng.standard_normal((2, frames)), axis=1)
    frequency = np.fft.rfftfreq(frames, 1.0 / rate)
    spectrum *= 1.0 / np.maximum(frequency, 500.0)
    noise = np.fft.irfft(spectrum, frames, axis=1)
    t = np.arange(frames) / rate
    envelope = 0.55 + 0.45 * np.sin(2 * np.pi * 4.0 * t) * np.sin(2 * np.pi * 0.3 * t)
    x = noise * envelope
    return (0.3 * x / np.abs(x).max()).astype(np.float32), rate


def long_term_spectrum(x, rate, size=4096):
    """Averaged power spectrum of all channels (Hann window, half overlap), dB."""
    window = np.hanning(size)
    hop = size // 2
    frames = [x[:, i : i + size] * window for i in range(0, x.shape[1] - size + 1, hop)]
    power = np.mean([np.abs(np.fft.rfft(frame, axis=1)) ** 2 for frame in frames], axis=(0, 1))
    power /= np.sum(window**2) * rate / 2
    return np.fft.rfftfreq(size, 1.0 / rate), 10 * np.log10(power + 1e-20)


def presets():
    default = larkspin.Preset.default()
    brighter = default.copy()
    brighter.gain_db[:4, :] -= 3.0  # less low end
    brighter.gain_db[8:, :] += 5.0  # more presence and air
    light = larkspin.Preset(gain_db=0.0, fast_ratio=1.0, slow_factor=0.0)  # flat, no dynamics
    return {"default": default, "brighter": brighter, "flat, no dynamics": light}


# Where presets agree their lines coincide: the first is drawn wide and pale
# underneath, the others dashed and dotted on top, so each stays visible.
STYLES = [
    {"color": "C0", "linewidth": 3.5, "alpha": 0.55, "zorder": 2},
    {"color": "C1", "linewidth": 1.6, "linestyle": (0, (6, 3)), "zorder": 3},
    {"color": "C2", "linewidth": 1.6, "linestyle": (0, (1.5, 2)), "zorder": 4},
]


def hertz_axis(axis, rate):
    """Log frequency axis from 20 Hz to Nyquist, ticked 20, 50, 100, ... 1k, 2k."""
    axis.set_xscale("log")
    axis.set_xlim(20, rate / 2)
    axis.xaxis.set_major_locator(LogLocator(base=10, subs=(1.0, 2.0, 5.0)))
    axis.xaxis.set_major_formatter(FuncFormatter(lambda hz, _: f"{hz / 1000:g}k" if hz >= 1000 else f"{hz:g}"))
    axis.xaxis.set_minor_formatter(NullFormatter())
    axis.set_xlabel("frequency (Hz)")
    axis.grid(True, which="both", alpha=0.3)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("recording", nargs="?", help="mono or stereo audio file; a test signal when omitted")
    parser.add_argument("--out", default="compare_presets.png", help="picture to write (PNG, SVG, PDF)")
    arguments = parser.parse_args()

    if arguments.recording:
        import soundfile

        data, rate = soundfile.read(arguments.recording, dtype="float32", always_2d=True)
        x, name = np.ascontiguousarray(data.T), arguments.recording
        if not 32000 <= rate <= 192000 or x.shape[0] > 2:
            parser.exit(
                1,
                f"{parser.prog}: {name}: {x.shape[0]} channels at {rate} Hz; the library takes mono or stereo at"
                " 32000 to 192000 Hz (convert it first, for example: sox in.wav -r 48000 out.wav)\n",
            )
    else:
        (x, rate), name = test_signal(), "test signal"

    figure, (top, bottom) = plt.subplots(2, 1, figsize=(9, 7.5), constrained_layout=True)
    frequency, level = long_term_spectrum(x, rate)
    top.plot(frequency[1:], level[1:], color="black", linewidth=1.0, label="input", zorder=5)
    bands = [band for band in larkspin.band_layout(rate) if band.controlled]
    edges = [max(band.low_hz, 20.0) for band in bands] + [bands[-1].high_hz]
    for (label, preset), style in zip(presets().items(), STYLES):
        with larkspin.Processor(rate, x.shape[0], preset=preset) as processor:
            latency = processor.latency
            padded = np.concatenate([x, np.zeros((x.shape[0], latency), np.float32)], axis=1)
            y = processor.process(padded)[:, latency:]
        spectrum_style = {**style, "linewidth": style["linewidth"] * 0.7}
        top.plot(frequency[1:], long_term_spectrum(y, rate)[1][1:], label=label, **spectrum_style)
        gains = preset.gain_db[:, 0]
        bottom.stairs(gains, edges, label=label, baseline=None, **style)

    for axis in (top, bottom):
        hertz_axis(axis, rate)
    top.set(ylim=(level[1:].max() - 45, level[1:].max() + 8))
    top.set(title=f"Long-term spectra: {name}, {rate} Hz", ylabel="level (dB/Hz)")
    top.legend()
    bottom.set(title="Fixed band gains (channel 0)", ylabel="gain (dB)")
    bottom.axhline(0.0, color="grey", linewidth=0.8, zorder=1)
    bottom.legend(loc="upper left")
    figure.savefig(arguments.out, dpi=100)
    print(f"wrote {arguments.out}")


if __name__ == "__main__":
    main()
