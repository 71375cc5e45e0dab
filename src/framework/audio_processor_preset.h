// In-memory preset: property values by identifier and parameter values by
// the text key name_channel_band (ordered as text, so vorafier_gain_0_10
// comes before vorafier_gain_0_2).
#pragma once

#include "framework/audio_processor_parameter.h"
#include "framework/audio_processor_property.h"
#include "framework/identifiers.h"

#include <functional>
#include <map>
#include <string>

namespace vora {

class AudioProcessorPreset {
public:
  // The key of `id` at (channel, band), e.g. vorafier_gain_1_12. An
  // identifier without a name prints "* parameter not found: <id>" and
  // gives the empty key.
  static std::string makeKey(ParameterIdentifier id, unsigned channel, unsigned band);

  void addParameter(ParameterIdentifier id, float value, unsigned channel, unsigned band);
  void addParameter(const AudioProcessorParameter& parameter, unsigned channel, unsigned band);
  void addProperty(PropertyIdentifier id, const AudioProcessorPropertyValue& value);

  void forEachProperty(const std::function<void(PropertyIdentifier, AudioProcessorPropertyValue)>& f) const;
  // Calls f(identifier, value, channel, band) for each key in text order.
  // A key that does not parse (fewer than two underscores, a channel or
  // band that is not a decimal number, an unknown name) is skipped with one
  // "*****" line naming it.
  void forEachParameter(const std::function<void(ParameterIdentifier, float, unsigned, unsigned)>& f) const;

  size_t propertyCount() const { return properties_.size(); }
  size_t parameterCount() const { return parameters_.size(); }
  const std::map<std::string, float>& parameters() const { return parameters_; }

private:
  std::map<PropertyIdentifier, AudioProcessorPropertyValue> properties_;
  std::map<std::string, float> parameters_;
};

} // namespace vora
