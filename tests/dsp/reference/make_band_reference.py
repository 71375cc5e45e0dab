#!/usr/bin/env python3
# Independent reference for the band weight tables: magnitude-squared
# responses of digital Butterworth filters designed by scipy (bilinear
# transform with prewarping), sampled at the FFT bin frequencies.
#
# Regenerate with (Debian's python3-scipy):
#   /usr/bin/python3 tests/dsp/reference/make_band_reference.py > tests/dsp/reference/band_weights.txt
#
# Output: one line per table entry, "rate fft_size band bin weight_db",
# with weight_db = 10*log10(|H|^2) rounded to 4 decimals; entries below
# -200 dB are left out. The test compares within 0.01 dB above -120 dB.
import math

import numpy as np
from scipy import signal

EDGES = [210.224103813429 * math.sqrt(2.0) ** i for i in range(13)]


def design(band, rate):
    if band == 0:
        return signal.butter(20, EDGES[0], btype="lowpass", fs=rate, output="sos")
    if band == 13:
        return signal.butter(20, EDGES[12], btype="highpass", fs=rate, output="sos")
    return signal.butter(4, [EDGES[band - 1], EDGES[band]], btype="bandpass", fs=rate, output="sos")


def main():
    for rate, size in ((44100, 256), (48000, 256), (96000, 512), (192000, 1024)):
        bins = np.arange(size // 2)
        freqs = np.maximum(bins, 1e-10) * rate / size
        for band in range(14):
            _, response = signal.sosfreqz(design(band, rate), worN=freqs, fs=rate)
            power = np.abs(response) ** 2
            for k, p in zip(bins, power):
                db = 10.0 * math.log10(p) if p > 0 else -math.inf
                if db > -200.0:
                    print(f"{rate} {size} {band} {k} {db:.4f}")


if __name__ == "__main__":
    main()
