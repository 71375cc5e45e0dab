#include "graph/node_factory.h"

#include "dsp/node_pexon.h"
#include "framework/message_sink.h"
#include "graph/graph_boundary_nodes.h"

namespace vora {

std::unique_ptr<AudioProcessor> makeNode(unsigned type) {
  switch (static_cast<NodeType>(type)) {
  case NodeType::GraphInput:
    return std::make_unique<node_GraphInput>();
  case NodeType::GraphOutput:
    return std::make_unique<node_GraphOutput>();
  case NodeType::Dynamics:
    return std::make_unique<node_pexon>();
  }
  emitLine("***** could not find audio processor!");
  return nullptr;
}

} // namespace vora
