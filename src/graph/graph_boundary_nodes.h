// The two boundary nodes every graph has: the input node brings the host's
// samples in, the output node is where Graph::process reads the result.
#pragma once

#include "framework/audio_processor.h"

#include <vector>

namespace vora {

class node_GraphInput : public AudioProcessor {
public:
  ~node_GraphInput() override;
  bool onSetup(int numInputs, int numOutputs, int maxFrames, double sampleRate) override;
  void process(int numInputs, int numOutputs, int frames, float** buffers, AudioTimeStamp& timeStamp) override;
  void releaseResources() override;

  // Copies the host's samples in; ignored (silently) unless buffers exist
  // and `channels` equals the node's channel count.
  void loadHostBuffers(int channels, int frames, float** host);

private:
  int channelCount_ = 0;
  std::vector<std::vector<float>> channelBuffers_;
};

class node_GraphOutput : public AudioProcessor {
public:
  ~node_GraphOutput() override;
  bool onSetup(int numInputs, int numOutputs, int maxFrames, double sampleRate) override;
  // Does nothing: render passes the node's inputs on to its output buffers.
  void process(int numInputs, int numOutputs, int frames, float** buffers, AudioTimeStamp& timeStamp) override;
  void releaseResources() override;
};

} // namespace vora
