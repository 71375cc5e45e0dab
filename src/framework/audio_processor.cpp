#include "framework/audio_processor.h"

#include "framework/count.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vora {

AudioProcessor::AudioProcessor() : messageRing_(std::make_unique<MessageRing>(kMessageRingBytes)) {}

AudioProcessor::~AudioProcessor() = default;

bool AudioProcessor::setup(int numInputs, int numOutputs, int maxFrames, double sampleRate) {
  processingChannels_ = std::max(numInputs, numOutputs);
  numInputs_ = numInputs;
  numOutputs_ = numOutputs;
  maxFrames_ = maxFrames;
  sampleRate_ = sampleRate;
  allocateOutputBuffers();
  return onSetup(numInputs, numOutputs, maxFrames, sampleRate);
}

void AudioProcessor::allocateOutputBuffers() {
  if (numOutputs_ <= 0) {
    return; // old buffers stay
  }
  outputReady_ = false;
  releaseOutputBuffers();
  outputBuffers_.assign(countOf(numOutputs_), std::vector<float>(countOf(maxFrames_)));
  for (auto& buffer : outputBuffers_) {
    outputPointers_.push_back(buffer.data());
  }
}

void AudioProcessor::releaseOutputBuffers() {
  outputBuffers_.clear();
  outputPointers_.clear();
}

void AudioProcessor::releaseQueues() {
  inputQueues_.clear();
  outputQueues_.clear();
  blockBuffers_.clear();
  blockPointers_.clear();
  inPlacePointers_.clear();
  queuedChannels_ = 0;
}

void AudioProcessor::setInternalBlockSize(int blockSize) {
  internalBlockSize_ = blockSize;
  heldTimeStamp_ = AudioTimeStamp{};
  releaseQueues();
  if (internalBlockSize_ <= 0 || processingChannels_ <= 0) {
    return;
  }
  queuedChannels_ = processingChannels_;
  // The most either queue holds: less than a block left over plus a whole
  // host call.
  const size_t capacity = countOf(internalBlockSize_) + countOf(maxFrames_);
  for (int ch = 0; ch < queuedChannels_; ++ch) {
    inputQueues_.emplace_back(capacity);
    outputQueues_.emplace_back(capacity);
    blockBuffers_.emplace_back(countOf(internalBlockSize_));
  }
  for (auto& buffer : blockBuffers_) {
    blockPointers_.push_back(buffer.data());
  }
  inPlacePointers_.assign(static_cast<size_t>(queuedChannels_), nullptr);
}

bool AudioProcessor::queuesEmpty() const {
  for (int ch = 0; ch < queuedChannels_; ++ch) {
    if (inputQueues_[static_cast<size_t>(ch)].size() != 0 || outputQueues_[static_cast<size_t>(ch)].size() != 0) {
      return false;
    }
  }
  return true;
}

bool AudioProcessor::render(int numInputs, int numOutputs, int frames, float** buffers, AudioTimeStamp& timeStamp) {
  const size_t count = countOf(frames);
  if (internalBlockSize_ <= 0 || processingChannels_ != queuedChannels_) {
    if (!bypassed_) {
      process(numInputs, numOutputs, frames, buffers, timeStamp);
    }
  } else if (numOutputs == processingChannels_ && count != 0 && count % static_cast<size_t>(internalBlockSize_) == 0 &&
             queuesEmpty()) {
    // The queues would take these blocks in and hand the same samples back
    // at once, with no silence ahead: process them in place instead.
    if (!heldTimeStamp_.isValid && timeStamp.isValid) {
      heldTimeStamp_.sampleTime = timeStamp.sampleTime;
      heldTimeStamp_.isValid = true;
    }
    for (size_t at = 0; at < count; at += static_cast<size_t>(internalBlockSize_)) {
      for (int ch = 0; ch < processingChannels_; ++ch) {
        inPlacePointers_[static_cast<size_t>(ch)] = buffers[ch] + at;
      }
      if (!bypassed_) {
        processBlock(numInputs, numOutputs, internalBlockSize_, inPlacePointers_.data(), heldTimeStamp_);
      }
      if (heldTimeStamp_.isValid) {
        heldTimeStamp_.sampleTime += internalBlockSize_;
      }
    }
  } else {
    const size_t block = static_cast<size_t>(internalBlockSize_);
    for (int ch = 0; ch < processingChannels_; ++ch) {
      inputQueues_[static_cast<size_t>(ch)].push(buffers[ch], count);
    }
    if (!heldTimeStamp_.isValid && timeStamp.isValid) {
      heldTimeStamp_.sampleTime = timeStamp.sampleTime;
      heldTimeStamp_.isValid = true;
    }
    // The queues move in step: each input queue holds what the first does,
    // and so does each output queue.
    for (size_t level = inputQueues_[0].size(); level >= block; level -= block) {
      for (int ch = 0; ch < processingChannels_; ++ch) {
        inputQueues_[static_cast<size_t>(ch)].pop(blockPointers_[static_cast<size_t>(ch)], block);
      }
      if (!bypassed_) {
        processBlock(numInputs, numOutputs, internalBlockSize_, blockPointers_.data(), heldTimeStamp_);
      }
      if (heldTimeStamp_.isValid) {
        heldTimeStamp_.sampleTime += internalBlockSize_;
      }
      // Only outputs are read back: what the channels beyond them (a node
      // with more inputs than outputs) hold after processing is dropped.
      for (int ch = 0; ch < numOutputs; ++ch) {
        outputQueues_[static_cast<size_t>(ch)].push(blockPointers_[static_cast<size_t>(ch)], block);
      }
    }

    // Lead with silence until enough processed samples are queued.
    const size_t available = numOutputs > 0 ? outputQueues_[0].size() : 0;
    const size_t pad = count > available ? count - available : 0;
    for (int ch = 0; ch < numOutputs; ++ch) {
      std::fill(buffers[ch], buffers[ch] + pad, 0.0f);
      outputQueues_[static_cast<size_t>(ch)].pop(buffers[ch] + pad, count - pad);
    }
  }

  if (outputPointers_.empty()) {
    return false;
  }
  const size_t outputs = std::min(countOf(numOutputs), outputPointers_.size());
  const size_t copied = std::min(count, countOf(maxFrames_));
  for (size_t ch = 0; ch < outputs; ++ch) {
    std::memcpy(outputPointers_[ch], buffers[ch], copied * sizeof(float));
  }
  outputReady_ = true;
  return true;
}

