// The graph node that carries the vorafier engine: it declares the
// vorafier parameters and properties, sets the engine up for the graph's
// rate, re-blocks the host's audio into hops, and converts between one and
// two channels where its input and output counts differ.
#pragma once

#include "dsp/pex_vorafier.h"
#include "framework/audio_processor.h"

namespace vora {

class node_pexon : public AudioProcessor {
public:
  static constexpr float kTechLevel = 4.0f;
  static constexpr const char* kLibraryVersion = "pex-1.5.0-ne10_neon";

  node_pexon();
  ~node_pexon() override;

  int getLatency() override;
  bool onSetup(int numInputs, int numOutputs, int maxFrames, double sampleRate) override;
  void processBlock(int numInputs, int numOutputs, int blockSize, float** blocks, AudioTimeStamp& timeStamp) override;
  // Hands the node's current parameter values to the engine, as a payload.
  bool presetApplied() override;
  void releaseResources() override;

  const PexVorafier& engine() const { return engine_; }

private:
  PexVorafier engine_;
};

} // namespace vora
