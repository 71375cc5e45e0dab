#pragma once

#include "framework/audio_processor.h"

#include <memory>

namespace vora {

// Node type numbers of the factory.
enum class NodeType : unsigned {
  GraphInput = 0,
  GraphOutput = 1,
  Dynamics = 3,
};

// Makes a node of the given type; an unknown type prints
// "***** could not find audio processor!" and yields none.
std::unique_ptr<AudioProcessor> makeNode(unsigned type);

} // namespace vora
