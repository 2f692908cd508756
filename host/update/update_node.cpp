#include "platform/update/update_node.h"

#include <limits>

namespace KALO::MESH::SDK::Upgrade {

UpdateNode::UpdateNode(std::int32_t node_id, const Client::NodeInfo& info)
    : Node(node_id, info.address),
      build_num_(info.build_num),
      nano_num_(info.nano_num),
      full_version_(info.full_version),
      unique_(info.unique) {}

const std::string& UpdateNode::GetUnique() const {
  return unique_;
}

std::vector<UpdateNode> UpdateNode::ToUpdateNodes(
    const std::map<std::uint32_t, Client::NodeInfo>& infos,
    const std::map<std::uint32_t, Client::RepeaterAccessInfo>& access_infos) {
  std::vector<UpdateNode> nodes;
  for (const auto& [id, info] : infos) {
    if (id != 0 && !access_infos.contains(id)) continue;
    // Ids are signed further up; one that does not fit names no node.
    if (id > static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max())) continue;
    nodes.emplace_back(static_cast<std::int32_t>(id), info);
  }
  return nodes;
}

}  // namespace KALO::MESH::SDK::Upgrade
