#include "framework/audio_processor_parameter.h"

#include "framework/message_sink.h"

#include <locale>
#include <sstream>
#include <string>
#include <typeinfo>

namespace vora {

AudioProcessorParameter::AudioProcessorParameter() : typeName_(typeid(float).name()) {}

bool AudioProcessorParameter::setValue(float value) {
  if (!(minimum_ <= value) || !(maximum_ >= value)) {
    // The stream's default float notation, as a default standard output
    // stream would print it.
    std::ostringstream line;
    line.imbue(std::locale::classic());
    line << "***** parameter value " << value << " out of range: " << minimum_ << " - " << maximum_;
    emitLine(line.str());
    emitLine("***** for parameter with identifier " + std::to_string(static_cast<int32_t>(identifier_)));
    return false;
  }
  const float previous = value_;
  value_ = value;
  const ParameterPayload payload{identifier_, previous, value};
  // Indexed, so that a binding may add bindings without invalidating the walk.
  for (size_t i = 0; i < bindings_.size(); ++i) {
    bindings_[i](payload);
  }
  return true;
}

bool AudioProcessorParameter::isNonFloat() const {
  return typeName_ != typeid(float).name();
}

} // namespace vora
