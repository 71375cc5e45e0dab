// Presets of arbitrary keys, properties and values applied to a dynamics
// node inside a graph, so that the graph's forwarding and the node's range
// checks run as they do for a host; then one block must come out finite.
#include "framework/audio_processor_preset.h"
#include "framework/identifiers.h"
#include "fuzz_input.h"
#include "graph/graph.h"
#include "graph/node_factory.h"

#include <cmath>
#include <map>
#include <string>
#include <vector>

namespace {

constexpr int kFrames = 512;
constexpr int kMaximumEntries = 64;

// A plausible parameter value or an awkward one.
float anyValue(larkspin_fuzz::FuzzInput& input) {
  return input.byte() % 4 == 0 ? static_cast<float>(input.inRange(-200, 300)) : input.awkwardFloat();
}

void addEntry(larkspin_fuzz::FuzzInput& input, vora::AudioProcessorPreset& preset) {
  // The preset exposes its entries only for reading; injecting raw keys
  // through it reaches the key parser with text no setter would build.
  auto& raw = const_cast<std::map<std::string, float>&>(preset.parameters());
  switch (input.byte() % 4) {
  case 0:
    raw[input.text(40)] = anyValue(input);
    break;
  case 1: {
    // A well-formed key of a known name, with any channel and band.
    const auto id = static_cast<vora::ParameterIdentifier>(input.inRange(0, 10));
    const auto channel = static_cast<unsigned>(input.byte() % 4);
    const auto band = static_cast<unsigned>(input.byte() % 16);
    if (vora::parameterNames().count(static_cast<int32_t>(id)) != 0) {
      preset.addParameter(id, anyValue(input), channel, band);
    }
    break;
  }
  case 2: {
    // A known name with a mangled suffix.
    const auto& names = vora::parameterNames();
    auto it = names.begin();
    std::advance(it, input.byte() % names.size());
    raw[it->second + input.text(12)] = anyValue(input);
    break;
  }
  default: {
    const auto id = static_cast<vora::PropertyIdentifier>(input.inRange(-1, 2));
    preset.addProperty(id, input.byte() % 2 == 0 ? vora::AudioProcessorPropertyValue::fromNumber(anyValue(input))
                                                 : vora::AudioProcessorPropertyValue::fromText(input.text(24)));
    break;
  }
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  larkspin_fuzz::FuzzInput input(data, size);
  const int channels = input.byte() % 2 + 1;
  const float sampleRate = input.byte() % 2 == 0 ? 48000.0f : 96000.0f;

  vora::Graph graph;
  LARKSPIN_FUZZ_CHECK(graph.setup(channels, channels, kFrames, sampleRate));
  const int node = graph.addNode(static_cast<unsigned>(vora::NodeType::Dynamics), channels, channels);
  LARKSPIN_FUZZ_CHECK(node >= 0);
  const auto nodeId = static_cast<uint32_t>(node);
  graph.connectNodes(graph.getInputNodeIdentifier(), nodeId);
  graph.connectNodes(nodeId, graph.getOutputNodeIdentifier());
  LARKSPIN_FUZZ_CHECK(graph.prepare(0, sampleRate));

  std::vector<float> samples(static_cast<size_t>(channels * kFrames));
  float* buffers[2] = {samples.data(), samples.data() + (channels - 1) * kFrames};
  vora::AudioTimeStamp timeStamp{0, true};

  // Several presets in a row, each followed by a block of noise-like audio.
  while (!input.empty()) {
    vora::AudioProcessorPreset preset;
    const int entries = input.inRange(0, kMaximumEntries);
    for (int i = 0; i < entries && !input.empty(); ++i) {
      addEntry(input, preset);
    }
    graph.applyNodePreset(nodeId, preset);

    // Whatever the preset did, the parameters the node keeps are in range,
    // so its output stays finite and within full scale.
    uint32_t seed = input.value<uint32_t>() | 1u;
    for (float& x : samples) {
      x = larkspin_fuzz::nextNoise(seed) * 0.5f;
    }
    LARKSPIN_FUZZ_CHECK(graph.process(kFrames, buffers, timeStamp));
    timeStamp.sampleTime += kFrames;
    for (float x : samples) {
      LARKSPIN_FUZZ_CHECK(std::isfinite(x) && std::fabs(x) <= 1.0f);
    }
  }
  graph.reset();
  return 0;
}
