/* A C99 host of the installed library: it calls every public function once,
 * so the headers must compile and link as C. What the calls compute is
 * tested through the C++ suites; here a call only has to answer sanely. */
#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include <math.h>
#include <stdio.h>

enum { kBlock = 256 };

int main(void) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, kBlock, 1);
  vora_preset preset;
  vora_preset_issue issue = {VORA_PRESET_REFUSED, 0, 0, VORA_PRESET_GAIN_DB, 0.0f, 0.0f, 0.0f, 0.0f};
  vora_band_info bands[VORA_BAND_COUNT];
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  float left[kBlock], right[kBlock];
  float* channels[2] = {left, right};
  float levels[VORA_AP_BAND_COUNT * 2], gains[VORA_AP_BAND_COUNT * 2];
  char text[80];
  bool ok = control != NULL && vora_preset_default(&preset) && vora_preset_check(&preset, NULL, 0, NULL) == 0;
  ok = vora_preset_encode(&preset, payload, NULL, 0, NULL) == 0 && vora_preset_decode(payload, &preset) && ok;
  ok = vora_ap_apply_preset_payload(payload) && vora_ap_set_vorafication_intensity(1.0f) && ok;
  for (int i = 0; i < kBlock; ++i) {
    left[i] = right[i] = 0.25f * (float)sin(0.1 * i);
  }
  ok = vora_ap_process(control, channels, kBlock) && isfinite(left[kBlock - 1]) && ok;
  ok = vora_ap_update(control, 48000.0f, kBlock, 1) && vora_ap_get_debug_info(control).processingSuccess && ok;
  vora_ap_log_debug_info(NULL);
  vora_ap_set_message_hook(NULL, NULL);
  ok = vora_ap_get_band_readout(control, levels, gains) && vora_ap_set_bypassed(false) && ok;
  ok = vora_ap_get_vorafication_intensity() == 1.0f && !vora_ap_get_bypassed() && vora_ap_get_tech_level() == 4 && ok;
  ok = vora_ap_get_wrapper_version() != NULL && vora_ap_create(8000.0f, kBlock, 1) == NULL && ok;
  ok = vora_preset_format_issue(&issue, text, sizeof text) > 0 && vora_preset_field_name(VORA_PRESET_GAIN_DB) != NULL &&
       ok;
  ok = vora_preset_value(&preset, 0, 0, VORA_PRESET_GAIN_DB) != NULL && ok;
  ok = vora_preset_band_layout(48000.0f, bands) == 256 && ok;
  ok = vora_preset_band_response_db(48000.0f, 5, bands[5].centreHz) > -1.0 && vora_ap_destroy(NULL) && ok;
  printf("latency %.0f frames, version %s, calls %s\n", vora_ap_get_processing_latency(control),
         vora_ap_get_lib_version(), ok ? "ok" : "failed");
  return vora_ap_destroy_control(control) && ok ? 0 : 1;
}
