// larkspin C++ interface: one processor instance.
//
// Expected calling order: construct, setup, then in any order
// applyPresetPayload / setVoraficationIntensity / setBypassed, and process
// once per block from the audio callback; update (or setup) again when the
// stream format changes; destroy. Settings made after a successful setup are
// kept and pushed again by every later setup. No exception leaves this class.
//
// Threads: while one audio thread runs process, one control thread may call
// applyPresetPayload, getCurrentPresetPayload, setBypassed, getBypassed,
// setVoraficationIntensity, getVoraficationIntensity, getProcessingLatency,
// getDebugInfo, getBandReadout, logDebugInfo and setMessageHook. Changes
// take effect at the start of the next process call, for the whole block,
// in the order they were made; the values a preset brings reach the audio
// thread together (which values applyPresetPayload takes: see
// vora_ap_apply_preset_payload); changes made between two process calls
// amount to their last values (a pending setting is replaced by a newer
// one, never refused for lack of room). Neither thread waits for the other
// and process allocates, locks and prints nothing. Setter results and getter values are those of a
// single-threaded host: the setting last made (a refused value reads back
// as the value in force before). getDebugInfo and getBandReadout may be
// called from any number of threads and return one whole record of a
// finished call (of a finished hop). setup, update, construction and
// destruction must not run while any other member function runs.
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
  // VORA_AP_BAND_COUNT * 2 floats.
  bool getBandReadout(float* levelsDb, float* gainsDb) const;

  // This instance's diagnostic lines go to `hook` (null: standard output),
  // as vora_ap_set_message_hook describes; they arrive on the thread calling
  // setup, update, applyPresetPayload, setBypassed,
  // setVoraficationIntensity or logDebugInfo, during that call.
  using MessageHook = vora_ap_message_hook;
  void setMessageHook(MessageHook hook, void* context);

private:
  PrivateImplementation* implementation;
};

} // namespace vora

#endif // LARKSPIN_GENERIC_AUDIO_PROCESSOR_H
