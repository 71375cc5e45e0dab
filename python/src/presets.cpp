#include "presets.h"

#include "preset_json/preset_json.h"

#include <larkspin/vora_preset.h>

#include <pybind11/stl.h>

#include <cstring>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace larkspin_python {
namespace {

// The Python side keeps a preset as a numpy record array with exactly the
// layout of vora_preset: thirteen bands of ten float32 values.
static_assert(sizeof(vora_preset) == sizeof(float) * 10 * VORA_PRESET_BAND_COUNT);

vora_preset valuesFrom(const py::bytes& raw) {
  const std::string bytes = raw;
  if (bytes.size() != sizeof(vora_preset)) {
    throw py::value_error("preset values must be " + std::to_string(sizeof(vora_preset)) + " bytes");
  }
  vora_preset preset;
  std::memcpy(&preset, bytes.data(), sizeof preset);
  return preset;
}

py::bytes bytesOf(const void* data, std::size_t size) {
  return py::bytes(static_cast<const char*>(data), size);
}

// (values, payload, rounding notes) of a preset read or encoded.
std::tuple<py::bytes, py::bytes, std::vector<std::string>> result(const larkspin_json::Preset& preset) {
  return {bytesOf(&preset.values, sizeof preset.values), bytesOf(preset.payload.data(), preset.payload.size()),
          preset.roundingNotes};
}

template <typename Work> auto presetCall(Work&& work) {
  try {
    return work();
  } catch (const larkspin_json::PresetError& error) {
    throw py::value_error(error.what());
  }
}

py::bytes defaultValues() {
  vora_preset preset;
  vora_preset_default(&preset);
  return bytesOf(&preset, sizeof preset);
}

// Every issue of the preset, one line each: (refused, text).
std::vector<std::pair<bool, std::string>> issues(const py::bytes& raw) {
  const vora_preset preset = valuesFrom(raw);
  int count = 0;
  vora_preset_check(&preset, nullptr, 0, &count);
  std::vector<vora_preset_issue> found(static_cast<std::size_t>(count));
  vora_preset_check(&preset, found.data(), count, &count);
  std::vector<std::pair<bool, std::string>> lines;
  for (const vora_preset_issue& issue : found) {
    std::string line(static_cast<std::size_t>(vora_preset_format_issue(&issue, nullptr, 0)), '\0');
    vora_preset_format_issue(&issue, line.data(), line.size() + 1);
    lines.emplace_back(issue.kind == VORA_PRESET_REFUSED, line);
  }
  return lines;
}

py::bytes decodedValues(const py::bytes& payload) {
  const std::string bytes = payload;
  if (bytes.size() != VORA_AP_PRESET_PAYLOAD_SIZE) {
    throw py::value_error("a preset payload is " + std::to_string(VORA_AP_PRESET_PAYLOAD_SIZE) + " bytes, not " +
                          std::to_string(bytes.size()));
  }
  vora_preset preset;
  vora_preset_decode(reinterpret_cast<const unsigned char*>(bytes.data()), &preset);
  return bytesOf(&preset, sizeof preset);
}

py::list bandLayout(double sampleRate) {
  vora_band_info bands[VORA_BAND_COUNT];
  if (vora_preset_band_layout(static_cast<float>(sampleRate), bands) == 0) {
    throw py::value_error("no band layout at sample_rate=" + py::str(py::float_(sampleRate)).cast<std::string>() +
                          " Hz (sample rates from 32000 to 192000 Hz are supported)");
  }
  py::list layout;
  for (const vora_band_info& band : bands) {
    layout.append(py::make_tuple(band.lowHz, band.centreHz, band.highHz, band.controlled));
  }
  return layout;
}

} // namespace

void checkPayload(const std::string& payload) {
  presetCall([&] { return larkspin_json::parse(payload, "payload"); });
}

void bindPresets(py::module_& module) {
  using namespace pybind11::literals;
  module.def("_preset_default", &defaultValues, "Raw values of the built-in default preset.");
  module.def("_preset_decode", &decodedValues, "payload"_a, "Raw values of any 196-byte payload, refused ones too.");
  module.def("_preset_issues", &issues, "values"_a, "(refused, text) per refused or rounded value.");
  module.def(
      "_preset_encode",
      [](const py::bytes& raw) { return presetCall([&] { return result(larkspin_json::encode(valuesFrom(raw))); }); },
      "values"_a, "(values, payload, rounding notes); ValueError naming every refused value.");
  module.def(
      "_preset_parse",
      [](const py::bytes& text, const std::string& name) {
        const std::string bytes = text;
        return presetCall([&] { return result(larkspin_json::parse(bytes, name)); });
      },
      "text"_a, "name"_a, "A payload (196 bytes) or the JSON form: (values, payload, rounding notes).");
  module.def(
      "_preset_json",
      [](const py::bytes& raw) { return presetCall([&] { return larkspin_json::toJsonText(valuesFrom(raw)); }); },
      "values"_a, "The JSON form of the values, as the larkspin program writes it.");
  module.def("_band_layout", &bandLayout, "sample_rate"_a, "(low_hz, centre_hz, high_hz, controlled) per band.");
}

} // namespace larkspin_python
