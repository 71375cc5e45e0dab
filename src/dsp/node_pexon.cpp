#include "dsp/node_pexon.h"

#include "dsp/payload_codec.h"
#include "dsp/preset_conversion.h"
#include "dsp/preset_fields.h"
#include "framework/count.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace vora {

namespace {

// The node hands its values to the engine through the payload's 8- and
// 16-bit fields, which wrap rather than saturate. Its parameters reach
// further than those fields (gain to +80 dB, thresholds to -999 dB, times to
// 500 ms), so saturate first: a wrapped gain decodes as a NaN and fills the
// output with NaNs; a wrapped threshold turns "always compress" into "never".
void saturateToPayloadFields(VorafierParameters& parameters) {
  static const float largestGainDb = 20.0f * std::log10(32767.0f / 128.0f); // largest signed 16-bit factor
  constexpr float kLowestThresholdDb = -32768.0f / 128.0f;
  constexpr float kLongestMs = 255.0f; // unsigned 8-bit integer fields
  for (VorafierBandRecord& band : parameters.bands) {
    band.gainDb0 = std::min(band.gainDb0, largestGainDb);
    band.gainDb1 = std::min(band.gainDb1, largestGainDb);
    band.fastThresholdDb0 = std::max(band.fastThresholdDb0, kLowestThresholdDb);
    band.fastThresholdDb1 = std::max(band.fastThresholdDb1, kLowestThresholdDb);
    band.slowThresholdDb = std::max(band.slowThresholdDb, kLowestThresholdDb);
    band.slowDelayMs = std::min(band.slowDelayMs, kLongestMs);
    band.slowTimeConstantMs = std::min(band.slowTimeConstantMs, kLongestMs);
  }
}

} // namespace

node_pexon::node_pexon() {
  using P = ParameterIdentifier;
  // Per band: the per-channel fields for channel 0, then for channel 1, then
  // the per-band fields at channel 0.
  auto declare = [this](const PresetField& row, unsigned channel, unsigned band) {
    addParameter(row.id, row.nodeDefault, row.nodeMinimum, row.nodeMaximum, channel, band);
  };
  for (unsigned band = 0; band < kControlledBandCount; ++band) {
    for (unsigned channel = 0; channel < 2; ++channel) {
      for (const PresetField& row : kPresetFields) {
        if (row.perChannel()) {
          declare(row, channel, band);
        }
      }
    }
    for (const PresetField& row : kPresetFields) {
      if (!row.perChannel()) {
        declare(row, 0, band);
      }
    }
  }
  addParameter(P::vorafier_mix_ratio, 1.0f, 0.0f, 1.0f, 0, 0);
  addParameter(P::vorafier_bypass, 0.0f, 0.0f, 1.0f, 0, 0);
  addProperty(PropertyIdentifier::tech_level, kTechLevel, kTechLevel, kTechLevel);
  addProperty(PropertyIdentifier::lib_version, kLibraryVersion);
  // Every accepted change, through the graph or straight on the parameter.
  for (const ParameterIdentifier id : {P::vorafier_mix_ratio, P::vorafier_bypass}) {
    getParameter(id, 0, 0)->addBinding([this](const ParameterPayload&) { publishSettings(); });
  }
}

node_pexon::~node_pexon() = default;

void node_pexon::publishSettings() {
  const AudioProcessorParameter* mix = getParameter(ParameterIdentifier::vorafier_mix_ratio, 0, 0);
  const AudioProcessorParameter* bypass = getParameter(ParameterIdentifier::vorafier_bypass, 0, 0);
  published_.mix = mix != nullptr ? mix->getValue() : 1.0f;
  published_.bypassed = bypass != nullptr && bypass->getValue() != 0.0f;
  live_.publish(published_);
}

bool node_pexon::render(int numInputs, int numOutputs, int frames, float** buffers, AudioTimeStamp& timeStamp) {
  if (live_.refresh()) {
    const LiveSettings& settings = live_.latest();
    if (settings.presetGeneration != enginePresetGeneration_) {
      engine_.applyParameterPayload(settings.enginePayload);
      enginePresetGeneration_ = settings.presetGeneration;
    }
  }
  return AudioProcessor::render(numInputs, numOutputs, frames, buffers, timeStamp);
}

int node_pexon::getLatency() {
  return static_cast<int>(engine_.latency());
}

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
  const LiveSettings& settings = live_.latest();
  const float mixRatio = settings.mix;
  const bool bypassed = settings.bypassed;
  const size_t frames = countOf(blockSize);

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
  VorafierParameters parameters = parametersFromPreset(getPreset());
  saturateToPayloadFields(parameters);
  encodePresetPayload(parameters, payload);
  std::memcpy(published_.enginePayload, payload, sizeof payload);
  ++published_.presetGeneration;
  live_.publish(published_);
  return true;
}

void node_pexon::releaseResources() {}

} // namespace vora
