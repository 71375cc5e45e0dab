// Base class of every node of the processing graph. It owns the node's
// identity, channel counts, parameters, properties, output buffers, an
// optional re-blocking stage and a message ring; a derived node supplies
// the signal processing through the virtual operations.
//
// Re-blocking (internal block size > 0), per channel:
//   host block ─► input queue ─► whole blocks ─► processBlock ─► output queue
//              ─► host block (led by silence until the first block is through)
// A host block of whole internal blocks that finds both queues empty skips
// them: its blocks are processed where they are, with the same result.
#pragma once

#include "framework/audio_processor_parameter.h"
#include "framework/audio_processor_preset.h"
#include "framework/audio_processor_property.h"
#include "framework/audio_time_stamp.h"
#include "framework/identifiers.h"
#include "framework/message_ring.h"
#include "framework/node_owner.h"
#include "framework/sample_queue.h"

#include <cstdint>
#include <map>
#include <memory>
#include <tuple>
#include <vector>

namespace vora {

class AudioProcessor {
public:
  // Room for 512 messages of 256 bytes with a 4-byte length each.
  static constexpr size_t kMessageRingBytes = (size_t{256} + 4) * 512;

  AudioProcessor();
  AudioProcessor(const AudioProcessor&) = delete;
  AudioProcessor& operator=(const AudioProcessor&) = delete;

  // The virtual operations, in their fixed order.
  virtual ~AudioProcessor();
  // Runs the node on one block in place and copies the result into the
  // node's output buffers; false when the node has none. Allocates nothing.
  virtual bool render(int numInputs, int numOutputs, int frames, float** buffers, AudioTimeStamp& timeStamp);
  virtual void release();
  virtual int getLatency() { return 0; }
  virtual bool acceptsMessage(uint32_t /*kind*/) { return false; }
  virtual bool onSetup(int /*numInputs*/, int /*numOutputs*/, int /*maxFrames*/, double /*sampleRate*/) { return true; }
  // Whole-block processing, used when re-blocking is off.
  virtual void process(int /*numInputs*/, int /*numOutputs*/, int /*frames*/, float** /*buffers*/,
                       AudioTimeStamp& /*timeStamp*/) {}
  // Processing of one internal block, used when re-blocking is on.
  virtual void processBlock(int /*numInputs*/, int /*numOutputs*/, int /*blockSize*/, float** /*blockBuffers*/,
                            AudioTimeStamp& /*timeStamp*/) {}
  // Called at the end of applyPreset; its result is applyPreset's.
  virtual bool presetApplied() { return true; }
  virtual void releaseResources() {}

  // Stores the counts, maximum frames and rate, allocates the output
  // buffers, then returns onSetup's result.
  bool setup(int numInputs, int numOutputs, int maxFrames, double sampleRate);

  uint32_t getIdentifier() const { return identifier_; }
  void setIdentifier(uint32_t identifier) { identifier_ = identifier; }
  void setGraph(NodeOwner* owner) { owner_ = owner; }
  NodeOwner* getGraph() const { return owner_; }
  int getNumInputs() const { return numInputs_; }
  int getNumOutputs() const { return numOutputs_; }
  int getMaximumFrames() const { return maxFrames_; }
  double getSampleRate() const { return sampleRate_; }
  bool isOutputReady() const { return outputReady_; }
  void clearOutputReady() { outputReady_ = false; }
  // The node's output buffers (output count × maximum frames), or null.
  float** getOutputBuffers() { return outputPointers_.empty() ? nullptr : outputPointers_.data(); }
  void setBypassed(bool bypassed) { bypassed_ = bypassed; }
  bool isBypassed() const { return bypassed_; }
  void allocateOutputBuffers();
  void releaseOutputBuffers();
  // 0 turns re-blocking off; otherwise queues and block buffers are sized
  // here for the worst case, so that render never allocates.
  void setInternalBlockSize(int blockSize);
  // `message` starts with its total size and its kind (two 32-bit words).
  bool enqueueMessage(const void* message);

  // Parameters, addressed by (identifier, channel, band).
  bool addParameter(ParameterIdentifier id, float value, float minimum, float maximum, unsigned channel, unsigned band);
  AudioProcessorParameter* getParameter(ParameterIdentifier id, unsigned channel, unsigned band);
  const AudioProcessorParameter* getParameter(ParameterIdentifier id, unsigned channel, unsigned band) const;

  // Properties.
  bool addProperty(PropertyIdentifier id, float number, float minimum, float maximum);
  bool addProperty(PropertyIdentifier id, const std::string& text);
  AudioProcessorProperty* getProperty(PropertyIdentifier id);

  // Presets: a snapshot of the node's state, and application of one
  // through the owning graph's validated setters.
  AudioProcessorPreset getPreset() const;
  bool applyPreset(const AudioProcessorPreset& preset);

private:
  void releaseQueues();
  bool queuesEmpty() const;

  int processingChannels_ = 0;
  int numInputs_ = 0;
  int numOutputs_ = 0;
  int maxFrames_ = 0;
  double sampleRate_ = 0.0;
  uint32_t identifier_ = 0;
  std::unique_ptr<MessageRing> messageRing_;
  NodeOwner* owner_ = nullptr;
  int internalBlockSize_ = 0;
  int queuedChannels_ = 0;
  std::vector<SampleQueue> inputQueues_;
  std::vector<SampleQueue> outputQueues_;
  std::vector<std::vector<float>> blockBuffers_;
  std::vector<float*> blockPointers_;
  std::vector<float*> inPlacePointers_; // blocks inside the caller's buffers
  AudioTimeStamp heldTimeStamp_;
  std::vector<std::vector<float>> outputBuffers_;
  std::vector<float*> outputPointers_;
  bool outputReady_ = false;
  bool bypassed_ = false;
  std::map<PropertyIdentifier, AudioProcessorProperty> properties_;
  // By (channel, band, identifier): a snapshot lists them in that order.
  std::map<std::tuple<unsigned, unsigned, ParameterIdentifier>, AudioProcessorParameter> parameters_;
};

} // namespace vora
