// Stands in for the graph in node tests: routes preset entries to the
// node's own setters and records the parameter keys in the order they came.
#pragma once

#include "framework/audio_processor.h"
#include "framework/audio_processor_preset.h"

#include <string>
#include <vector>

namespace larkspin_test {

class DirectOwner : public vora::NodeOwner {
public:
  explicit DirectOwner(vora::AudioProcessor& node) : node_(node) { node.setGraph(this); }
  ~DirectOwner() override { node_.setGraph(nullptr); }
  bool setNodeParameterValue(uint32_t, vora::ParameterIdentifier id, float value, int channel, int band) override {
    const auto c = static_cast<unsigned>(channel), b = static_cast<unsigned>(band);
    order.push_back(vora::AudioProcessorPreset::makeKey(id, c, b));
    vora::AudioProcessorParameter* parameter = node_.getParameter(id, c, b);
    return parameter != nullptr && parameter->setValue(value);
  }
  bool setNodePropertyValue(uint32_t, vora::PropertyIdentifier id,
                            const vora::AudioProcessorPropertyValue& value) override {
    vora::AudioProcessorProperty* property = node_.getProperty(id);
    return property != nullptr && property->setValue(value);
  }
  std::vector<std::string> order;

private:
  vora::AudioProcessor& node_;
};

} // namespace larkspin_test
