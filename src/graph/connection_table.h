// The graph's connections and the render order computed from them.
#pragma once

#include "graph/node_connection.h"

#include <cstdint>
#include <functional>
#include <set>
#include <vector>

namespace vora {

class ConnectionTable {
public:
  // Adds a connection. A target channel that already has a feeder is
  // refused with two console lines (the graph never sums inputs); routes
  // between a known (source, target) pair are merged into its entry.
  void add(const NodeConnection& connection);

  std::vector<NodeConnection> incoming(uint32_t node) const;
  std::vector<NodeConnection> outgoing(uint32_t node) const;
  std::vector<uint32_t> successors(uint32_t node) const;
  bool hasIncoming(uint32_t node) const;
  void clear();

  // Reverse post-order of a depth-first search from kRenderRoot, which is
  // linked to every root and to every isolated candidate. Nodes reachable
  // only through a cycle are left out; the connection that closes a cycle
  // is not followed.
  void computeRenderSequence(const std::vector<uint32_t>& candidates);
  // Calls f(node, copies of its incoming connections) in render order.
  void forEachInRenderOrder(const std::function<void(uint32_t, std::vector<NodeConnection>)>& f) const;

  const std::vector<NodeConnection>& list() const { return list_; }
  const std::vector<uint32_t>& renderSequence() const { return renderSequence_; }

private:
  void visit(uint32_t node, std::set<uint32_t>& visited, std::vector<uint32_t>& postOrder) const;

  std::vector<NodeConnection> list_;
  std::vector<uint32_t> renderSequence_;
};

} // namespace vora
