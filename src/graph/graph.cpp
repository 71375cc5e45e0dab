#include "graph/graph.h"

#include "framework/count.h"
#include "framework/message_sink.h"
#include "graph/node_factory.h"

#include <algorithm>
#include <cstring>
#include <numeric>

namespace vora {

Graph::Graph() : connections_(std::make_unique<ConnectionTable>()) {}

Graph::~Graph() {
  reset();
}

bool Graph::setup(int inputChannels, int outputChannels, int maximumFrames, double sampleRate) {
  if (maximumFrames < 1 || !(sampleRate >= 1.0)) {
    return false;
  }
  if (isSetUp_) {
    return true;
  }
  sampleRate_ = sampleRate;
  inputChannels_ = inputChannels;
  outputChannels_ = outputChannels;
  maximumFrames_ = maximumFrames;

  if (auto input = createNode(static_cast<unsigned>(NodeType::GraphInput))) {
    inputNodeIdentifier_ = input->getIdentifier();
    inputNode_ = static_cast<node_GraphInput*>(input.get());
    nodes_.push_back(std::move(input));
    nodes_.back()->setup(inputChannels, inputChannels, maximumFrames, sampleRate);
  }
  if (auto output = createNode(static_cast<unsigned>(NodeType::GraphOutput))) {
    outputNodeIdentifier_ = output->getIdentifier();
    outputNode_ = output.get();
    nodes_.push_back(std::move(output));
    nodes_.back()->setup(outputChannels, outputChannels, maximumFrames, sampleRate);
  }
  isSetUp_ = true;
  return true;
}

void Graph::reset() {
  isSetUp_ = false;
  isPrepared_ = false;
  renderPlan_.clear();
  inputNode_ = nullptr;
  outputNode_ = nullptr;
  for (auto& node : nodes_) {
    node->release();
  }
  connections_->clear();
  nodes_.clear();
  nextNodeIdentifier_ = 0;
  scratchBuffers_ = {}; // the frame-sized part; prepare rebuilds the rest
  inputChannels_ = outputChannels_ = 0;
  maximumFrames_ = 0;
  sampleRate_ = 0.0;
}

void Graph::release() {
  isPrepared_ = false;
  for (auto& node : nodes_) {
    node->release();
  }
  scratchBuffers_ = {};
}

std::unique_ptr<AudioProcessor> Graph::createNode(unsigned type) {
  std::unique_ptr<AudioProcessor> node = makeNode(type);
  if (node) {
    node->setIdentifier(nextNodeIdentifier_++);
    node->setGraph(this);
  }
  return node;
}

int Graph::addNode(unsigned type, int inputChannels, int outputChannels) {
  if (type < 2) {
    return -1; // the boundary nodes are made by setup only
  }
  return adoptNode(createNode(type), inputChannels, outputChannels);
}

int Graph::adoptNode(std::unique_ptr<AudioProcessor> node, int inputChannels, int outputChannels) {
  if (!node) {
    return -1;
  }
  if (node->getGraph() != this) {
    node->setIdentifier(nextNodeIdentifier_++);
    node->setGraph(this);
  }
  AudioProcessor* added = node.get();
  nodes_.push_back(std::move(node));
  added->setup(inputChannels, outputChannels, maximumFrames_, sampleRate_); // prepare sets it up again
  return static_cast<int>(added->getIdentifier());
}

AudioProcessor* Graph::findNode(uint32_t identifier) const {
  // The last node with the identifier wins.
  for (auto it = nodes_.rbegin(); it != nodes_.rend(); ++it) {
    if ((*it)->getIdentifier() == identifier) {
      return it->get();
    }
  }
  return nullptr;
}

bool Graph::connectNodes(uint32_t sourceNode, uint32_t targetNode) {
  const AudioProcessor* source = findNode(sourceNode);
  if (nodes_.empty() || source == nullptr || source->getNumOutputs() < 1) {
    return true; // nothing to connect is not an error
  }
  bool connected = true;
  for (int c = 0; c < source->getNumOutputs(); ++c) {
    connected = connectChannels(sourceNode, c, targetNode, c) && connected;
  }
  return connected;
}

bool Graph::connectChannels(uint32_t sourceNode, int sourceChannel, uint32_t targetNode, int targetChannel) {
  const AudioProcessor* source = findNode(sourceNode);
  const AudioProcessor* target = findNode(targetNode);
  if (source == nullptr || target == nullptr) {
    return false;
  }
  const int sourceOutputs = source->getNumOutputs();
  const int targetInputs = target->getNumInputs();
  if (sourceOutputs == 0 || targetChannel >= targetInputs || sourceChannel >= sourceOutputs || targetInputs == 0 ||
      sourceChannel < 0 || targetChannel < 0) {
    return false;
  }
  // An overloaded input is refused on the console only; the call still
  // succeeds.
  connections_->add(NodeConnection{sourceNode, targetNode, {{sourceChannel, targetChannel}}});
  if (isPrepared_) {
    rebuildRenderPlan();
  }
  return true;
}

bool Graph::prepare(int, double sampleRate) {
  if (!isSetUp_) {
    return false;
  }
  // Identifiers are dense from 0 after a reset, so counting numbers are the
  // node identifiers.
  std::vector<uint32_t> candidates(nodes_.size());
  std::iota(candidates.begin(), candidates.end(), 0u);
  connections_->computeRenderSequence(candidates);
  sampleRate_ = sampleRate;

  bool allSetUp = true;
  int widest{}; // the most channels of any node
  for (auto& node : nodes_) {
    allSetUp = node->setup(node->getNumInputs(), node->getNumOutputs(), maximumFrames_, sampleRate) && allSetUp;
    widest = std::max({widest, node->getNumInputs(), node->getNumOutputs()});
  }
  if (!allSetUp) {
    isPrepared_ = false;
    return false;
  }
  scratchBuffers_.assign(countOf(widest), std::vector<float>(countOf(maximumFrames_)));
  scratchPointers_.clear();
  for (auto& buffer : scratchBuffers_) {
    scratchPointers_.push_back(buffer.data());
  }
  scratchFed_.resize(static_cast<size_t>(widest)); // cleared at each step that uses it
  rebuildRenderPlan();
  isPrepared_ = true;
  return true;
}

void Graph::rebuildRenderPlan() {
  renderPlan_.clear();
  connections_->forEachInRenderOrder([this](uint32_t id, const std::vector<NodeConnection>& incoming) {
    Step step{findNode(id), {}};
    if (step.node == nullptr) {
      return;
    }
    for (const NodeConnection& connection : incoming) {
      if (AudioProcessor* source = findNode(connection.sourceNode)) {
        step.routes.push_back(Route{source, connection.channels});
      }
    }
    renderPlan_.push_back(std::move(step));
  });
}

void Graph::printRenderSequence() const {
  emitLine("***** render sequence:");
  for (uint32_t node : connections_->renderSequence()) {
    if (node != kRenderRoot) {
      emitFormattedLine("*** node with identifier %d", static_cast<int>(node));
    }
  }
}

bool Graph::process(int frames, float** buffers, AudioTimeStamp& timeStamp) {
  if (!isSetUp_ || !isPrepared_ || frames > maximumFrames_ || frames < 0 || buffers == nullptr) {
    return false;
  }
  // A host that hands over a missing channel gets a refusal, not a crash.
  for (int c = 0; c < std::max(inputChannels_, outputChannels_); ++c) {
    if (buffers[c] == nullptr) {
      return false;
    }
  }
  const size_t bytes = static_cast<size_t>(frames) * sizeof(float);

  node_GraphInput* input = inputNode_;
  AudioProcessor* output = outputNode_;
  if (input == nullptr || output == nullptr) {
    return false;
  }
  input->loadHostBuffers(input->getNumInputs(), frames, buffers);

  for (const Step& step : renderPlan_) {
    const int inputs = step.node->getNumInputs();
    const int outputs = step.node->getNumOutputs();
    // A copy, never a sum: each target channel has at most one feeder.
    // Channels that none fills read silence.
    std::fill_n(scratchFed_.begin(), inputs, char{0});
    for (const Route& route : step.routes) {
      float** sourceBuffers = route.source->getOutputBuffers();
      if (sourceBuffers == nullptr) {
        continue;
      }
      for (const auto& [sourceChannel, targetChannel] : route.channels) {
        std::memcpy(scratchPointers_[static_cast<size_t>(targetChannel)], sourceBuffers[sourceChannel], bytes);
        scratchFed_[static_cast<size_t>(targetChannel)] = 1;
      }
    }
    for (int c = 0; c < inputs; ++c) {
      if (scratchFed_[static_cast<size_t>(c)] == 0) {
        std::memset(scratchPointers_[static_cast<size_t>(c)], 0, bytes);
      }
    }
    step.node->render(inputs, outputs, frames, scratchPointers_.data(), timeStamp);
  }

  if (float** result = output->getOutputBuffers()) {
    for (int c = 0; c < output->getNumOutputs(); ++c) {
      std::memcpy(buffers[c], result[c], bytes);
    }
  }
  return true;
}

int Graph::getNodeLatency(uint32_t node) const {
  AudioProcessor* found = findNode(node);
  return found != nullptr ? found->getLatency() : 0;
}

} // namespace vora
