#include "graph/connection_table.h"

#include "framework/message_sink.h"

#include <algorithm>
#include <type_traits>

namespace vora {

void ConnectionTable::add(const NodeConnection& connection) {
  for (const NodeConnection& existing : incoming(connection.targetNode)) {
    for (const auto& wanted : connection.channels) {
      for (const auto& taken : existing.channels) {
        if (wanted.second == taken.second) {
          emitFormattedLine("***** Attempt at overloading input channel %d on node with identifier %d.", wanted.second,
                            static_cast<int>(connection.targetNode));
          emitLine("***** This is not supported. Please use a summing processor before connecting to this input.");
          return;
        }
      }
    }
  }
  for (NodeConnection& existing : list_) {
    if (existing.sourceNode == connection.sourceNode && existing.targetNode == connection.targetNode) {
      for (const auto& pair : connection.channels) {
        if (std::find(existing.channels.begin(), existing.channels.end(), pair) == existing.channels.end()) {
          existing.channels.push_back(pair);
        }
      }
      return;
    }
  }
  list_.push_back(connection);
}

namespace {

// What `project` makes of every connection that `select` picks, in list order.
template <typename Select, typename Project>
auto collect(const std::vector<NodeConnection>& list, Select select, Project project) {
  std::vector<std::decay_t<decltype(project(list.front()))>> result;
  for (const NodeConnection& connection : list) {
    if (select(connection)) {
      result.push_back(project(connection));
    }
  }
  return result;
}

const NodeConnection& whole(const NodeConnection& connection) {
  return connection;
}
uint32_t target(const NodeConnection& connection) {
  return connection.targetNode;
}

} // namespace

std::vector<NodeConnection> ConnectionTable::incoming(uint32_t node) const {
  return collect(
      list_, [node](const NodeConnection& c) { return c.targetNode == node; }, whole);
}

std::vector<NodeConnection> ConnectionTable::outgoing(uint32_t node) const {
  return collect(
      list_, [node](const NodeConnection& c) { return c.sourceNode == node; }, whole);
}

std::vector<uint32_t> ConnectionTable::successors(uint32_t node) const {
  return collect(
      list_, [node](const NodeConnection& c) { return c.sourceNode == node; }, target);
}

bool ConnectionTable::hasIncoming(uint32_t node) const {
  return std::any_of(list_.begin(), list_.end(), [node](const NodeConnection& c) { return c.targetNode == node; });
}

void ConnectionTable::clear() {
  list_.clear();
  renderSequence_.clear();
}

void ConnectionTable::visit(uint32_t node, std::set<uint32_t>& visited, std::vector<uint32_t>& postOrder) const {
  visited.insert(node);
  for (uint32_t next : successors(node)) {
    if (visited.count(next) == 0) {
      visit(next, visited, postOrder);
    }
  }
  postOrder.push_back(node);
}

void ConnectionTable::computeRenderSequence(const std::vector<uint32_t>& candidates) {
  const std::vector<NodeConnection> saved = list_;

  // Isolated nodes hang below the root, so that they still get a place.
  for (uint32_t candidate : candidates) {
    if (incoming(candidate).empty() && outgoing(candidate).empty()) {
      add(NodeConnection{kRenderRoot, candidate, {{0, 0}}});
    }
  }
  // And so do the roots: the sources that nothing feeds, in order.
  std::set<uint32_t> roots;
  for (const NodeConnection& connection : list_) {
    if (!hasIncoming(connection.sourceNode)) {
      roots.insert(connection.sourceNode);
    }
  }
  for (uint32_t root : roots) {
    list_.push_back(NodeConnection{kRenderRoot, root, {{0, 0}}});
  }

  std::set<uint32_t> visited;
  std::vector<uint32_t> postOrder;
  visit(kRenderRoot, visited, postOrder);
  renderSequence_.assign(postOrder.rbegin(), postOrder.rend());
  list_ = saved; // the root's connections were only scaffolding
}

void ConnectionTable::forEachInRenderOrder(const std::function<void(uint32_t, std::vector<NodeConnection>)>& f) const {
  for (uint32_t node : renderSequence_) {
    if (node != kRenderRoot) {
      f(node, incoming(node));
    }
  }
}

} // namespace vora
