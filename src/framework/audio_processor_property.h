// Descriptive values of a node: a number or a text.
#pragma once

#include "framework/identifiers.h"

#include <functional>
#include <string>

namespace vora {

class AudioProcessorPropertyValue {
public:
  static AudioProcessorPropertyValue fromNumber(float number);
  static AudioProcessorPropertyValue fromText(const std::string& text);

  // Setting a number clears the text flag (the old text stays in place);
  // setting a text clears the number flag.
  void setNumber(float number);
  void setText(const std::string& text);

  bool hasNumber() const { return hasNumber_; }
  float getNumber() const { return number_; }
  bool hasText() const { return hasText_; }
  const std::string& getText() const { return text_; }

private:
  bool hasNumber_ = false;
  float number_ = 0.0f;
  bool hasText_ = false;
  std::string text_;
};

class AudioProcessorProperty {
public:
  using Transform = std::function<AudioProcessorPropertyValue(const AudioProcessorPropertyValue&)>;

  AudioProcessorProperty();

  // A text is always accepted; a number only within [minimum, maximum]
  // (NaN never); a value with neither is refused. The stored value is the
  // input transform of the given one.
  bool setValue(const AudioProcessorPropertyValue& value);
  // Stores a text directly: no transform, no check.
  bool setText(const std::string& text);
  // The stored value through the output transform.
  AudioProcessorPropertyValue getValue() const;

  void setInputTransform(const Transform& transform) { inputTransform_ = transform; }
  void setOutputTransform(const Transform& transform) { outputTransform_ = transform; }
  PropertyIdentifier getIdentifier() const { return identifier_; }
  void setIdentifier(PropertyIdentifier id) { identifier_ = id; }
  float getMinimum() const { return minimum_; }
  void setMinimum(float minimum) { minimum_ = minimum; }
  float getMaximum() const { return maximum_; }
  void setMaximum(float maximum) { maximum_ = maximum; }

private:
  PropertyIdentifier identifier_ = PropertyIdentifier::tech_level;
  AudioProcessorPropertyValue value_;
  float minimum_ = 0.0f;
  float maximum_ = 0.0f;
  Transform inputTransform_;
  Transform outputTransform_;
};

} // namespace vora
