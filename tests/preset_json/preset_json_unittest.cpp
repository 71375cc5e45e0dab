#include "preset_json/preset_json.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

using larkspin_json::PresetError;

vora_preset defaultPreset() {
  vora_preset preset;
  vora_preset_default(&preset);
  return preset;
}

std::string errorOf(const std::string& text) {
  try {
    larkspin_json::parse(text, "test.json");
  } catch (const PresetError& error) {
    return error.what();
  }
  return "no error";
}

// Text, JSON and payload all describe one preset: writing, reading and
// encoding agree with the library's own encoder, and a payload passes as is.
TEST(PresetJsonTest, JsonTextAndPayloadRoundTrip) {
  vora_preset preset = defaultPreset();
  preset.bands[6].channels[1].fastRatio = 0.299f;
  preset.bands[9].slowDelayMs = 12.6f;
  const larkspin_json::Preset read = larkspin_json::parse(larkspin_json::toJsonText(preset), "test.json");

  larkspin_json::Payload expected{};
  ASSERT_EQ(vora_preset_encode(&preset, expected.data(), nullptr, 0, nullptr), 0);
  EXPECT_EQ(read.payload, expected);
  EXPECT_EQ(std::memcmp(&read.values, &preset, sizeof preset), 0);
  ASSERT_EQ(read.roundingNotes.size(), 2u);
  EXPECT_EQ(read.roundingNotes[0], "band 6, channel 1, fastRatio = 0.299 is stored as 0.298039");
  EXPECT_EQ(read.roundingNotes[1], "band 9, slowDelayMs = 12.6 is stored as 13");

  const std::string bytes(expected.begin(), expected.end());
  const larkspin_json::Preset fromPayload = larkspin_json::parse(bytes, "test.bin");
  EXPECT_EQ(fromPayload.payload, expected);
  EXPECT_TRUE(fromPayload.roundingNotes.empty());
  EXPECT_EQ(fromPayload.values.bands[6].channels[1].fastRatio, 76.0f / 255.0f);
}

TEST(PresetJsonTest, ErrorsAreOneLineNamingWhere) {
  nlohmann::json json = larkspin_json::toJson(defaultPreset());
  auto edited = [&](auto change) {
    nlohmann::json copy = json;
    change(copy);
    return errorOf(copy.dump());
  };
  const std::pair<std::string, std::string> cases[] = {
      {errorOf("{\"bands\": [1, 2"), "preset 'test.json' is neither a 196-byte payload nor valid JSON"},
      {errorOf("[]"), "a JSON preset needs a \"bands\" array of 13 entries"},
      {edited([](nlohmann::json& j) { j["bands"][2]["channels"].erase(1); }),
       "band 2: \"channels\" must hold two entries"},
      {edited([](nlohmann::json& j) { j["bands"][4]["channels"][1].erase("fastRatio"); }),
       "band 4, channel 1, fastRatio: missing or not a number"},
      {edited([](nlohmann::json& j) {
         j["bands"][1]["channels"][0]["gainDb"] = 50;
         j["bands"][3]["slowThresholdDb"] = 1;
       }),
       "band 1, channel 0, gainDb = 50 is outside the allowed range -42.1443 to 48.1646 (and 1 more refused)"},
      {edited([](nlohmann::json& j) { j["bands"][3]["channels"][0]["gain"] = 3; }),
       "band 3, channel 0: unknown key \"gain\""},
      {edited([](nlohmann::json& j) { j["comment"] = "mine"; }), "the preset: unknown key \"comment\""},
      {edited([](nlohmann::json& j) { std::swap(j["bands"][4], j["bands"][5]); }),
       "band 4: the entry at this position says \"band\": 5"},
      {edited([](nlohmann::json& j) { j["bands"][6]["highHz"] = 2000; }),
       "band 6: highHz = 2000 differs from the fixed band edge 1681.8 Hz"},
      {edited([](nlohmann::json& j) { j["version"] = 2; }), "preset format version 2 is not supported"},
      {edited([](nlohmann::json& j) { j["format"] = "other"; }), "\"format\" is \"other\""},
      // A hostile value is shown cut, with its length.
      {edited([](nlohmann::json& j) { j[std::string(100000, 'k')] = 1; }),
       "the preset: unknown key \"" + std::string(39, 'k') + "... (100002 bytes)"},
      {errorOf("{\"version\": 1, \"version\": 1}"), "preset 'test.json': the key \"version\" appears twice"},
  };
  for (const auto& [message, expected] : cases) {
    EXPECT_EQ(message.substr(0, expected.size()), expected);
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
    EXPECT_LT(message.size(), 240u) << message;
  }
}

} // namespace
