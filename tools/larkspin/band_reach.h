// Which bands the engine's FFT can see. Its bins lie every rate / N Hz; a
// band whose range holds none of them reaches the spectrum only through the
// tails of its response (band 1, 210 to 297 Hz, at 44.1 and 48 kHz and their
// multiples). Its gain then moves the output little, its compressor and slow
// levelling see a level far below what the band holds, and its neighbours
// shape its frequencies instead.
#pragma once

#include <larkspin/vora_preset.h>

#include <string>
#include <vector>

namespace larkspin_tool {

struct BandWithoutBin {
  int band;
  double lowHz, highHz;
  double peakWeightDb; // the band's largest weight at any bin (10 log10, as vora_preset_band_response_db)
};

// The controlled bands with no FFT bin in [lowHz, highHz) at `sampleRate`;
// empty for a rate the library refuses.
std::vector<BandWithoutBin> bandsWithoutBin(int sampleRate);

// What such a band's settings do at `sampleRate`, in one line without the
// program's prefix ("band 1 (210 to 297 Hz) holds no FFT bin at ..."); `gainDb`
// is the fixed gain set on it. `asSentence` makes it "Band 1 ... there."
std::string bandWithoutBinNote(int sampleRate, const BandWithoutBin& band, double gainDb, bool asSentence = false);

// One line per band a --set names explicitly ("band1.gainDb=10") that has no
// bin at `sampleRate`; `preset` holds the values after the settings.
std::vector<std::string> settingNotes(const std::vector<std::string>& settings, const vora_preset& preset,
                                      int sampleRate);

// One line per band set to act (a gain, compression or levelling) with
// values other than the built-in default's while it has no bin at one of
// the common rates (32 to 192 kHz), for a preset not tied to a rate.
std::vector<std::string> presetNotes(const vora_preset& preset);

} // namespace larkspin_tool
