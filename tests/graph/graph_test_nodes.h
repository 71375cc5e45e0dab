// Small nodes for graph tests.
#pragma once

#include "framework/audio_processor.h"

namespace larkspin_test {

// Multiplies its inputs by its gain parameter (identifier 1 at 0, 0).
class GainNode : public vora::AudioProcessor {
public:
  GainNode() {
    addParameter(vora::ParameterIdentifier::vorafier_gain, 1.0f, -10.0f, 10.0f, 0, 0);
    addParameter(vora::ParameterIdentifier::vorafier_mix_ratio, 0.0f, 0.0f, 1.0f, 0, 0);
  }
  void process(int, int numOutputs, int frames, float** buffers, vora::AudioTimeStamp&) override {
    const float gain = getParameter(vora::ParameterIdentifier::vorafier_gain, 0, 0)->getValue();
    for (int ch = 0; ch < numOutputs; ++ch) {
      for (int i = 0; i < frames; ++i) {
        buffers[ch][i] *= gain;
      }
    }
  }
};

// Re-blocks into blocks of 48 and negates them.
class NegatingBlockNode : public vora::AudioProcessor {
public:
  bool onSetup(int, int, int, double) override {
    setInternalBlockSize(48);
    return true;
  }
  void processBlock(int, int numOutputs, int blockSize, float** blocks, vora::AudioTimeStamp&) override {
    for (int ch = 0; ch < numOutputs; ++ch) {
      for (int i = 0; i < blockSize; ++i) {
        blocks[ch][i] = -blocks[ch][i];
      }
    }
  }
  int getLatency() override { return 48; }
};

} // namespace larkspin_test
