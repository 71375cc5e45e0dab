/* Builds a preset with the preset API, applies it, processes a second of a
 * tone through the installed library and checks that the output is finite,
 * carries signal, and that the preset made a difference. */
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

int main(void) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, kBlock, 1);
  vora_ap_set_vorafication_intensity(1.0f);
  const double quiet = toneEnergy(control, -12.0f);
  const double loud = toneEnergy(control, 0.0f);
  printf("latency %.0f frames, version %s, energy %.1f at -12 dB, %.1f at 0 dB\n",
         vora_ap_get_processing_latency(control), vora_ap_get_lib_version(), quiet, loud);
  vora_ap_destroy_control(control);
  return quiet > 1.0 && loud > 2.0 * quiet ? 0 : 1;
}
