#include "larkspin/band_reach.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <set>

namespace larkspin_tool {
namespace {

std::string format(const char* pattern, double value) {
  char text[32];
  std::snprintf(text, sizeof text, pattern, value);
  return text;
}

std::string hz(double value) {
  return value >= 1000.0 ? format("%.4g kHz", value / 1000.0) : format("%.0f Hz", value);
}

// "210 to 297 Hz", "841 Hz to 1.189 kHz", "9.514 to 13.45 kHz".
std::string range(double lowHz, double highHz) {
  if (highHz < 1000.0) {
    return format("%.0f", lowHz) + " to " + hz(highHz);
  }
  if (lowHz >= 1000.0) {
    return format("%.4g", lowHz / 1000.0) + " to " + hz(highHz);
  }
  return hz(lowHz) + " to " + hz(highHz);
}

// "a", "a and b", "a, b and c".
std::string list(const std::vector<std::string>& items) {
  std::string text;
  for (size_t i = 0; i < items.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == items.size() ? " and " : ", ") + items[i];
  }
  return text;
}

std::string neighbours(int band) {
  if (band == 0) {
    return "band 1";
  }
  if (band == VORA_PRESET_BAND_COUNT - 1) {
    return "bands 11 and 13";
  }
  return "bands " + std::to_string(band - 1) + " and " + std::to_string(band + 1);
}

std::string head(const BandWithoutBin& band) {
  return "band " + std::to_string(band.band) + " (" + range(band.lowHz, band.highHz) + ") holds no FFT bin";
}

// The output moves by at most this much where the band weighs most, the
// other bands at unity: the engine adds the bands' weighted gains per bin.
double largestEffectDb(double peakWeightDb, double gainDb) {
  const double weight = std::pow(10.0, peakWeightDb / 10.0);
  return 20.0 * std::log10(1.0 + weight * (std::pow(10.0, gainDb / 20.0) - 1.0));
}

} // namespace

std::vector<BandWithoutBin> bandsWithoutBin(int sampleRate) {
  std::vector<BandWithoutBin> found;
  vora_band_info bands[VORA_BAND_COUNT];
  const float rate = static_cast<float>(sampleRate);
  const int fftSize = vora_preset_band_layout(rate, bands);
  const double binHz = static_cast<double>(sampleRate) / std::max(fftSize, 1);
  for (int band = 0; band < VORA_PRESET_BAND_COUNT && fftSize > 0; ++band) {
    const double firstBinAbove = std::ceil(bands[band].lowHz / binHz) * binHz;
    if (firstBinAbove < bands[band].highHz) {
      continue;
    }
    double peakDb = -HUGE_VAL;
    for (int bin = 1; bin < fftSize / 2; ++bin) {
      peakDb = std::max(peakDb, vora_preset_band_response_db(rate, band, bin * binHz));
    }
    found.push_back({band, bands[band].lowHz, bands[band].highHz, peakDb});
  }
  return found;
}

std::string bandWithoutBinNote(int sampleRate, const BandWithoutBin& band, double gainDb, bool asSentence) {
  vora_band_info bands[VORA_BAND_COUNT];
  const int fftSize = vora_preset_band_layout(static_cast<float>(sampleRate), bands);
  const double exampleDb = std::fabs(gainDb) >= 0.01 ? gainDb : 10.0;
  const double effectDb = largestEffectDb(band.peakWeightDb, exampleDb);
  const std::string gain =
      std::fabs(gainDb) >= 0.01
          ? "its gain of " + format("%+.3g dB", gainDb) + " moves the output by " +
                format("%.2g dB", std::fabs(effectDb)) + " at most"
          : "a gain of +10 dB on it would move the output by " + format("%.2g dB", effectDb) + " at most";
  std::string subject = head(band);
  if (asSentence) {
    subject[0] = 'B';
  }
  return subject + " at " + std::to_string(sampleRate) + " Hz (bins every " +
         format("%.4g", static_cast<double>(sampleRate) / std::max(fftSize, 1)) + " Hz; its largest weight is " +
         format("%.1f dB", band.peakWeightDb) + "): " + gain + ", and its compressor and slow levelling see levels " +
         format("%.0f dB", -2.0 * band.peakWeightDb) + " low; " + neighbours(band.band) + " shape " +
         range(band.lowHz, band.highHz) + " there" + (asSentence ? "." : "");
}

