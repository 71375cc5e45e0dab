/* The public C header must compile as C99: this translation unit is built
 * with the test binaries and calls every function once. */
#include <larkspin/vora_ap.h>

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
  ok = vora_ap_apply_preset_payload(payload) && ok;
  ok = vora_ap_set_bypassed(false) && ok;
  ok = vora_ap_set_vorafication_intensity(0.5f) && ok;
  (void)vora_ap_get_bypassed();
  (void)vora_ap_get_vorafication_intensity();
  (void)vora_ap_get_tech_level();
  (void)vora_ap_get_lib_version();
  (void)vora_ap_get_wrapper_version();
  (void)vora_ap_get_processing_latency(control);
  ok = vora_ap_destroy(control) && ok;
  (void)vora_ap_create;
  (void)vora_ap_destroy_control;
  return ok && info.processingSuccess;
}
