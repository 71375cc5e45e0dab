// The facade: turns a host's few settings into graph set-up and node
// parameter writes, and processes blocks through the instance's graph of
// input node -> dynamics node -> output node.
//
// Threads: the graph, the node's parameter table and the stored settings
// belong to the control thread; process (the audio thread) reads only what
// set-up fixed, the node's published live settings, the bypass flag mirror
// and writes the debug record and the band read-out into latches that
// getters on any thread read.
#include <larkspin/generic_audio_processor.h>

#include "api/debug_info.h"
#include "api/denormal_guard.h"
#include "dsp/engine_constants.h"
#include "dsp/node_pexon.h"
#include "dsp/payload_codec.h"
#include "dsp/preset_conversion.h"
#include "framework/message_sink.h"
#include "framework/record_latch.h"
#include "graph/graph.h"
#include "graph/node_factory.h"

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstring>
#include <locale>
#include <sstream>
#include <string>

namespace vora {

struct GenericAudioProcessor::PrivateImplementation {
  // First field: a pointer to the implementation is a pointer to these bytes.
  unsigned char currentPresetPayload[kPresetPayloadSize] = {};
  bool presetApplied = false;
  Graph graph;
  int32_t inputNodeId = -1;
  int32_t outputNodeId = -1;
  int32_t processorNodeId = -1;
  AudioTimeStamp timeStamp;
  float intensity = 0.0f; // deliberately dry until the host sets one
  bool bypassed = false;
  std::atomic<bool> bypassedForDebugInfo{false}; // the audio thread's copy of `bypassed`
  RecordLatch<DebugInfo> debugInfo{DebugInfo{}};
  // The engine's read-out of its last hop, copied whole after each block so
  // that a meter on another thread never sees the engine mid-hop.
  const node_pexon* dynamicsNode = nullptr; // set-up only
  RecordLatch<PexVorafier::BandReadout> bandReadout;
  std::string libVersion;
  // Where this instance's diagnostic lines go (null: standard output); used
  // by the calls that may emit lines, never by process.
  MessageHook messageHook = nullptr;
  void* messageContext = nullptr;

  MessageRoute route() const { return MessageRoute(messageHook, messageContext); }

  uint32_t processor() const { return static_cast<uint32_t>(processorNodeId); }

  void configureNodes(int channels) {
    inputNodeId = static_cast<int32_t>(graph.getInputNodeIdentifier());
    outputNodeId = static_cast<int32_t>(graph.getOutputNodeIdentifier());
    processorNodeId = graph.addNode(static_cast<unsigned>(NodeType::Dynamics), channels, channels);
    graph.connectNodes(static_cast<uint32_t>(inputNodeId), processor());
    graph.connectNodes(processor(), static_cast<uint32_t>(outputNodeId));
  }

  // A refused write is followed by a read-back, so that the stored values
  // always mirror the node.
  bool pushIntensity(float value) {
    if (value < 0.0f) {
      value = 0.0f;
    }
    if (value > 1.0f) {
      value = 1.0f;
    }
    intensity = value;
    if (graph.setNodeParameterValue(processor(), ParameterIdentifier::vorafier_mix_ratio, intensity, 0, 0)) {
      return true;
    }
    intensity = graph.getNodeParameterValue(processor(), ParameterIdentifier::vorafier_mix_ratio, 0, 0);
    return false;
  }

