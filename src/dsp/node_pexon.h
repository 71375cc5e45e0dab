// The graph node that carries the vorafier engine: it declares the
// vorafier parameters and properties, sets the engine up for the graph's
// rate, re-blocks the host's audio into hops, and converts between one and
// two channels where its input and output counts differ.
//
// Two sides, so that one control thread may change the node while one audio
// thread renders it. The parameter table and the conversion of a preset
// belong to the control side; each accepted change of the mix, the bypass
// flag or the preset publishes a complete LiveSettings record. The audio
// side takes the newest record at the start of render, so a host block (and
// every hop in it) runs with one consistent setting, and changes arrive in
// the order they were made. A record not yet taken is replaced by the next.
#pragma once

#include "dsp/payload_codec.h"
#include "dsp/pex_vorafier.h"
#include "framework/audio_processor.h"
#include "framework/latest_value_mailbox.h"

#include <cstdint>

namespace vora {

class node_pexon : public AudioProcessor {
public:
  static constexpr float kTechLevel = 4.0f;
  static constexpr const char* kLibraryVersion = "pex-1.5.0-ne10_neon";

  // What the audio side runs with. The engine payload is the node's table
  // already converted and saturated; a new generation marks a new preset.
  struct LiveSettings {
    float mix = 1.0f;
    bool bypassed = false;
    uint64_t presetGeneration = 0; // 0: no preset yet; 64 bits never wrap
    unsigned char enginePayload[kPresetPayloadSize] = {};
  };

  node_pexon();
  ~node_pexon() override;

  // Takes the newest published settings, then renders as the base class does.
  bool render(int numInputs, int numOutputs, int frames, float** buffers, AudioTimeStamp& timeStamp) override;

  int getLatency() override;
  bool onSetup(int numInputs, int numOutputs, int maxFrames, double sampleRate) override;
  void processBlock(int numInputs, int numOutputs, int blockSize, float** blocks, AudioTimeStamp& timeStamp) override;
  // Converts the node's current parameter values to an engine payload and
  // publishes it; the engine takes it at the start of the next render.
  bool presetApplied() override;
  void releaseResources() override;

  // Audio side only (the thread that renders).
  const PexVorafier& engine() const { return engine_; }
  const LiveSettings& liveSettings() const { return live_.latest(); }

private:
  void publishSettings();

  PexVorafier engine_;
  LiveSettings published_; // control side
  LatestValueMailbox<LiveSettings> live_;
  uint64_t enginePresetGeneration_ = 0; // audio side
};

} // namespace vora
