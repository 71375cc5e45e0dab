#include "framework/audio_processor_preset.h"

#include "framework/message_sink.h"

#include <charconv>

namespace vora {

namespace {

bool parseIndex(const std::string& text, unsigned& index) {
  if (text.empty()) {
    return false;
  }
  const char* end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, index);
  return error == std::errc() && rest == end;
}

} // namespace

std::string AudioProcessorPreset::makeKey(ParameterIdentifier id, unsigned channel, unsigned band) {
  const auto& names = parameterNames();
  const auto it = names.find(static_cast<int32_t>(id));
  if (it == names.end()) {
    emitFormattedLine("* parameter not found: %d", static_cast<int>(id));
    return {};
  }
  return it->second + "_" + std::to_string(channel) + "_" + std::to_string(band);
}

void AudioProcessorPreset::addParameter(ParameterIdentifier id, float value, unsigned channel, unsigned band) {
  parameters_[makeKey(id, channel, band)] = value;
}

void AudioProcessorPreset::addParameter(const AudioProcessorParameter& parameter, unsigned channel, unsigned band) {
  addParameter(parameter.getIdentifier(), parameter.getValue(), channel, band);
}

void AudioProcessorPreset::addProperty(PropertyIdentifier id, const AudioProcessorPropertyValue& value) {
  properties_.insert({id, value});
}

void AudioProcessorPreset::forEachProperty(
    const std::function<void(PropertyIdentifier, AudioProcessorPropertyValue)>& f) const {
  for (const auto& [id, value] : properties_) {
    f(id, value);
  }
}

void AudioProcessorPreset::forEachParameter(
    const std::function<void(ParameterIdentifier, float, unsigned, unsigned)>& f) const {
  for (const auto& [key, value] : parameters_) {
    const size_t bandSeparator = key.rfind('_');
    const size_t channelSeparator = bandSeparator == std::string::npos || bandSeparator == 0
                                        ? std::string::npos
                                        : key.rfind('_', bandSeparator - 1);
    unsigned channel{}, band{};
    std::optional<ParameterIdentifier> id;
    if (channelSeparator != std::string::npos && parseIndex(key.substr(bandSeparator + 1), band) &&
        parseIndex(key.substr(channelSeparator + 1, bandSeparator - channelSeparator - 1), channel)) {
      id = findParameterIdentifier(key.substr(0, channelSeparator));
    }
    if (!id) {
      emitFormattedLine("***** preset entry skipped, key not understood: \"%s\"", key.c_str());
      continue;
    }
    f(*id, value, channel, band);
  }
}

} // namespace vora
