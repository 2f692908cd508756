#include "host/update/node_client.h"

#include "host/update/mesh_credentials.h"
#include "host/update/node_transfer.h"

namespace kalo {

class NodeClient::Impl {
 public:
  explicit Impl(const UploadLimits& limits) : curl_(NewCurlHandle()), limits_(limits) {}

  [[nodiscard]] CURL* Handle() const { return curl_.get(); }
  [[nodiscard]] const UploadLimits& Limits() const { return limits_; }

 private:
  CurlHandle curl_;
  UploadLimits limits_;
};

NodeClient::NodeClient(const UploadLimits& limits) {
  CheckMeshCredentials();
  impl_ = std::make_unique<Impl>(limits);
}

NodeClient::~NodeClient() = default;

KALO::MESH::SDK::Response NodeClient::Call(const NodeAddress& node, const std::string& api,
                                           int version, const std::string& method,
                                           const Json::Value& params,
                                           std::chrono::milliseconds deadline) {
  NodeTransfer transfer(impl_->Handle(), node, {api, version, method});
  transfer.SendJson(params, deadline);
  return transfer.Answer(Curl().easy_perform(impl_->Handle()));
}

KALO::MESH::SDK::Response NodeClient::Upload(const NodeAddress& node, const std::string& api,
                                             int version, const std::string& method,
                                             const Json::Value& params, const std::string& path) {
  NodeTransfer transfer(impl_->Handle(), node, {api, version, method});
  transfer.SendForm(params, path, impl_->Limits());
  return transfer.Answer(PerformTransfer(impl_->Handle(), [] { return true; }));
}

}  // namespace kalo
