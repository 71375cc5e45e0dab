#include "graph/graph_boundary_nodes.h"

#include "framework/count.h"

#include <algorithm>

namespace vora {

node_GraphInput::~node_GraphInput() = default;

bool node_GraphInput::onSetup(int numInputs, int numOutputs, int maxFrames, double) {
  if (numInputs != numOutputs) {
    return false;
  }
  channelCount_ = numInputs;
  channelBuffers_.assign(countOf(channelCount_), std::vector<float>(countOf(maxFrames)));
  return true;
}

void node_GraphInput::process(int, int, int frames, float** buffers, AudioTimeStamp&) {
  const size_t count = countOf(frames);
  for (size_t c = 0; c < channelBuffers_.size(); ++c) {
    std::copy_n(channelBuffers_[c].begin(), std::min(count, channelBuffers_[c].size()), buffers[c]);
  }
}

void node_GraphInput::releaseResources() {
  channelBuffers_.clear();
}

void node_GraphInput::loadHostBuffers(int channels, int frames, float** host) {
  if (channelBuffers_.empty() || channels != channelCount_ || channels < 1) {
    return;
  }
  const size_t count = countOf(frames);
  for (size_t c = 0; c < channelBuffers_.size(); ++c) {
    std::copy_n(host[c], std::min(count, channelBuffers_[c].size()), channelBuffers_[c].begin());
  }
}

node_GraphOutput::~node_GraphOutput() = default;

bool node_GraphOutput::onSetup(int numInputs, int numOutputs, int, double) {
  return numInputs == numOutputs;
}

void node_GraphOutput::process(int, int, int, float**, AudioTimeStamp&) {}

void node_GraphOutput::releaseResources() {}

} // namespace vora
