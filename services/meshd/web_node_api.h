#pragma once

#include <memory>

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

  NodeAddress node_;
  std::unique_ptr<NodeClient> client_;
  bool complained_ = false;
};

}  // namespace kalo::meshd
