#include "services/meshd/web_node_api.h"

#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "services/meshd/json_members.h"
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
    Complain(std::string("it cannot be called: ") + e.what());
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
    Complain("it answers info with error " + std::to_string(response.GetErrno()));
    return std::nullopt;
  }
  try {
    NodeReport report = ParseNodeReport(data);
    if (report.node_id != static_cast<std::uint32_t>(node_.node_id)) {
      throw BadJson("it calls itself node " + std::to_string(report.node_id));
    }
    Complain("");
    return report;
  } catch (const BadJson& e) {
    Complain(std::string("its info cannot be used: ") + e.what());
    return std::nullopt;
  }
}

void WebNodeApi::Complain(const std::string& what) {
  if (!what.empty() && what != complaint_) {
    Log(LOG_WARNING, "node %d: %s", node_.node_id, what.c_str());
  }
  complaint_ = what;
}

StartAnswer WebNodeApi::Start() {
  NodeClient* client = Client();
  if (client == nullptr) return {};
  try {
    const KALO::MESH::SDK::Response response =
        client->Call(node_, kApi, kApiVersion, "start", Json::objectValue, kStartDeadline);
    if (!response.IsValid()) return {};
    if (response.IsSuccess()) return {StartOutcome::kAccepted, 0};
    if (response.GetErrno() == node::error::kBusy)
      return {StartOutcome::kLater, node::error::kBusy};
    return {StartOutcome::kRefused, response.GetErrno()};
  } catch (const NodeUnreachable& e) {
    Log(LOG_WARNING, "node %d: start: %s", node_.node_id, e.what());
    return {};
  }
}

}  // namespace kalo::meshd
