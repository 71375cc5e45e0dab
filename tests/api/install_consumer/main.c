/* Processes a second of a tone through the installed library and checks
 * that the output is finite and carries signal. */
#include <larkspin/vora_ap.h>

#include <math.h>
#include <stdio.h>

int main(void) {
  enum { kBlock = 256 };
  vora_ap_control* control = vora_ap_create_control(48000.0f, kBlock, 1);
  if (control == NULL) {
    return 1;
  }
  vora_ap_set_vorafication_intensity(1.0f);
  float left[kBlock], right[kBlock];
  float* channels[2] = {left, right};
  double energy = 0.0;
  for (int block = 0; block < 48000 / kBlock; ++block) {
    for (int i = 0; i < kBlock; ++i) {
      left[i] = right[i] = 0.25f * (float)sin(0.1 * (block * kBlock + i));
    }
    if (!vora_ap_process(control, channels, kBlock)) {
      return 2;
    }
    for (int i = 0; i < kBlock; ++i) {
      if (!isfinite(left[i])) {
        return 3;
      }
      energy += left[i] * left[i];
    }
  }
  printf("latency %.0f frames, version %s, energy %.1f\n", vora_ap_get_processing_latency(control),
         vora_ap_get_lib_version(), energy);
  vora_ap_destroy_control(control);
  return energy > 1.0 ? 0 : 4;
}
