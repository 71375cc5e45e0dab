// larkspin C++ interface: one processor instance.
//
// Expected calling order: construct, setup, then in any order
// applyPresetPayload / setVoraficationIntensity / setBypassed, and process
// once per block from the audio callback; update (or setup) again when the
// stream format changes; destroy. Settings made after a successful setup are
// kept and pushed again by every later setup. No exception leaves this class.
#ifndef LARKSPIN_GENERIC_AUDIO_PROCESSOR_H
#define LARKSPIN_GENERIC_AUDIO_PROCESSOR_H

#include <larkspin/vora_ap.h>

namespace vora {

class LARKSPIN_API GenericAudioProcessor {
public:
  // Figures of the last process call; the same record as vora_ap_debug_info.
  using DebugInfo = vora_ap_debug_info;
  struct PrivateImplementation;

  GenericAudioProcessor();
  ~GenericAudioProcessor();
  GenericAudioProcessor(const GenericAudioProcessor&) = delete;
  GenericAudioProcessor& operator=(const GenericAudioProcessor&) = delete;

  bool setup(float sampleRate, int maximumFrames, int channels);
  bool update(float sampleRate, int maximumFrames, int channels);
  bool process(float** channels, int frames);

  bool applyPresetPayload(unsigned char* payload);
  unsigned char* getCurrentPresetPayload();

  bool setBypassed(bool bypassed);
  bool getBypassed() const;
  bool setVoraficationIntensity(float intensity);
  float getVoraficationIntensity() const;

  float getProcessingLatency() const;
  DebugInfo getDebugInfo() const;
  void logDebugInfo() const;
  int getTechLevel() const;
  const char* getLibVersion() const;
  // As vora_ap_get_band_readout: levelsDb and gainsDb each take
  // VORA_AP_BAND_COUNT * 2 floats. Not while process runs.
  bool getBandReadout(float* levelsDb, float* gainsDb) const;

private:
  PrivateImplementation* implementation;
};

} // namespace vora

#endif // LARKSPIN_GENERIC_AUDIO_PROCESSOR_H
