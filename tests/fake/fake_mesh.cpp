// The mesh service's client.

#include "platform/mesh/client.h"
#include "tests/fake/platform.h"

using fake::Platform;

namespace KALO::MESH::SDK::Client {
namespace {

class FakeClient : public MeshClient {
 public:
  NodeInfosResult GetNodeInfos() override {
    Platform::Current().Note("node_infos");
    return Platform::Current().node_infos;
  }
  RepeaterAccessInfosResult GetRepeaterAccessInfos() override {
    Platform::Current().Note("access_infos");
    return Platform::Current().access_infos;
  }
  MeshSystemStatus GetMeshSystemStatus() override {
    Platform::Current().Note("system_status");
    return Platform::Current().system_status;
  }
  std::uint32_t StartSystemUpdate() override {
    Platform::Current().Note("start_update");
    return Platform::Current().start_result;
  }
  SystemUpdateProgress GetSystemUpdateProgress() override {
    Platform::Current().Note("progress");
    return Platform::Current().progress;
  }
  SystemUpdateProgress GetSystemUpdateProgressV2() override {
    Platform::Current().Note("progress_v2");
    return Platform::Current().progress;
  }
};

}  // namespace

std::shared_ptr<MeshClient> MeshClientFactory::GetClient() {
  Platform::Current().Note("client");
  if (Platform::Current().on_get_client) Platform::Current().on_get_client();
  return std::make_shared<FakeClient>();
}

std::string ErrorCodeToNumericalString(std::uint16_t code) {
  return std::to_string(code);
}

std::string ErrorCodeToSemanticString(std::uint16_t code) {
  return "words for " + std::to_string(code);
}

}  // namespace KALO::MESH::SDK::Client
