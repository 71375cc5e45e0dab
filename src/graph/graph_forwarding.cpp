// Requests that name a node by identifier, forwarded to the node.
#include "graph/graph.h"

namespace vora {

AudioProcessorParameter* Graph::getNodeParameter(uint32_t node, ParameterIdentifier id, int a, int b) const {
  AudioProcessor* found = findNode(node);
  // Negative channel numbers become indices no table reaches.
  return found != nullptr ? found->getParameter(id, static_cast<unsigned>(a), static_cast<unsigned>(b)) : nullptr;
}

bool Graph::setNodeParameterValue(uint32_t node, ParameterIdentifier id, float value, int a, int b) {
  AudioProcessorParameter* parameter = getNodeParameter(node, id, a, b);
  return parameter != nullptr && parameter->setValue(value);
}

float Graph::getNodeParameterValue(uint32_t node, ParameterIdentifier id, int a, int b) const {
  const AudioProcessorParameter* parameter = getNodeParameter(node, id, a, b);
  return parameter != nullptr ? parameter->getValue() : 0.0f;
}

float Graph::getNodeParameterMinimum(uint32_t node, ParameterIdentifier id, int a, int b) const {
  const AudioProcessorParameter* parameter = getNodeParameter(node, id, a, b);
  return parameter != nullptr ? parameter->getMinimum() : 0.0f;
}

float Graph::getNodeParameterMaximum(uint32_t node, ParameterIdentifier id, int a, int b) const {
  const AudioProcessorParameter* parameter = getNodeParameter(node, id, a, b);
  return parameter != nullptr ? parameter->getMaximum() : 0.0f;
}

std::string Graph::getNodeParameterTypeName(uint32_t node, ParameterIdentifier id, int a, int b) const {
  const AudioProcessorParameter* parameter = getNodeParameter(node, id, a, b);
  return parameter != nullptr ? parameter->getTypeName() : std::string();
}

bool Graph::isNodeParameterNonFloat(uint32_t node, ParameterIdentifier id, int a, int b) const {
  const AudioProcessorParameter* parameter = getNodeParameter(node, id, a, b);
  return parameter != nullptr && parameter->isNonFloat();
}

bool Graph::addNodeParameterListener(uint32_t node, ParameterIdentifier id, const AudioProcessorParameter::Callback& f,
                                     int a, int b) {
  AudioProcessorParameter* parameter = getNodeParameter(node, id, a, b);
  if (parameter == nullptr) {
    return false;
  }
  parameter->addListener(f);
  return true;
}

bool Graph::bindNodeParameters(uint32_t sourceNode, ParameterIdentifier sourceParameter, uint32_t targetNode,
                               ParameterIdentifier targetParameter, const std::function<float(float)>& mapping,
                               int sourceA, int sourceB, int targetA, int targetB) {
  AudioProcessorParameter* source = getNodeParameter(sourceNode, sourceParameter, sourceA, sourceB);
  if (source == nullptr || getNodeParameter(targetNode, targetParameter, targetA, targetB) == nullptr) {
    return false;
  }
  // The target is looked up again at every change: it may be gone by then.
  source->addBinding([this, targetNode, targetParameter, targetA, targetB, mapping](const ParameterPayload& payload) {
    const float mapped = mapping(payload.newValue);
    if (AudioProcessorParameter* target = getNodeParameter(targetNode, targetParameter, targetA, targetB)) {
      target->setValue(mapped);
    }
  });
  return true;
}

bool Graph::applyNodePreset(uint32_t node, const AudioProcessorPreset& preset) {
  AudioProcessor* found = findNode(node);
  return found != nullptr && found->applyPreset(preset);
}

AudioProcessorPreset Graph::getNodePreset(uint32_t node) const {
  const AudioProcessor* found = findNode(node);
  return found != nullptr ? found->getPreset() : AudioProcessorPreset{};
}

AudioProcessorProperty* Graph::getNodeProperty(uint32_t node, PropertyIdentifier id) const {
  AudioProcessor* found = findNode(node);
  return found != nullptr ? found->getProperty(id) : nullptr;
}

AudioProcessorPropertyValue Graph::getNodePropertyValue(uint32_t node, PropertyIdentifier id) const {
  const AudioProcessorProperty* property = getNodeProperty(node, id);
  return property != nullptr ? property->getValue() : AudioProcessorPropertyValue{};
}

bool Graph::setNodePropertyValue(uint32_t node, PropertyIdentifier id, const AudioProcessorPropertyValue& value) {
  AudioProcessorProperty* property = getNodeProperty(node, id);
  return property != nullptr && property->setValue(value);
}

bool Graph::setNodeBypassed(uint32_t node, bool bypassed) {
  AudioProcessor* found = findNode(node);
  if (found == nullptr) {
    return false;
  }
  found->setBypassed(bypassed);
  return true;
}

bool Graph::postNodeMessage(uint32_t node, MessageKind kind) {
  AudioProcessor* found = findNode(node);
  if (found == nullptr) {
    return false;
  }
  const uint32_t message[4] = {16, static_cast<uint32_t>(kind), 0, 0};
  return found->enqueueMessage(message);
}

} // namespace vora
