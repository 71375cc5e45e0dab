#include "graph/graph.h"

#include "support/allocation_counter.h"
#include "support/capture_stdout.h"

#include <gtest/gtest.h>

#include <memory>
#include <numeric>
#include <vector>

namespace vora {
namespace {

using larkspin_test::captureStdout;
using Pairs = std::vector<std::pair<int, int>>;

// Multiplies its inputs by its gain parameter (identifier 1 at 0, 0); takes
// messages of kind 1 only.
class GainNode : public AudioProcessor {
public:
  GainNode() {
    addParameter(ParameterIdentifier::vorafier_gain, 1.0f, -10.0f, 10.0f, 0, 0);
    addParameter(ParameterIdentifier::vorafier_mix_ratio, 0.0f, 0.0f, 1.0f, 0, 0);
  }
  bool acceptsMessage(uint32_t kind) override { return kind == 1; }
  void process(int, int numOutputs, int frames, float** buffers, AudioTimeStamp&) override {
    const float gain = getParameter(ParameterIdentifier::vorafier_gain, 0, 0)->getValue();
    for (int ch = 0; ch < numOutputs; ++ch) {
      for (int i = 0; i < frames; ++i) {
        buffers[ch][i] *= gain;
      }
    }
  }
};

// Re-blocks into blocks of 48 and negates them.
class NegatingBlockNode : public AudioProcessor {
public:
  bool onSetup(int, int, int, double) override {
    setInternalBlockSize(48);
    return true;
  }
  void processBlock(int, int numOutputs, int blockSize, float** blocks, AudioTimeStamp&) override {
    for (int ch = 0; ch < numOutputs; ++ch) {
      for (int i = 0; i < blockSize; ++i) {
        blocks[ch][i] = -blocks[ch][i];
      }
    }
  }
  int getLatency() override { return 48; }
  void releaseResources() override { ++releases; }
  static inline int releases = 0;
};

uint32_t addGain(Graph& graph, int channels) {
  return static_cast<uint32_t>(graph.adoptNode(std::make_unique<GainNode>(), channels, channels));
}

TEST(GraphTopologyTest, FactoryTypesAndSetup) {
  Graph graph;
  EXPECT_EQ(graph.getMaximumFrames(), 0); // nothing reported before setup
  EXPECT_FALSE(graph.setup(2, 2, 0, 48000.0));
  EXPECT_FALSE(graph.setup(2, 2, 256, 0.5));
  ASSERT_TRUE(graph.setup(2, 2, 256, 48000.0));
  EXPECT_TRUE(graph.setup(1, 1, 64, 96000.0)); // already set up: keeps the first values
  EXPECT_EQ(graph.getMaximumFrames(), 256);
  EXPECT_EQ(graph.getSampleRate(), 48000.0);
  EXPECT_EQ(graph.getInputNodeIdentifier(), 0u);
  EXPECT_EQ(graph.getOutputNodeIdentifier(), 1u);

  // The boundary types are refused quietly, unknown ones with a line.
  for (unsigned type : {0u, 1u, 2u, 4u, 99u}) {
    int id = 0;
    EXPECT_EQ(captureStdout([&] { id = graph.addNode(type, 2, 2); }).empty(), type < 2) << type;
    EXPECT_EQ(id, -1);
  }
  EXPECT_EQ(graph.addNode(3, 2, 2), 2); // the dynamics node, numbered next

  graph.reset();
  EXPECT_EQ(graph.getSampleRate(), 0.0);
  EXPECT_EQ(graph.getMaximumFrames(), 0);
  ASSERT_TRUE(graph.setup(1, 1, 64, 96000.0));
  EXPECT_EQ(addGain(graph, 1), 2u);       // identifiers start again from 0
  ASSERT_TRUE(graph.prepare(0, 44100.0)); // the rate given to prepare wins
  EXPECT_EQ(graph.getSampleRate(), 44100.0);
}

TEST(GraphTopologyTest, ConnectionsMergeAndOverloadIsRefusedOnTheConsole) {
  Graph graph;
  graph.setup(2, 2, 256, 48000.0);
  const uint32_t gain = addGain(graph, 2);
  EXPECT_TRUE(graph.connectNodes(0, gain));
  ASSERT_EQ(graph.connections().list().size(), 1u);
  EXPECT_EQ(graph.connections().list()[0].channels, (Pairs{{0, 0}, {1, 1}}));

  // Connecting the same nodes again overloads both channels.
  bool result = false;
  std::string out = captureStdout([&] { result = graph.connectNodes(0, gain); });
  EXPECT_TRUE(result);
  const auto overload = [](int channel) { return "overloading input channel " + std::to_string(channel); };
  EXPECT_NE(out.find(overload(0)), std::string::npos);
  EXPECT_NE(out.find(overload(1)), std::string::npos);
  // A different source on a taken channel: refused, table unchanged.
  const uint32_t other = addGain(graph, 2);
  out = captureStdout([&] { result = graph.connectChannels(other, 0, gain, 0); });
  EXPECT_TRUE(result);
  EXPECT_NE(out.find(overload(0)), std::string::npos);
  EXPECT_EQ(graph.connections().list().size(), 1u);

  // Crossed pairs between the same two nodes merge into one entry.
  EXPECT_TRUE(graph.connectChannels(gain, 1, other, 0));
  EXPECT_TRUE(graph.connectChannels(gain, 0, other, 1));
  ASSERT_EQ(graph.connections().list().size(), 2u);
  EXPECT_EQ(graph.connections().list()[1].channels, (Pairs{{1, 0}, {0, 1}}));

  EXPECT_FALSE(graph.connectChannels(gain, 2, other, 0)); // no such source channel
  EXPECT_FALSE(graph.connectChannels(gain, 0, other, 2)); // no such target channel
  EXPECT_FALSE(graph.connectChannels(gain, -1, other, 0));
  EXPECT_FALSE(graph.connectChannels(gain, 0, other, -1));
  EXPECT_FALSE(graph.connectChannels(77, 0, other, 0)); // no such node
  EXPECT_TRUE(graph.connectNodes(77, other));           // unknown source: nothing to do
}

TEST(RenderSequenceTest, OrdersRootsChainsIsolatedNodesAndCycles) {
  Graph graph;
  graph.setup(1, 1, 64, 48000.0);
  ASSERT_TRUE(graph.prepare(0, 48000.0));
  EXPECT_EQ(graph.connections().renderSequence(), (std::vector<uint32_t>{101010, 1, 0}));

  graph.reset();
  EXPECT_TRUE(graph.connections().renderSequence().empty());
  graph.setup(1, 1, 64, 48000.0);
  const uint32_t middle = addGain(graph, 1);
  graph.connectNodes(0, middle);
  graph.connectNodes(middle, 1);
  // Two nodes feeding each other and fed by nobody never run.
  const uint32_t a = addGain(graph, 1), b = addGain(graph, 1);
  graph.connectNodes(a, b);
  graph.connectNodes(b, a);
  ASSERT_TRUE(graph.prepare(0, 48000.0));
  EXPECT_EQ(graph.connections().renderSequence(), (std::vector<uint32_t>{101010, 0, 2, 1}));
  EXPECT_NE(captureStdout([&] { graph.printRenderSequence(); }).find("sequence:\n*** node with identifier 0\n"),
            std::string::npos);
  ASSERT_TRUE(graph.prepare(0, 48000.0));
  EXPECT_EQ(graph.connections().renderSequence(), (std::vector<uint32_t>{101010, 0, 2, 1}));
}

TEST(RenderSequenceTest, CycleReachableFromARootIsVisitedOnce) {
  ConnectionTable table;
  table.add({0, 2, {{0, 0}}});
  table.add({2, 3, {{0, 0}}});
  table.add({3, 2, {{0, 1}}}); // closes a cycle through input 1 of node 2
  table.add({3, 1, {{0, 0}}});
  table.computeRenderSequence({0, 1, 2, 3});
  EXPECT_EQ(table.renderSequence(), (std::vector<uint32_t>{101010, 0, 2, 3, 1}));
  EXPECT_EQ(table.list().size(), 4u); // the root's scaffolding is gone again
  table.add({4, 0, {{0, 0}}});        // a new root ahead of all: the order starts afresh
  table.computeRenderSequence({0, 1, 2, 3, 4});
  EXPECT_EQ(table.renderSequence(), (std::vector<uint32_t>{101010, 4, 0, 2, 3, 1}));
  table.clear();
  table.computeRenderSequence({0});
  EXPECT_EQ(table.renderSequence(), (std::vector<uint32_t>{101010, 0}));
}

struct StereoBlock {
  explicit StereoBlock(int frames) : left(static_cast<size_t>(frames)), right(static_cast<size_t>(frames)) {
    std::iota(left.begin(), left.end(), 1.0f);
    std::iota(right.begin(), right.end(), -500.0f);
  }
  float** buffers() {
    pointers[0] = left.data();
    pointers[1] = right.data();
    return pointers;
  }
  std::vector<float> left, right;
  float* pointers[2] = {};
};

TEST(GraphProcessTest, PassThroughLimitsAndUntouchedBuffers) {
  Graph graph;
  graph.setup(2, 2, 256, 48000.0);
  AudioTimeStamp timeStamp{0, true};
  StereoBlock block(257);
  const StereoBlock original(257);
  EXPECT_FALSE(graph.process(256, block.buffers(), timeStamp)); // not prepared yet
  graph.connectNodes(0, 1);
  ASSERT_TRUE(graph.prepare(0, 48000.0));
  EXPECT_FALSE(graph.process(257, block.buffers(), timeStamp));
  EXPECT_EQ(block.left, original.left);
  EXPECT_TRUE(graph.process(256, block.buffers(), timeStamp));
  EXPECT_EQ(block.left, original.left); // exact pass-through
  EXPECT_EQ(block.right, original.right);
  EXPECT_TRUE(graph.process(0, block.buffers(), timeStamp));
  graph.release();
  EXPECT_FALSE(graph.process(256, block.buffers(), timeStamp)); // released: prepared again first

  graph.reset();
  ASSERT_TRUE(graph.setup(1, 2, 256, 48000.0));
  ASSERT_TRUE(graph.prepare(0, 48000.0));
  float* missing[2] = {block.left.data(), nullptr}; // a missing output channel is refused, not written
  EXPECT_FALSE(graph.process(256, missing, timeStamp));
}

TEST(GraphProcessTest, UnconnectedInputReadsZerosAndLateRoutesTakePart) {
  Graph graph;
  graph.setup(2, 2, 64, 48000.0);
  const uint32_t gain = addGain(graph, 2);
  graph.connectChannels(0, 0, gain, 0); // channel 1 of the gain node is not fed
  graph.connectNodes(gain, 1);
  ASSERT_TRUE(graph.prepare(0, 48000.0));
  StereoBlock block(64);
  AudioTimeStamp timeStamp{0, true};
  ASSERT_TRUE(graph.process(64, block.buffers(), timeStamp));
  EXPECT_EQ(block.left[5], 6.0f);
  EXPECT_EQ(block.right, std::vector<float>(64, 0.0f)); // scratch 1 held the input's samples a moment before
  // A route added after prepare between nodes already in the order takes part at once.
  graph.connectChannels(0, 1, gain, 1);
  StereoBlock fed(64);
  ASSERT_TRUE(graph.process(64, fed.buffers(), timeStamp));
  EXPECT_EQ(fed.right[5], -495.0f);
}

// Every node of the chain runs on every call, without allocating; keeping
// the re-blocked stream whole is the node's own business.
TEST(GraphProcessTest, ChainOfTestNodesRunsWithoutAllocating) {
  Graph graph;
  graph.setup(2, 2, 100, 48000.0);
  const uint32_t gain = addGain(graph, 2);
  const uint32_t negate = static_cast<uint32_t>(graph.adoptNode(std::make_unique<NegatingBlockNode>(), 2, 2));
  graph.connectNodes(0, gain);
  graph.connectNodes(gain, negate);
  graph.connectNodes(negate, 1);
  ASSERT_TRUE(graph.prepare(0, 48000.0));
  ASSERT_TRUE(graph.setNodeParameterValue(gain, ParameterIdentifier::vorafier_gain, 3.0f, 0, 0));
  EXPECT_EQ(graph.getNodeLatency(negate), 48);
  EXPECT_EQ(graph.getNodeLatency(gain), 0); // a node without delay reports none

  AudioTimeStamp timeStamp{0, true};
  StereoBlock block(100);
  larkspin_test::AllocationScope scope;
  for (int call = 0; call < 10; ++call) {
    std::fill(block.left.begin(), block.left.end(), 1.0f);
    std::fill(block.right.begin(), block.right.end(), 0.5f);
    ASSERT_TRUE(graph.process(100, block.buffers(), timeStamp));
  }
  EXPECT_EQ(scope.allocations(), 0u);
  // Past the leading silence of the re-blocking (under one block of 48).
  EXPECT_EQ(std::vector<float>(block.left.begin() + 48, block.left.end()), std::vector<float>(52, -3.0f));
  EXPECT_EQ(std::vector<float>(block.right.begin() + 48, block.right.end()), std::vector<float>(52, -1.5f));
}

// Whatever is sized by the frame count is given back by a release (the
// nodes stay) and by a reset (they go): what the graph still holds then is
// the same for 64 frames as for 4096.
TEST(GraphProcessTest, ReleaseAndResetGiveBackEverythingFrameSized) {
  const auto heldAfter = [](int maximumFrames, bool reset) {
    StereoBlock block(maximumFrames);
    AudioTimeStamp timeStamp{0, true};
    const larkspin_test::LiveBytesScope scope;
    Graph graph;
    graph.setup(2, 2, maximumFrames, 48000.0);
    const uint32_t negate = static_cast<uint32_t>(graph.adoptNode(std::make_unique<NegatingBlockNode>(), 2, 2));
    graph.connectNodes(0, negate);
    graph.connectNodes(negate, 1);
    EXPECT_TRUE(graph.prepare(0, 48000.0));
    EXPECT_TRUE(graph.process(maximumFrames, block.buffers(), timeStamp));
    NegatingBlockNode::releases = 0;
    reset ? graph.reset() : graph.release();
    EXPECT_EQ(NegatingBlockNode::releases, 1); // a reset, too, lets each node release before it goes
    return scope.bytes();
  };
  EXPECT_EQ(heldAfter(64, false), heldAfter(4096, false));
  EXPECT_EQ(heldAfter(64, true), heldAfter(4096, true));
}

TEST(GraphForwardingTest, BindingsCarryMappedValues) {
  Graph graph;
  graph.setup(1, 1, 64, 48000.0);
  const uint32_t source = addGain(graph, 1), target = addGain(graph, 1);
  const auto mix = ParameterIdentifier::vorafier_mix_ratio;
  const auto gain = ParameterIdentifier::vorafier_gain;
  EXPECT_FALSE(graph.bindNodeParameters(
      source, mix, target, ParameterIdentifier::vorafier_bypass, [](float v) { return v; }, 0, 0, 0, 0));
  EXPECT_EQ(graph.getNodeParameter(source, mix, 0, 0)->bindingCount(), 0u);

  ASSERT_TRUE(graph.bindNodeParameters(
      source, gain, target, gain, [](float v) { return v * 2.0f; }, 0, 0, 0, 0));
  EXPECT_TRUE(graph.setNodeParameterValue(source, gain, 0.25f, 0, 0));
  EXPECT_EQ(graph.getNodeParameterValue(target, gain, 0, 0), 0.5f);
  captureStdout([&] { graph.setNodeParameterValue(source, gain, 6.0f, 0, 0); });
  EXPECT_EQ(graph.getNodeParameterValue(target, gain, 0, 0), 0.5f); // 12 is out of range

  EXPECT_EQ(graph.getNodeParameterValue(target, gain, -1, 0), 0.0f);
  EXPECT_EQ(graph.getNodeParameterMinimum(42, gain, 0, 0), 0.0f);
  EXPECT_FALSE(graph.setNodeParameterValue(42, gain, 1.0f, 0, 0));
  EXPECT_FALSE(graph.postNodeMessage(target, Graph::MessageKind::Two));
  EXPECT_FALSE(graph.postNodeMessage(42, Graph::MessageKind::One));
  // 16-byte messages (20 bytes with the ring's length word) fit while a
  // quarter of the free space holds one: 6653 of them in 133,120 bytes.
  int accepted = 0;
  while (accepted < 10000 && graph.postNodeMessage(target, Graph::MessageKind::One)) {
    ++accepted;
  }
  EXPECT_EQ(accepted, 6653);
  EXPECT_TRUE(graph.setNodeBypassed(target, true));
  EXPECT_FALSE(graph.setNodeBypassed(42, true));
  EXPECT_EQ(graph.getNodePreset(42).parameterCount(), 0u);
}

} // namespace
} // namespace vora
