/* Builds a preset with the preset API, applies it, processes a second of a
 * tone through the installed library and checks that the output is finite,
 * carries signal, and that the preset made a difference. */
#include <larkspin/vora_ap.h>
#include <larkspin/vora_preset.h>

#include <math.h>
#include <stdio.h>

enum { kBlock = 256 };

/* Energy of a second of a 764 Hz tone (band 4) through `control`. */
static double toneEnergy(vora_ap_control* control) {
  float left[kBlock], right[kBlock];
  float* channels[2] = {left, right};
  double energy = 0.0;
  for (int block = 0; block < 48000 / kBlock; ++block) {
    for (int i = 0; i < kBlock; ++i) {
      left[i] = right[i] = 0.25f * (float)sin(0.1 * (block * kBlock + i));
    }
    if (!vora_ap_process(control, channels, kBlock)) {
      return -1.0;
    }
    for (int i = 0; i < kBlock; ++i) {
      if (!isfinite(left[i])) {
        return -1.0;
      }
      energy += left[i] * left[i];
    }
  }
  return energy;
}

static int applyPreset(float band4GainDb) {
  vora_preset preset;
  unsigned char payload[VORA_AP_PRESET_PAYLOAD_SIZE];
  vora_preset_default(&preset);
  preset.bands[4].channels[0].gainDb = band4GainDb;
  preset.bands[4].channels[1].gainDb = band4GainDb;
  return vora_preset_encode(&preset, payload, NULL, 0, NULL) == 0 && vora_ap_apply_preset_payload(payload);
}

int main(void) {
  vora_ap_control* control = vora_ap_create_control(48000.0f, kBlock, 1);
  if (control == NULL) {
    return 1;
  }
  vora_ap_set_vorafication_intensity(1.0f);
  if (!applyPreset(-12.0f)) {
    return 2;
  }
  const double quiet = toneEnergy(control);
  if (!applyPreset(0.0f)) {
    return 2;
  }
  const double loud = toneEnergy(control);
  printf("latency %.0f frames, version %s, energy %.1f at -12 dB, %.1f at 0 dB\n",
         vora_ap_get_processing_latency(control), vora_ap_get_lib_version(), quiet, loud);
  vora_ap_destroy_control(control);
  if (quiet < 0.0 || loud < 0.0) {
    return 3;
  }
  return quiet > 1.0 && loud > 2.0 * quiet ? 0 : 4;
}
