// Presets of any values through the public preset functions. Checking never
// fails and reports in order; a preset that encodes comes back in range,
// encodes again without a single issue, and holds what the rounding notes
// said it would.
#include <larkspin/vora_preset.h>

#include "fuzz_input.h"

#include <cmath>
#include <cstring>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  larkspin_fuzz::FuzzInput input(data, size);
  // The default with a few values changed: mostly scaled defaults off the
  // stored grid, so that encoding is reached with rounding to note; now and
  // then any value or an awkward one.
  vora_preset preset;
  vora_preset_default(&preset);
  for (int edits = input.inRange(0, 8); edits > 0; --edits) {
    const int band = input.byte() % VORA_PRESET_BAND_COUNT;
    const int channel = input.byte() % VORA_PRESET_CHANNEL_COUNT;
    const auto field = static_cast<vora_preset_field>(input.byte() % VORA_PRESET_FIELD_COUNT);
    float& value = *vora_preset_value(&preset, band, channel, field);
    const uint8_t choice = input.byte() % 4;
    value = choice < 2 ? value + input.value<int8_t>() / 10.0f
                       : (choice == 2 ? input.value<int16_t>() / 10.0f : input.awkwardFloat());
  }

  vora_preset_issue issues[130]; // 13 bands of 2 x 3 + 4 values
  int count = -1;
  const int refused = vora_preset_check(&preset, issues, 130, &count);
  LARKSPIN_FUZZ_CHECK(refused >= 0 && refused <= count && count <= 130);
  for (int i = 0; i < count; ++i) {
    const vora_preset_issue& issue = issues[i];
    const bool inRange = issue.value >= issue.minimum && issue.value <= issue.maximum;
    LARKSPIN_FUZZ_CHECK(issue.kind == VORA_PRESET_REFUSED
                            ? std::isnan(issue.stored)
                            : inRange && issue.stored >= issue.minimum && issue.stored <= issue.maximum);
    char text[200];
    const int length = vora_preset_format_issue(&issue, text, sizeof text);
    LARKSPIN_FUZZ_CHECK(length > 0 && length < 200 && std::strlen(text) == static_cast<size_t>(length));
  }

  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  std::memset(payload, 0x5A, sizeof payload);
  LARKSPIN_FUZZ_CHECK(vora_preset_encode(&preset, payload, nullptr, 0, nullptr) == refused);
  if (refused == 0) {
    vora_preset stored;
    LARKSPIN_FUZZ_CHECK(vora_preset_decode(payload, &stored));
    int again = -1;
    LARKSPIN_FUZZ_CHECK(vora_preset_check(&stored, nullptr, 0, &again) == 0 && again == 0);
    for (int i = 0; i < count; ++i) {
      const vora_preset_issue& issue = issues[i];
      LARKSPIN_FUZZ_CHECK(*vora_preset_value(&stored, issue.band, issue.channel, issue.field) == issue.stored);
    }
  } else {
    LARKSPIN_FUZZ_CHECK(payload[0] == 0x5A && payload[195] == 0x5A);
  }
  return 0;
}
