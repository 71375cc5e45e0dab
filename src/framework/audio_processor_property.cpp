#include "framework/audio_processor_property.h"

namespace vora {

AudioProcessorPropertyValue AudioProcessorPropertyValue::fromNumber(float number) {
  AudioProcessorPropertyValue value;
  value.setNumber(number);
  return value;
}

AudioProcessorPropertyValue AudioProcessorPropertyValue::fromText(const std::string& text) {
  AudioProcessorPropertyValue value;
  value.setText(text);
  return value;
}

void AudioProcessorPropertyValue::setNumber(float number) {
  number_ = number;
  hasNumber_ = true;
  hasText_ = false;
}

void AudioProcessorPropertyValue::setText(const std::string& text) {
  text_ = text;
  hasText_ = true;
  hasNumber_ = false;
}

namespace {
AudioProcessorPropertyValue identity(const AudioProcessorPropertyValue& value) {
  return value;
}
} // namespace

AudioProcessorProperty::AudioProcessorProperty() : inputTransform_(identity), outputTransform_(identity) {}

bool AudioProcessorProperty::setValue(const AudioProcessorPropertyValue& value) {
  if (!value.hasText()) {
    if (!value.hasNumber()) {
      return false;
    }
    const float number = value.getNumber();
    if (!(number >= minimum_ && number <= maximum_)) {
      return false;
    }
  }
  value_ = inputTransform_(value);
  return true;
}

bool AudioProcessorProperty::setText(const std::string& text) {
  value_.setText(text);
  return true;
}

AudioProcessorPropertyValue AudioProcessorProperty::getValue() const {
  return outputTransform_(value_);
}

} // namespace vora
