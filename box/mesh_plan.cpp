#include "box/mesh_plan.h"

#include <json/value.h>
#include <json/writer.h>

#include <array>
#include <set>
#include <stdexcept>

namespace kalo::box {
namespace {

constexpr std::array kNames = {"Hall", "Living room", "Kitchen", "Attic", "Study", "Garage"};

std::string NameOf(int id) {
  const auto index = static_cast<std::size_t>(id);
  return index < kNames.size() ? kNames.at(index) : "Room " + std::to_string(id);
}

}  // namespace

std::vector<PlannedNode> PlanMesh(int nodes) {
  if (nodes < 1 || nodes > kMaxNodes) throw std::invalid_argument("a mesh has 1 to 16 nodes");
  std::vector<PlannedNode> plan;
  for (int id = 0; id < nodes; ++id) {
    PlannedNode node;
    node.id = id;
    node.name = NameOf(id);
    node.model = id % 2 == 0 ? "kalo_m1" : "kalo_m2";
    node.address = "127.0.0." + std::to_string(id + 1);
    // Nodes 1 and 2 hang on the CAP, 1 by cable; each later one hangs on the one before it.
    node.parent = id <= 2 ? 0 : id - 1;
    node.hops = id == 0 ? 0 : plan.at(static_cast<std::size_t>(node.parent)).hops + 1;
    node.wired = id <= 1;
    plan.push_back(node);
  }
  return plan;
}

std::vector<std::string> ModelsOf(const std::vector<PlannedNode>& nodes) {
  std::set<std::string> models;
  for (const PlannedNode& node : nodes) models.insert(node.model);
  return {models.begin(), models.end()};
}

std::string NodesJson(const std::vector<PlannedNode>& nodes) {
  Json::Value list(Json::arrayValue);
  for (const PlannedNode& node : nodes) {
    Json::Value entry(Json::objectValue);
    entry["id"] = node.id;
    entry["address"] = node.address;
    entry["parent"] = node.parent;
    entry["hops"] = node.hops;
    entry["wired"] = node.wired;
    list.append(entry);
  }
  return list.toStyledString();
}

}  // namespace kalo::box
