#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "services/meshd/node_list.h"
#include "services/meshd/node_report.h"

namespace kalo::meshd {

using TimePoint = std::chrono::steady_clock::time_point;

/// A node with what it last said.
struct KnownNode {
  MeshNode place;
  bool asked = false;  ///< since the service started, with or without an answer
  bool online = false;
  int silences = 0;  ///< tries without an answer since the last answer
  TimePoint last_answer{};
  /// Stays when the node goes offline. Without a boot id it is from before the service started.
  std::optional<NodeReport> report;
};

enum class NodeChange { kNone, kCameOnline, kWentOffline, kRestarted };

/// What the heartbeat knows of every node. A node is offline after three tries in a row without an
/// answer, or when a try failed and its last answer is three seconds old: a node that hangs uses up
/// its deadline, one that refuses fails at once, and both show within about three seconds.
class NodeRegistry {
 public:
  explicit NodeRegistry(const std::vector<MeshNode>& nodes);

  /// Takes over what was known of a node before the service started.
  void Remember(const NodeReport& report);

  /// @param report of a known node
  NodeChange Answered(const NodeReport& report, TimePoint now);
  NodeChange Silent(std::uint32_t id, TimePoint now);

  [[nodiscard]] const std::map<std::uint32_t, KnownNode>& Nodes() const { return nodes_; }
  /// @return whether some node was not asked yet.
  [[nodiscard]] bool Syncing() const;

 private:
  std::map<std::uint32_t, KnownNode> nodes_;
};

}  // namespace kalo::meshd
