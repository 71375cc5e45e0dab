#include "framework/audio_processor_parameter.h"
#include "framework/audio_processor_preset.h"
#include "framework/audio_processor_property.h"
#include "framework/identifiers.h"
#include "framework/message_sink.h"

#include "support/capture_stdout.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace vora {
namespace {

using larkspin_test::captureStdout;

// Lines go to the innermost route of this thread until it ends. A route
// cannot be copied: a copy would restore twice.
TEST(MessageRouteTest, LinesGoToTheInnermostRouteUntilItEnds) {
  static_assert(!std::is_copy_constructible_v<MessageRoute> && !std::is_copy_assignable_v<MessageRoute>);
  using Lines = std::vector<std::string>;
  const MessageHook keep = [](void* lines, const char* line) { static_cast<Lines*>(lines)->push_back(line); };
  Lines outer, inner;
  {
    const MessageRoute route(keep, &outer);
    {
      const MessageRoute nested(keep, &inner);
      emitFormattedLine("two %d", 2);
    }
    emitLine(std::string("one"));
  }
  EXPECT_EQ(outer, (Lines{"one"}));
  EXPECT_EQ(inner, (Lines{"two 2"}));
}

AudioProcessorParameter gainParameter() {
  AudioProcessorParameter parameter;
  parameter.setIdentifier(ParameterIdentifier::vorafier_gain);
  parameter.setMinimum(-80.0f);
  parameter.setMaximum(80.0f);
  return parameter;
}

TEST(IdentifiersTest, NamesKeysAndReverseLookUp) {
  EXPECT_EQ(getParameterName(ParameterIdentifier::vorafier_slow_time_constant), "vorafier_slow_time_constant");
  EXPECT_EQ(getPropertyName(PropertyIdentifier::lib_version), "lib_version");
  EXPECT_EQ(findParameterIdentifier("vorafier_slow_time_constant"), ParameterIdentifier::vorafier_slow_time_constant);
  EXPECT_EQ(findParameterIdentifier("vorafier_slow_time"), std::nullopt); // never a prefix
  EXPECT_EQ(findParameterIdentifier("vorafier_gainx"), std::nullopt);
  EXPECT_THROW(getParameterName(static_cast<ParameterIdentifier>(10)), std::out_of_range);
  // The key of an unknown identifier is empty, with a message.
  std::string key = "unchanged";
  EXPECT_FALSE(
      captureStdout([&] { key = AudioProcessorPreset::makeKey(static_cast<ParameterIdentifier>(10), 0, 0); }).empty());
  EXPECT_EQ(key, "");
  EXPECT_EQ(AudioProcessorPreset::makeKey(ParameterIdentifier::vorafier_gain, 1, 12), "vorafier_gain_1_12");
}

TEST(ParameterTest, BoundsAreInclusiveAndRefusalsPrintTwoLines) {
  AudioProcessorParameter parameter = gainParameter();
  EXPECT_TRUE(parameter.setValue(80.0f));
  EXPECT_TRUE(parameter.setValue(-80.0f));
  bool accepted = true;
  const std::string out = captureStdout([&] { accepted = parameter.setValue(80.0001f); });
  EXPECT_FALSE(accepted);
  EXPECT_EQ(parameter.getValue(), -80.0f);
  EXPECT_NE(out.find("80.0001 out of range"), std::string::npos);
  captureStdout([&] { accepted = parameter.setValue(NAN); });
  EXPECT_FALSE(accepted);
  EXPECT_EQ(parameter.getValue(), -80.0f);
  EXPECT_FALSE(parameter.isNonFloat());
}

TEST(ParameterTest, BindingsRunPerAcceptedChangeAndListenersNever) {
  AudioProcessorParameter parameter = gainParameter();
  int bindingCalls = 0, listenerCalls = 0;
  ParameterPayload last;
  parameter.addBinding([&](const ParameterPayload& payload) {
    ++bindingCalls;
    last = payload;
  });
  parameter.addListener([&](const ParameterPayload&) { ++listenerCalls; });
  parameter.setValue(3.0f);
  parameter.setValue(3.0f); // the same value still counts as a change
  captureStdout([&] { parameter.setValue(99.0f); });
  EXPECT_EQ(bindingCalls, 2);
  EXPECT_EQ(listenerCalls, 0);
  EXPECT_EQ(last.identifier, ParameterIdentifier::vorafier_gain);
  EXPECT_EQ(last.previousValue, 3.0f);
  EXPECT_EQ(last.newValue, 3.0f);
}

TEST(PropertyTest, RangeTextAndEmptyValues) {
  AudioProcessorProperty property;
  property.setMinimum(4.0f);
  property.setMaximum(4.0f);
  EXPECT_TRUE(property.setValue(AudioProcessorPropertyValue::fromNumber(4.0f)));
  EXPECT_FALSE(property.setValue(AudioProcessorPropertyValue::fromNumber(4.5f)));
  EXPECT_FALSE(property.setValue(AudioProcessorPropertyValue::fromNumber(NAN)));
  EXPECT_EQ(property.getValue().getNumber(), 4.0f);
  EXPECT_FALSE(property.setValue(AudioProcessorPropertyValue{}));
  AudioProcessorPropertyValue text = AudioProcessorPropertyValue::fromNumber(4.0f);
  text.setText("any text"); // a value holds one kind at a time
  EXPECT_TRUE(property.setValue(text));
  EXPECT_TRUE(property.getValue().hasText());
  EXPECT_FALSE(property.getValue().hasNumber());

  property.setOutputTransform([](const AudioProcessorPropertyValue& value) {
    return AudioProcessorPropertyValue::fromText(value.getText() + "!");
  });
  EXPECT_EQ(property.getValue().getText(), "any text!");
}

} // namespace
} // namespace vora