void AudioProcessor::release() {
  releaseResources();
  releaseQueues();
  releaseOutputBuffers();
  outputReady_ = false;
}

bool AudioProcessor::enqueueMessage(const void* message) {
  uint32_t header[2];
  std::memcpy(header, message, sizeof header);
  if (!acceptsMessage(header[1]) || !messageRing_) {
    return false;
  }
  return messageRing_->write(message, header[0]);
}

bool AudioProcessor::addParameter(ParameterIdentifier id, float value, float minimum, float maximum, unsigned channel,
                                  unsigned band) {
  AudioProcessorParameter parameter;
  parameter.setIdentifier(id);
  parameter.setMinimum(minimum);
  parameter.setMaximum(maximum);
  if (!parameter.setValue(value)) {
    return false;
  }
  if (id == ParameterIdentifier::parameter_unspecified) {
    return true;
  }
  parameters_.insert_or_assign({channel, band, id}, parameter);
  return true;
}

const AudioProcessorParameter* AudioProcessor::getParameter(ParameterIdentifier id, unsigned channel,
                                                            unsigned band) const {
  const auto it = parameters_.find({channel, band, id});
  return it == parameters_.end() ? nullptr : &it->second;
}

AudioProcessorParameter* AudioProcessor::getParameter(ParameterIdentifier id, unsigned channel, unsigned band) {
  return const_cast<AudioProcessorParameter*>(std::as_const(*this).getParameter(id, channel, band));
}

bool AudioProcessor::addProperty(PropertyIdentifier id, float number, float minimum, float maximum) {
  AudioProcessorProperty property;
  property.setIdentifier(id);
  property.setMinimum(minimum);
  property.setMaximum(maximum);
  if (!property.setValue(AudioProcessorPropertyValue::fromNumber(number))) {
    return false;
  }
  properties_.insert_or_assign(id, property);
  return true;
}

bool AudioProcessor::addProperty(PropertyIdentifier id, const std::string& text) {
  AudioProcessorProperty property;
  property.setIdentifier(id);
  property.setText(text);
  properties_.insert_or_assign(id, property);
  return true;
}

AudioProcessorProperty* AudioProcessor::getProperty(PropertyIdentifier id) {
  const auto it = properties_.find(id);
  return it == properties_.end() ? nullptr : &it->second;
}

AudioProcessorPreset AudioProcessor::getPreset() const {
  AudioProcessorPreset preset;
  for (const auto& [id, property] : properties_) {
    preset.addProperty(id, property.getValue());
  }
  for (const auto& [key, parameter] : parameters_) {
    preset.addParameter(parameter, std::get<0>(key), std::get<1>(key));
  }
  return preset;
}

bool AudioProcessor::applyPreset(const AudioProcessorPreset& preset) {
  if (owner_ == nullptr || (preset.propertyCount() == 0 && preset.parameterCount() == 0)) {
    return false;
  }
  // Refused entries are skipped and the rest stay applied; the result is
  // presetApplied()'s, deliberately not a failure mark.
  preset.forEachProperty([&](PropertyIdentifier id, const AudioProcessorPropertyValue& value) {
    owner_->setNodePropertyValue(identifier_, id, value);
  });
  preset.forEachParameter([&](ParameterIdentifier id, float value, unsigned channel, unsigned band) {
    owner_->setNodeParameterValue(identifier_, id, value, static_cast<int>(channel), static_cast<int>(band));
  });
  return presetApplied();
}

} // namespace vora
