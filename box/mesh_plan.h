#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kalo::box {

inline constexpr int kMaxNodes = 16;

/// One node of the sample mesh.
struct PlannedNode {
  int id = 0;
  std::string name;
  std::string model;    ///< the hardware's "unique"
  std::string address;  ///< on the mesh's own loopback
  int parent = 0;
  int hops = 0;
  bool wired = false;
};

/// A mesh of two models: the CAP, one satellite by cable, and a chain of satellites by radio.
/// @param nodes from 1 to kMaxNodes
/// @throws std::invalid_argument
[[nodiscard]] std::vector<PlannedNode> PlanMesh(int nodes);

/// @return every model of the mesh, once.
[[nodiscard]] std::vector<std::string> ModelsOf(const std::vector<PlannedNode>& nodes);

/// @return the CAP's list of its nodes, as it stands in /etc/kalo/mesh/nodes.json.
[[nodiscard]] std::string NodesJson(const std::vector<PlannedNode>& nodes);

}  // namespace kalo::box
