// Identifiers of node parameters and properties, and their fixed names.
// The names build the text keys of presets.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace vora {

enum class ParameterIdentifier : int32_t {
  parameter_unspecified = 0, // "no parameter": never stored in a node
  vorafier_gain = 1,
  vorafier_fast_threshold = 2,
  vorafier_fast_ratio = 3,
  vorafier_slow_threshold = 4,
  vorafier_slow_factor = 5,
  vorafier_slow_delay = 6,
  vorafier_slow_time_constant = 7,
  vorafier_mix_ratio = 8,
  vorafier_bypass = 9,
};

enum class PropertyIdentifier : int32_t {
  tech_level = 0,
  lib_version = 1,
};

// The process-wide name tables, ordered by identifier.
const std::map<int32_t, std::string>& parameterNames();
const std::map<int32_t, std::string>& propertyNames();

// Direct look-ups: an absent identifier throws std::out_of_range
// ("map::at:  key not found").
const std::string& getParameterName(ParameterIdentifier id);
const std::string& getPropertyName(PropertyIdentifier id);

// The identifier whose name equals `name` exactly (no prefix matches).
std::optional<ParameterIdentifier> findParameterIdentifier(const std::string& name);

} // namespace vora
