#include "host/update/download/download_progress.h"
#include "host/update/node_client.h"
#include "platform/update/update_node.h"

namespace KALO::MESH::SDK::Upgrade {

Node::Node(std::int32_t node_id, std::string address)
    : node_id_(node_id), address_(std::move(address)) {}

std::int32_t Node::GetNodeID() const {
  return node_id_;
}

Response Node::Upload(const std::string& api, const std::string& method, int version,
                      const Json::Value& params, const std::string& path) const {
  kalo::UploadLimits limits;
  limits.is_cancelled = [] { return kalo::download::DownloadProgress().IsCancelled(); };
  kalo::NodeClient client(limits);
  return client.Upload({node_id_, address_}, api, version, method, params, path);
}

}  // namespace KALO::MESH::SDK::Upgrade
