#pragma once

#include <json/value.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "platform/mesh/types.h"
#include "platform/update/response.h"

namespace KALO::MESH::SDK::Upgrade {

/// A node of the mesh that can be called.
class Node {
 public:
  Node(std::int32_t node_id, std::string address);

  /// @return 0 for the main router (the CAP).
  [[nodiscard]] std::int32_t GetNodeID() const;
  /// @return where its web API server listens, without port.
  [[nodiscard]] const std::string& GetAddress() const { return address_; }

  /// Sends a file with a web API call to this node and waits for its answer. The file is streamed.
  /// @param params the call's other parameters, a JSON object
  /// @param path   the file to send
  /// @return the node's answer; not valid when none came, or none that can be read.
  /// @throws std::exception when the file cannot be read or the node cannot be reached.
  [[nodiscard]] Response Upload(const std::string& api, const std::string& method, int version,
                                const Json::Value& params, const std::string& path) const;

 private:
  std::int32_t node_id_;
  std::string address_;
};

/// A node with what it runs.
class UpdateNode : public Node {
 public:
  UpdateNode(std::int32_t node_id, const Client::NodeInfo& info);

  [[nodiscard]] std::int32_t GetBuildNum() const { return build_num_; }
  [[nodiscard]] std::int32_t GetNanoNum() const { return nano_num_; }
  /// @return the display form, "VXM 1.4.0-76000 Update 1".
  [[nodiscard]] const std::string& GetFullVersion() const { return full_version_; }
  /// @return the hardware model.
  [[nodiscard]] const std::string& GetUnique() const;

  /// Joins the service's two answers: the nodes that stand in both, and node 0, by ascending id.
  static std::vector<UpdateNode> ToUpdateNodes(
      const std::map<std::uint32_t, Client::NodeInfo>& infos,
      const std::map<std::uint32_t, Client::RepeaterAccessInfo>& access_infos);

 private:
  std::int32_t build_num_;
  std::int32_t nano_num_;
  std::string full_version_;
  std::string unique_;
};

}  // namespace KALO::MESH::SDK::Upgrade
