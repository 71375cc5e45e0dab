// A float parameter of a node with a closed range. Accepted changes are
// passed to the bindings in order; listeners are kept (and copied) but, by
// design, never called.
#pragma once

#include "framework/identifiers.h"
#include "framework/parameter_payload.h"

#include <functional>
#include <string>
#include <vector>

namespace vora {

class AudioProcessorParameter {
public:
  using Callback = std::function<void(const ParameterPayload&)>;

  AudioProcessorParameter();

  // Accepts minimum <= value <= maximum (NaN never); otherwise emits two
  // "*****" lines (framework/message_sink.h) and keeps the old value.
  bool setValue(float value);

  void addListener(const Callback& listener) { listeners_.push_back(listener); }
  void addBinding(const Callback& binding) { bindings_.push_back(binding); }
  size_t bindingCount() const { return bindings_.size(); }

  ParameterIdentifier getIdentifier() const { return identifier_; }
  void setIdentifier(ParameterIdentifier id) { identifier_ = id; }
  float getValue() const { return value_; }
  float getMinimum() const { return minimum_; }
  void setMinimum(float minimum) { minimum_ = minimum; }
  float getMaximum() const { return maximum_; }
  void setMaximum(float maximum) { maximum_ = maximum; }
  const std::string& getTypeName() const { return typeName_; }
  bool isNonFloat() const;

private:
  ParameterIdentifier identifier_ = ParameterIdentifier::parameter_unspecified;
  std::vector<Callback> listeners_;
  std::vector<Callback> bindings_;
  float value_ = 0.0f;
  float minimum_ = 0.0f;
  float maximum_ = 1.0f;
  std::string typeName_;
};

} // namespace vora
