// What a node needs from the graph that owns it: the validated setters,
// addressed by node identifier. The graph implements it; the framework
// knows nothing else of the graph.
#pragma once

#include "framework/audio_processor_property.h"
#include "framework/identifiers.h"

#include <cstdint>

namespace vora {

class NodeOwner {
public:
  virtual ~NodeOwner() = default;
  virtual bool setNodeParameterValue(uint32_t node, ParameterIdentifier id, float value, int channel, int band) = 0;
  virtual bool setNodePropertyValue(uint32_t node, PropertyIdentifier id, const AudioProcessorPropertyValue& value) = 0;
};

} // namespace vora