  bool pushBypass(bool flag) {
    bypassed = flag;
    const bool accepted =
        graph.setNodeParameterValue(processor(), ParameterIdentifier::vorafier_bypass, flag ? 1.0f : 0.0f, 0, 0);
    if (!accepted) {
      bypassed = graph.getNodeParameterValue(processor(), ParameterIdentifier::vorafier_bypass, 0, 0) != 0.0f;
    }
    bypassedForDebugInfo.store(bypassed, std::memory_order_relaxed);
    return accepted;
  }
};

GenericAudioProcessor::GenericAudioProcessor() : implementation(new PrivateImplementation) {}

GenericAudioProcessor::~GenericAudioProcessor() {
  implementation->graph.reset();
  delete implementation;
}

bool GenericAudioProcessor::setup(float sampleRate, int maximumFrames, int channels) {
  const MessageRoute route = implementation->route();
  try {
    PrivateImplementation& self = *implementation;
    self.graph.reset();
    self.dynamicsNode = nullptr;
    self.bandReadout.store({});
    if (!self.graph.setup(channels, channels, maximumFrames, static_cast<double>(sampleRate))) {
      return false;
    }
    self.configureNodes(channels);
    self.dynamicsNode = dynamic_cast<const node_pexon*>(self.graph.findNode(self.processor()));
    self.timeStamp = AudioTimeStamp{0, true};
    // A preset in force survives every set-up.
    if (self.presetApplied && self.graph.isSetUp()) {
      self.presetApplied = self.graph.applyNodePreset(self.processor(), presetFromPayload(self.currentPresetPayload));
    }
    // After the preset, which may carry these parameters too.
    self.pushIntensity(self.intensity);
    self.pushBypass(self.bypassed);
    return self.graph.prepare(0, static_cast<double>(sampleRate));
  } catch (...) {
    implementation->graph.reset();
    return false;
  }
}

bool GenericAudioProcessor::update(float sampleRate, int maximumFrames, int channels) {
  return setup(sampleRate, maximumFrames, channels);
}

bool GenericAudioProcessor::process(float** channels, int frames) {
  PrivateImplementation& self = *implementation;
  const auto start = std::chrono::steady_clock::now();
  bool ok = false;
  {
    const DenormalGuard denormalsOff;
    ok = self.graph.isSetUp() && self.graph.isPrepared() && self.graph.process(frames, channels, self.timeStamp);
  }
  self.timeStamp.sampleTime += static_cast<int64_t>(frames); // always, even when nothing was processed
  if (ok && self.dynamicsNode != nullptr) {
    self.bandReadout.store(self.dynamicsNode->engine().bandReadout());
  }
  const auto end = std::chrono::steady_clock::now();
  self.debugInfo.store(makeDebugInfo(ok, self.bypassedForDebugInfo.load(std::memory_order_relaxed), end - start, frames,
                                     self.graph.getSampleRate(), self.graph.getMaximumFrames()));
  return ok;
}

bool GenericAudioProcessor::applyPresetPayload(unsigned char* payload) {
  const MessageRoute route = implementation->route();
  try {
    PrivateImplementation& self = *implementation;
    if (!self.graph.isSetUp() || payload == nullptr) {
      return false;
    }
    // The same bytes again: nothing to convert or apply.
    if (std::memcmp(payload, self.currentPresetPayload, kPresetPayloadSize) == 0) {
      self.presetApplied = true;
      return true;
    }
    const bool applied = self.graph.applyNodePreset(self.processor(), presetFromPayload(payload));
    if (applied) {
      std::memcpy(self.currentPresetPayload, payload, kPresetPayloadSize);
    }
    self.presetApplied = applied;
    return applied;
  } catch (...) {
    return false;
  }
}

unsigned char* GenericAudioProcessor::getCurrentPresetPayload() {
  return implementation->currentPresetPayload;
}

bool GenericAudioProcessor::setBypassed(bool bypassed) {
  const MessageRoute route = implementation->route();
  return implementation->pushBypass(bypassed);
}

bool GenericAudioProcessor::getBypassed() const {
  return implementation->bypassed;
}

bool GenericAudioProcessor::setVoraficationIntensity(float intensity) {
  const MessageRoute route = implementation->route();
  return implementation->pushIntensity(intensity);
}

float GenericAudioProcessor::getVoraficationIntensity() const {
  return implementation->intensity;
}

float GenericAudioProcessor::getProcessingLatency() const {
  return static_cast<float>(implementation->graph.getNodeLatency(implementation->processor()));
}

GenericAudioProcessor::DebugInfo GenericAudioProcessor::getDebugInfo() const {
  return implementation->debugInfo.load();
}

bool GenericAudioProcessor::getBandReadout(float* levelsDb, float* gainsDb) const {
  // Process refuses every block exactly when the graph is not set up and
  // prepared; both flags change only during set-up.
  const Graph& graph = implementation->graph;
  if (levelsDb == nullptr || gainsDb == nullptr || !graph.isSetUp() || !graph.isPrepared()) {
    return false;
  }
  const PexVorafier::BandReadout readout = implementation->bandReadout.load();
  static_assert(sizeof readout.gainDb == sizeof(float) * VORA_AP_BAND_COUNT * 2);
  for (int band = 0; band < VORA_AP_BAND_COUNT; ++band) {
    for (int ch = 0; ch < 2; ++ch) {
      // As the gain computer measures it; silence reads -758.6 dB.
      levelsDb[band * 2 + ch] = 20.0f * std::log10(std::fabs(readout.bandSum[band][ch]) + kFloatMinimum);
    }
  }
  std::memcpy(gainsDb, readout.gainDb, sizeof readout.gainDb);
  return true;
}

void GenericAudioProcessor::logDebugInfo() const {
  const MessageRoute route = implementation->route();
  try {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    printDebugInfo(implementation->debugInfo.load(), text);
    std::istringstream lines(text.str());
    for (std::string line; std::getline(lines, line);) {
      emitLine(line);
    }
  } catch (...) {
    // Out of memory for a diagnostic: nothing is printed.
  }
}

void GenericAudioProcessor::setMessageHook(MessageHook hook, void* context) {
  implementation->messageHook = hook;
  implementation->messageContext = context;
}

int GenericAudioProcessor::getTechLevel() const {
  const AudioProcessorPropertyValue value =
      implementation->graph.getNodePropertyValue(implementation->processor(), PropertyIdentifier::tech_level);
  return value.hasNumber() ? static_cast<int>(value.getNumber()) : 0;
}

const char* GenericAudioProcessor::getLibVersion() const {
  try {
    std::string& cache = implementation->libVersion;
    if (cache.empty()) {
      const AudioProcessorPropertyValue value =
          implementation->graph.getNodePropertyValue(implementation->processor(), PropertyIdentifier::lib_version);
      if (value.hasText()) {
        cache = value.getText();
      }
    }
    return cache.c_str();
  } catch (...) {
    return "";
  }
}

} // namespace vora
