/* The public C header must compile as C99: this translation unit is built
 * with the test binaries and calls every function once. */
#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include <stddef.h>

int larkspin_c_header_check(void) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, 256, 1);
  float left[256] = {0}, right[256] = {0};
  float* channels[2] = {left, right};
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE] = {0};
  vora_ap_debug_info info;
  bool ok = vora_ap_process(control, channels, 256);
  ok = vora_ap_update(control, 48000.0f, 256, 1) && ok;
  info = vora_ap_get_debug_info(control);
  vora_ap_log_debug_info(NULL);
  (void)vora_ap_get_band_readout(NULL, NULL, NULL);
  ok = vora_ap_apply_preset_payload(payload) && ok;
  ok = vora_ap_set_bypassed(false) && ok;
  ok = vora_ap_set_vorafication_intensity(0.5f) && ok;
  (void)vora_ap_get_bypassed();
  (void)vora_ap_get_vorafication_intensity();
  (void)vora_ap_get_tech_level();
  (void)vora_ap_get_lib_version();
  (void)vora_ap_get_wrapper_version();
  (void)vora_ap_get_processing_latency(control);
  vora_preset preset;
  vora_preset_issue issue = {VORA_PRESET_REFUSED, 0, 0, VORA_PRESET_GAIN_DB, 0.0f, 0.0f, 0.0f, 0.0f};
  vora_band_info bands[VORA_BAND_COUNT];
  char text[80];
  int issueCount = 0;
  ok = vora_preset_default(&preset) && ok;
  ok = vora_preset_encode(&preset, payload, &issue, 1, &issueCount) == 0 && ok;
  ok = vora_preset_check(&preset, NULL, 0, NULL) == 0 && ok;
  ok = vora_preset_decode(payload, &preset) && ok;
  ok = vora_preset_format_issue(&issue, text, sizeof text) > 0 && ok;
  ok = vora_preset_field_name(VORA_PRESET_SLOW_FACTOR) != NULL && ok;
  ok = vora_preset_band_layout(48000.0f, bands) == 256 && ok;
  ok = vora_preset_band_response_db(48000.0f, 5, bands[5].centreHz) > -1.0 && ok;
  ok = vora_ap_destroy(control) && ok;
  (void)vora_ap_create;
  (void)vora_ap_destroy_control;
  return ok && info.processingSuccess;
}