std::vector<std::string> settingNotes(const std::vector<std::string>& settings, const vora_preset& preset,
                                      int sampleRate) {
  std::set<int> named;
  for (const std::string& setting : settings) {
    int band = -1;
    const char* start = setting.c_str() + 4;
    const char* end = setting.c_str() + setting.size();
    if (setting.rfind("band", 0) == 0) {
      const char* after = std::from_chars(start, end, band).ptr;
      if (after != start && after != end && *after == '.') {
        named.insert(band);
      }
    }
  }
  std::vector<std::string> notes;
  for (const BandWithoutBin& band : bandsWithoutBin(sampleRate)) {
    if (named.count(band.band) != 0) {
      const vora_preset_channel* channels = preset.bands[band.band].channels;
      const double gainDb =
          std::fabs(channels[1].gainDb) > std::fabs(channels[0].gainDb) ? channels[1].gainDb : channels[0].gainDb;
      notes.push_back(bandWithoutBinNote(sampleRate, band, gainDb));
    }
  }
  return notes;
}

std::vector<std::string> presetNotes(const vora_preset& preset) {
  static constexpr int kRates[] = {32000, 44100, 48000, 88200, 96000, 176400, 192000};
  vora_preset given = preset, defaults;
  vora_preset_default(&defaults);
  std::vector<std::string> notes;
  for (int b = 0; b < VORA_PRESET_BAND_COUNT; ++b) {
    // A band set to do nothing (0 dB, no compression, no levelling) loses
    // nothing by being missed.
    const vora_preset_band& values = given.bands[b];
    bool acts = values.slowFactor > 0.0f;
    for (const vora_preset_channel& channel : values.channels) {
      acts = acts || channel.gainDb != 0.0f || channel.fastRatio < 1.0f;
    }
    std::vector<std::string> fields;
    for (int f = 0; f < VORA_PRESET_FIELD_COUNT; ++f) {
      const auto field = static_cast<vora_preset_field>(f);
      const bool perBand = field >= VORA_PRESET_SLOW_THRESHOLD_DB;
      bool differs = false;
      for (int ch = perBand ? -1 : 0; ch < (perBand ? 0 : VORA_PRESET_CHANNEL_COUNT); ++ch) {
        differs = differs || *vora_preset_value(&given, b, ch, field) != *vora_preset_value(&defaults, b, ch, field);
      }
      if (differs) {
        fields.emplace_back(vora_preset_field_name(field));
      }
    }
    std::vector<std::string> rates;
    std::vector<BandWithoutBin> found;
    for (int rate : kRates) {
      for (const BandWithoutBin& band : bandsWithoutBin(rate)) {
        if (band.band == b) {
          rates.push_back(format("%.4g", rate / 1000.0));
          found.push_back(band);
        }
      }
    }
    if (!acts || fields.empty() || found.empty()) {
      continue;
    }
    const auto [lowest, highest] = std::minmax_element(
        found.begin(), found.end(), [](const auto& x, const auto& y) { return x.peakWeightDb < y.peakWeightDb; });
    const std::string weights =
        lowest->peakWeightDb < highest->peakWeightDb - 0.05
            ? format("%.1f", lowest->peakWeightDb) + " to " + format("%.1f dB", highest->peakWeightDb)
            : format("%.1f dB", highest->peakWeightDb);
    notes.push_back(head(found.front()) + " at " + list(rates) + " kHz (largest weight " + weights + "): its " +
                    list(fields) + (fields.size() == 1 ? " acts" : " act") + " little there; " + neighbours(b) +
                    " shape " + range(found.front().lowHz, found.front().highHz));
  }
  return notes;
}

} // namespace larkspin_tool
