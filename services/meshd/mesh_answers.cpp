#include "services/meshd/mesh_answers.h"

#include <algorithm>

namespace kalo::meshd {
namespace {

namespace Client = KALO::MESH::SDK::Client;

Client::NodeInfo InfoOf(const KnownNode& node) {
  Client::NodeInfo info;
  info.name = node.report->name;
  info.unique = node.report->unique;
  info.address = node.place.address;
  info.full_version = node.report->version;
  info.build_num = node.report->build;
  info.nano_num = node.report->nano;
  info.boot_id = node.report->boot_id;
  info.staged_version = node.report->staged_version;
  return info;
}

void AddReport(const NodeReport& report, MeshNodeDetails& details) {
  details.name = report.name;
  details.model = report.unique;
  details.version = report.version;
  details.boot_id = report.boot_id;
  details.step = report.install.step;
  details.percent = report.install.percent;
  details.staged_version = report.staged_version;
}

void AddUpdate(const UpdateNode& node, bool running, MeshNodeDetails& details) {
  if (running) {
    details.step = node.step;
    details.percent = node.percent;
    if (node.stage == NodeStage::kDone) details.step = "finish";
    if (node.stage == NodeStage::kDone) details.percent = 100;
  }
  if (node.stage == NodeStage::kFailed) details.step = "failed";
  if (node.error.number != 0) {
    details.error = node.error.description + ": " + node.error.message;
  }
}

}  // namespace

Client::NodeInfosResult NodeInfosOf(const NodeRegistry& registry) {
  Client::NodeInfosResult result;
  for (const auto& [id, node] : registry.Nodes()) {
    if (node.report) result.nodes.emplace(id, InfoOf(node));
  }
  return result;
}

Client::RepeaterAccessInfosResult AccessInfosOf(const NodeRegistry& registry) {
  Client::RepeaterAccessInfosResult result;
  for (const auto& [id, node] : registry.Nodes()) {
    if (!node.online) continue;
    result.nodes.emplace(
        id, Client::RepeaterAccessInfo{node.place.parent, node.place.hops, node.place.wired});
  }
  return result;
}

Client::MeshSystemStatus SystemStatusOf(const NodeRegistry& registry) {
  Client::MeshSystemStatus status;
  status.syncing = registry.Syncing();
  for (const auto& [id, node] : registry.Nodes()) {
    status.nodes.push_back({id, node.asked && !node.online});
  }
  return status;
}

MeshDetails DetailsOf(const NodeRegistry& registry, const UpdateRecord& record) {
  MeshDetails result;
  result.update_running = record.state == UpdateState::kRunning;
  for (const auto& [id, node] : registry.Nodes()) {
    MeshNodeDetails details;
    details.id = id;
    details.role = id == 0 ? "cap" : "satellite";
    details.online = node.online;
    details.step = "none";
    if (node.report) AddReport(*node.report, details);
    const auto part =
        std::find_if(record.nodes.begin(), record.nodes.end(),
                     [wanted = id](const UpdateNode& entry) { return entry.id == wanted; });
    if (part != record.nodes.end()) AddUpdate(*part, result.update_running, details);
    result.nodes.push_back(std::move(details));
  }
  return result;
}

}  // namespace kalo::meshd
