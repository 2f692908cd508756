#pragma once

#include <memory>
#include <string>

#include "host/update/node_client.h"
#include "services/meshd/node_api.h"
#include "services/meshd/node_list.h"

namespace kalo::meshd {

/// The real calls: the node's web API over mutual TLS.
class WebNodeApi final : public NodeApi {
 public:
  explicit WebNodeApi(const MeshNode& node);

  [[nodiscard]] std::optional<NodeReport> Info() override;
  [[nodiscard]] StartAnswer Start() override;

 private:
  // Loads the mesh's credentials at the first call, and again at each later one while they are not
  // there.
  // @return null when they cannot be loaded.
  [[nodiscard]] NodeClient* Client();
  [[nodiscard]] std::optional<NodeReport> ReadInfo(const KALO::MESH::SDK::Response& response);
  // A node says the same each second: what is wrong with it is logged when it changes.
  void Complain(const std::string& what);

  NodeAddress node_;
  std::unique_ptr<NodeClient> client_;
  std::string complaint_;  // the last one; empty when all is well
};

}  // namespace kalo::meshd
