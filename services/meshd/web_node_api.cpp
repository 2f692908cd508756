#include "services/meshd/web_node_api.h"

#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "services/node/error_codes.h"

namespace kalo::meshd {
namespace {

using namespace std::chrono_literals;

constexpr const char* kApi = "KALO.Core.Upgrade";
constexpr int kApiVersion = 1;
// Short enough that a node that hangs counts as offline within three seconds.
constexpr auto kInfoDeadline = 2s;
constexpr auto kStartDeadline = 5s;

}  // namespace

WebNodeApi::WebNodeApi(const MeshNode& node)
    : node_{static_cast<std::int32_t>(node.id), node.address} {}

NodeClient* WebNodeApi::Client() {
  if (client_ != nullptr) return client_.get();
  try {
    client_ = std::make_unique<NodeClient>();
  } catch (const std::runtime_error& e) {
    if (!complained_) Log(LOG_ERR, "cannot call node %d: %s", node_.node_id, e.what());
    complained_ = true;
  }
  return client_.get();
}

std::optional<NodeReport> WebNodeApi::Info() {
  NodeClient* client = Client();
  if (client == nullptr) return std::nullopt;
  try {
    return ReadInfo(
        client->Call(node_, kApi, kApiVersion, "info", Json::objectValue, kInfoDeadline));
  } catch (const NodeUnreachable& e) {
    Log(LOG_DEBUG, "node %d: %s", node_.node_id, e.what());
    return std::nullopt;
  }
}

std::optional<NodeReport> WebNodeApi::ReadInfo(const KALO::MESH::SDK::Response& response) {
  Json::Value data;
  if (!response.IsValid() || !response.IsSuccess() || !response.GetData(data)) {
    Log(LOG_WARNING, "node %d: info failed, error %d", node_.node_id, response.GetErrno());
    return std::nullopt;
  }
  std::optional<NodeReport> report = ParseNodeReport(data);
  if (report && report->node_id != static_cast<std::uint32_t>(node_.node_id)) {
    Log(LOG_ERR, "node %d calls itself node %u", node_.node_id, report->node_id);
    return std::nullopt;
  }
  return report;
}

StartAnswer WebNodeApi::Start() {
  NodeClient* client = Client();
  if (client == nullptr) return {};
  try {
    const KALO::MESH::SDK::Response response =
        client->Call(node_, kApi, kApiVersion, "start", Json::objectValue, kStartDeadline);
    if (!response.IsValid()) return {};
    if (response.IsSuccess()) return {StartOutcome::kAccepted, 0};
    if (response.GetErrno() == node::error::kBusy) return {};
    return {StartOutcome::kRefused, response.GetErrno()};
  } catch (const NodeUnreachable& e) {
    Log(LOG_WARNING, "node %d: start: %s", node_.node_id, e.what());
    return {};
  }
}

}  // namespace kalo::meshd
