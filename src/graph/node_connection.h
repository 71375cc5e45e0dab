#pragma once

#include <cstdint>
#include <utility>
#include <vector>

namespace vora {

// Reserved node identifiers, never given to a real node.
inline constexpr uint32_t kNoNode = 0xFFFFFFFFu;
inline constexpr uint32_t kRenderRoot = 101010u; // virtual root of the render order

// One edge: routes from the source's output channels to the target's input
// channels; each (source channel, target channel) pair occurs at most once.
struct NodeConnection {
  uint32_t sourceNode = kNoNode;
  uint32_t targetNode = kNoNode;
  std::vector<std::pair<int, int>> channels;
};

} // namespace vora
