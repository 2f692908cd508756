#include "services/meshd/node_registry.h"

#include <algorithm>

namespace kalo::meshd {
namespace {

using namespace std::chrono_literals;

constexpr int kSilencesToOffline = 3;
constexpr auto kSilenceToOffline = 3s;

}  // namespace

NodeRegistry::NodeRegistry(const std::vector<MeshNode>& nodes) {
  for (const MeshNode& node : nodes) nodes_[node.id].place = node;
}

void NodeRegistry::Remember(const NodeReport& report) {
  const auto node = nodes_.find(report.node_id);
  if (node != nodes_.end()) node->second.report = report;
}

NodeChange NodeRegistry::Answered(const NodeReport& report, TimePoint now) {
  KnownNode& node = nodes_.at(report.node_id);
  const bool was_online = node.online;
  const bool restarted =
      node.report && !node.report->boot_id.empty() && node.report->boot_id != report.boot_id;
  node.asked = true;
  node.online = true;
  node.silences = 0;
  node.last_answer = now;
  node.report = report;
  if (restarted) return NodeChange::kRestarted;
  return was_online ? NodeChange::kNone : NodeChange::kCameOnline;
}

NodeChange NodeRegistry::Silent(std::uint32_t id, TimePoint now) {
  KnownNode& node = nodes_.at(id);
  node.asked = true;
  ++node.silences;
  if (!node.online) return NodeChange::kNone;
  if (node.silences < kSilencesToOffline && now - node.last_answer < kSilenceToOffline) {
    return NodeChange::kNone;
  }
  node.online = false;
  return NodeChange::kWentOffline;
}

bool NodeRegistry::Syncing() const {
  return std::any_of(nodes_.begin(), nodes_.end(),
                     [](const auto& entry) { return !entry.second.asked; });
}

}  // namespace kalo::meshd
