#include "framework/identifiers.h"

#include <stdexcept>

namespace vora {

namespace {

// Built during static initialisation, so that the tables exist before any
// other code of the library runs; the accessors also work if a static
// initialiser elsewhere gets here first.
const std::map<int32_t, std::string>& buildParameterNames() {
  static const std::map<int32_t, std::string> names = {
      {0, "parameter_unspecified"},   {1, "vorafier_gain"},
      {2, "vorafier_fast_threshold"}, {3, "vorafier_fast_ratio"},
      {4, "vorafier_slow_threshold"}, {5, "vorafier_slow_factor"},
      {6, "vorafier_slow_delay"},     {7, "vorafier_slow_time_constant"},
      {8, "vorafier_mix_ratio"},      {9, "vorafier_bypass"},
  };
  return names;
}

const std::map<int32_t, std::string>& buildPropertyNames() {
  static const std::map<int32_t, std::string> names = {{0, "tech_level"}, {1, "lib_version"}};
  return names;
}

[[maybe_unused]] const auto& kParameterNamesReady = buildParameterNames();
[[maybe_unused]] const auto& kPropertyNamesReady = buildPropertyNames();

// Absent keys fail with the same text on every standard library.
const std::string& lookUp(const std::map<int32_t, std::string>& table, int32_t key) {
  const auto it = table.find(key);
  if (it == table.end()) {
    throw std::out_of_range("map::at:  key not found");
  }
  return it->second;
}

} // namespace

const std::map<int32_t, std::string>& parameterNames() {
  return buildParameterNames();
}
const std::map<int32_t, std::string>& propertyNames() {
  return buildPropertyNames();
}

const std::string& getParameterName(ParameterIdentifier id) {
  return lookUp(parameterNames(), static_cast<int32_t>(id));
}

const std::string& getPropertyName(PropertyIdentifier id) {
  return lookUp(propertyNames(), static_cast<int32_t>(id));
}

std::optional<ParameterIdentifier> findParameterIdentifier(const std::string& name) {
  for (const auto& [id, text] : parameterNames()) {
    if (text == name) {
      return static_cast<ParameterIdentifier>(id);
    }
  }
  return std::nullopt;
}

} // namespace vora
