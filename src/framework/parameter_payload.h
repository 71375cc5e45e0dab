#pragma once

#include "framework/identifiers.h"

namespace vora {

// What a parameter hands to its bindings after an accepted change.
struct ParameterPayload {
  ParameterIdentifier identifier = ParameterIdentifier::parameter_unspecified;
  float previousValue{};
  float newValue{};
};

} // namespace vora
