// The processing graph of one processor instance: it owns its nodes and the
// connections between them, and runs them block by block in render order.
//
//   host buffers ─► node_GraphInput ─► scratch ─► node ─► ... ─► node_GraphOutput ─► host buffers
//                   (channel buffers)   (shared,    (render in place, result kept in the
//                                        cleared     node's own output buffers, which
//                                        per node)   later nodes copy from)
//
// Outside code never holds a node: it names one by identifier and the graph
// forwards the request. Identifiers are dense from 0 after every reset.
#pragma once

#include "framework/audio_processor.h"
#include "framework/audio_time_stamp.h"
#include "framework/node_owner.h"
#include "graph/connection_table.h"
#include "graph/graph_boundary_nodes.h"
#include "graph/node_connection.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vora {

class Graph : public NodeOwner {
public:
  // The two kinds of control message a node may accept.
  enum class MessageKind : uint32_t { One = 1, Two = 2 };

  Graph();
  ~Graph() override;
  Graph(const Graph&) = delete;
  Graph& operator=(const Graph&) = delete;

  // Topology.
  bool setup(int inputChannels, int outputChannels, int maximumFrames, double sampleRate);
  // Destroys every node and frees everything frame-sized; setup starts over.
  void reset();
  // Frees every node's buffers and the scratch, keeping the nodes and their
  // connections; the next prepare sizes everything again.
  void release();
  std::unique_ptr<AudioProcessor> createNode(unsigned type);
  int addNode(unsigned type, int inputChannels, int outputChannels);
  // Adds a node made outside the factory (any AudioProcessor), as addNode
  // does for a type number; returns its identifier, or -1 for no node.
  int adoptNode(std::unique_ptr<AudioProcessor> node, int inputChannels, int outputChannels);
  uint32_t getInputNodeIdentifier() const { return inputNodeIdentifier_; }
  uint32_t getOutputNodeIdentifier() const { return outputNodeIdentifier_; }
  bool connectNodes(uint32_t sourceNode, uint32_t targetNode);
  bool connectChannels(uint32_t sourceNode, int sourceChannel, uint32_t targetNode, int targetChannel);
  AudioProcessor* findNode(uint32_t identifier) const;
  bool isSetUp() const { return isSetUp_; }
  bool isPrepared() const { return isPrepared_; }
  int getMaximumFrames() const { return maximumFrames_; }
  double getSampleRate() const { return sampleRate_; }
  const ConnectionTable& connections() const { return *connections_; }

  // Render order and processing.
  bool prepare(int ignored, double sampleRate);
  void printRenderSequence() const;
  // Runs one block in place on the host's buffers; allocates nothing.
  bool process(int frames, float** buffers, AudioTimeStamp& timeStamp);
  int getNodeLatency(uint32_t node) const;

  // Forwarding by node identifier (channel numbers a, b select a parameter).
  bool setNodeParameterValue(uint32_t node, ParameterIdentifier id, float value, int a, int b) override;
  float getNodeParameterValue(uint32_t node, ParameterIdentifier id, int a, int b) const;
  AudioProcessorParameter* getNodeParameter(uint32_t node, ParameterIdentifier id, int a, int b) const;
  float getNodeParameterMinimum(uint32_t node, ParameterIdentifier id, int a, int b) const;
  float getNodeParameterMaximum(uint32_t node, ParameterIdentifier id, int a, int b) const;
  std::string getNodeParameterTypeName(uint32_t node, ParameterIdentifier id, int a, int b) const;
  bool isNodeParameterNonFloat(uint32_t node, ParameterIdentifier id, int a, int b) const;
  bool addNodeParameterListener(uint32_t node, ParameterIdentifier id, const AudioProcessorParameter::Callback& f,
                                int a, int b);
  // Every accepted change of the source parameter sets the target to
  // mapping(new value), looking the target up at that moment. Cycles of
  // bindings are not detected.
  bool bindNodeParameters(uint32_t sourceNode, ParameterIdentifier sourceParameter, uint32_t targetNode,
                          ParameterIdentifier targetParameter, const std::function<float(float)>& mapping, int sourceA,
                          int sourceB, int targetA, int targetB);
  bool applyNodePreset(uint32_t node, const AudioProcessorPreset& preset);
  AudioProcessorPreset getNodePreset(uint32_t node) const;
  AudioProcessorProperty* getNodeProperty(uint32_t node, PropertyIdentifier id) const;
  AudioProcessorPropertyValue getNodePropertyValue(uint32_t node, PropertyIdentifier id) const;
  bool setNodePropertyValue(uint32_t node, PropertyIdentifier id, const AudioProcessorPropertyValue& value) override;
  bool setNodeBypassed(uint32_t node, bool bypassed);
  bool postNodeMessage(uint32_t node, MessageKind kind);

private:
  // Precomputed per-block walk: the nodes in render order with their
  // feeders resolved to pointers, so that process() allocates nothing.
  struct Route {
    AudioProcessor* source;
    std::vector<std::pair<int, int>> channels;
  };
  struct Step {
    AudioProcessor* node;
    std::vector<Route> routes;
  };

  void rebuildRenderPlan();

  std::vector<std::unique_ptr<AudioProcessor>> nodes_;
  std::unique_ptr<ConnectionTable> connections_;
  int inputChannels_ = 0;
  int outputChannels_ = 0;
  int maximumFrames_ = 0;
  double sampleRate_ = 0.0;
  bool isSetUp_ = false;
  bool isPrepared_ = false;
  // The widest node's channels of maximum frames, sized anew by every prepare.
  std::vector<std::vector<float>> scratchBuffers_;
  std::vector<float*> scratchPointers_;
  std::vector<char> scratchFed_; // per scratch channel: filled by a route in this step
  uint32_t nextNodeIdentifier_ = 0;
  uint32_t inputNodeIdentifier_ = kNoNode;
  uint32_t outputNodeIdentifier_ = kNoNode;
  std::vector<Step> renderPlan_;
  node_GraphInput* inputNode_ = nullptr; // cached by setup, cleared by reset
  AudioProcessor* outputNode_ = nullptr;
};

} // namespace vora
