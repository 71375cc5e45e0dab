#include "dsp/node_pexon.h"

#include "dsp/payload_codec.h"
#include "dsp/preset_conversion.h"

#include <algorithm>

namespace vora {

node_pexon::node_pexon() {
  using P = ParameterIdentifier;
  for (unsigned band = 0; band < kControlledBandCount; ++band) {
    for (unsigned channel = 0; channel < 2; ++channel) {
      addParameter(P::vorafier_gain, 0.0f, -80.0f, 80.0f, channel, band);               // dB
      addParameter(P::vorafier_fast_threshold, 0.0f, -999.0f, 0.0f, channel, band);     // dB
      addParameter(P::vorafier_fast_ratio, 0.2f, 0.0f, 1.0f, channel, band);            // slope
    }
    addParameter(P::vorafier_slow_threshold, -40.0f, -999.0f, 0.0f, 0, band);           // dB
    addParameter(P::vorafier_slow_factor, 0.85f, 0.0f, 1.0f, 0, band);
    addParameter(P::vorafier_slow_delay, 10.0f, 0.0f, 500.0f, 0, band);                 // ms
    addParameter(P::vorafier_slow_time_constant, 50.0f, 0.0f, 500.0f, 0, band);         // ms
  }
  addParameter(P::vorafier_mix_ratio, 1.0f, 0.0f, 1.0f, 0, 0);
  addParameter(P::vorafier_bypass, 0.0f, 0.0f, 1.0f, 0, 0);
  addProperty(PropertyIdentifier::tech_level, kTechLevel, kTechLevel, kTechLevel);
  addProperty(PropertyIdentifier::lib_version, kLibraryVersion);
}

node_pexon::~node_pexon() = default;

int node_pexon::getLatency() { return static_cast<int>(engine_.latency()); }

bool node_pexon::onSetup(int numInputs, int numOutputs, int, double sampleRate) {
  const auto supported = [](int channels) { return channels == 1 || channels == 2; };
  if (!supported(numInputs) || !supported(numOutputs)) {
    return false;
  }
  const int hop = engine_.setup(static_cast<float>(sampleRate));
  if (hop < 0) {
    return false;
  }
  setInternalBlockSize(hop); // the base class re-blocks into hops
  return true;
}

void node_pexon::processBlock(int numInputs, int numOutputs, int blockSize, float** blocks, AudioTimeStamp&) {
  const AudioProcessorParameter* mix = getParameter(ParameterIdentifier::vorafier_mix_ratio, 0, 0);
  const AudioProcessorParameter* bypass = getParameter(ParameterIdentifier::vorafier_bypass, 0, 0);
  const float mixRatio = mix != nullptr ? mix->getValue() : 1.0f;
  const bool bypassed = bypass != nullptr && bypass->getValue() != 0.0f;
  const size_t frames = static_cast<size_t>(std::max(blockSize, 0));

  if (numInputs == 2) {
    engine_.processStereo(blocks, bypassed, mixRatio);
    if (numOutputs == 1 && frames != 0) {
      for (size_t i = 0; i < frames; ++i) {
        blocks[0][i] = (blocks[0][i] + blocks[1][i]) * 0.5f;
      }
    }
  } else {
    engine_.processMono(blocks[0], bypassed, mixRatio);
    if (numOutputs == 2) {
      std::copy_n(blocks[0], frames, blocks[1]);
    }
  }
}

bool node_pexon::presetApplied() {
  unsigned char payload[kPresetPayloadSize];
  encodePresetPayload(parametersFromPreset(getPreset()), payload);
  engine_.applyParameterPayload(payload);
  return true;
}

void node_pexon::releaseResources() {}

} // namespace vora
