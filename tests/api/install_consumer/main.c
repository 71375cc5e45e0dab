/* A C99 host of the installed library: it calls every public function once
 * (so the headers must compile and link as C), then builds a preset with the
 * preset API, processes a second of a tone and checks that the output is
 * finite, carries signal, and that the preset made a difference. */
#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include <math.h>
#include <stdio.h>

enum { kBlock = 256 };

/* Energy of a second of a 764 Hz tone through `control` with its band (4)
 * at `gainDb`, or -1 on any failure or non-finite output. */
static double toneEnergy(vora_ap_control* control, float gainDb) {
  vora_preset preset;
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  float left[kBlock], right[kBlock];
  float* channels[2] = {left, right};
  double energy = 0.0;
  vora_preset_default(&preset);
  preset.bands[4].channels[0].gainDb = gainDb;
  preset.bands[4].channels[1].gainDb = gainDb;
  if (vora_preset_encode(&preset, payload, NULL, 0, NULL) != 0 || !vora_ap_apply_preset_payload(payload)) {
    return -1.0;
  }
  for (int block = 0; block < 48000 / kBlock; ++block) {
    for (int i = 0; i < kBlock; ++i) {
      left[i] = right[i] = 0.25f * (float)sin(0.1 * (block * kBlock + i));
    }
    if (!vora_ap_process(control, channels, kBlock)) {
      return -1.0;
    }
    for (int i = 0; i < kBlock; ++i) {
      energy += isfinite(left[i]) ? left[i] * left[i] : -INFINITY;
    }
  }
  return energy > 0.0 ? energy : -1.0;
}

/* The functions the tone does not reach, each once. */
static bool callsTheRest(vora_ap_control* control) {
  vora_preset preset;
  vora_preset_issue issue = {VORA_PRESET_REFUSED, 0, 0, VORA_PRESET_GAIN_DB, 0.0f, 0.0f, 0.0f, 0.0f};
  vora_band_info bands[VORA_BAND_COUNT];
  float levels[VORA_AP_BAND_COUNT * 2], gains[VORA_AP_BAND_COUNT * 2];
  unsigned char zeros[VORA_AP_PRESET_PAYLOAD_SIZE] = {0};
  char text[80];
  bool ok = vora_ap_update(control, 48000.0f, kBlock, 1) && vora_ap_get_debug_info(control).processingSuccess;
  vora_ap_log_debug_info(NULL);
  ok = vora_ap_get_band_readout(control, levels, gains) && vora_ap_set_bypassed(false) && ok;
  ok = vora_ap_get_vorafication_intensity() == 1.0f && !vora_ap_get_bypassed() && vora_ap_get_tech_level() == 4 && ok;
  ok = vora_ap_get_wrapper_version() != NULL && vora_ap_create(8000.0f, kBlock, 1) == NULL && ok;
  ok = vora_preset_decode(zeros, &preset) && vora_preset_check(&preset, NULL, 0, NULL) > 0 && ok;
  ok = vora_preset_format_issue(&issue, text, sizeof text) > 0 && vora_preset_field_name(VORA_PRESET_GAIN_DB) != NULL &&
       ok;
  ok = vora_preset_value(&preset, 0, 0, VORA_PRESET_GAIN_DB) != NULL && ok;
  ok = vora_preset_band_layout(48000.0f, bands) == 256 && ok;
  return vora_preset_band_response_db(48000.0f, 5, bands[5].centreHz) > -1.0 && vora_ap_destroy(NULL) && ok;
}

int main(void) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, kBlock, 1);
  vora_ap_set_vorafication_intensity(1.0f);
  const double quiet = toneEnergy(control, -12.0f);
  const double loud = toneEnergy(control, 0.0f);
  const bool rest = callsTheRest(control);
  printf("latency %.0f frames, version %s, energy %.1f at -12 dB, %.1f at 0 dB, other calls %s\n",
         vora_ap_get_processing_latency(control), vora_ap_get_lib_version(), quiet, loud, rest ? "ok" : "failed");
  vora_ap_destroy_control(control);
  return quiet > 1.0 && loud > 2.0 * quiet && rest ? 0 : 1;
}
