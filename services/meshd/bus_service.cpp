#include "services/meshd/bus_service.h"

#include <syslog.h>

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "host/core/log.h"
#include "host/mesh/wire.h"

namespace kalo::meshd {
namespace {

namespace Client = KALO::MESH::SDK::Client;

// The replies' types in sdbus-c++'s words; the introspection text comes from them.
using NodeStruct = sdbus::Struct<std::string, std::string, std::string, std::string, std::int32_t,
                                 std::int32_t, std::string, std::string>;
using AccessStruct = sdbus::Struct<std::uint32_t, std::uint32_t, bool>;
using StatusStruct = sdbus::Struct<std::uint32_t, bool>;
using DetailsStruct =
    sdbus::Struct<std::uint32_t, std::string, std::string, std::string, std::string, bool,
                  std::string, std::string, std::int32_t, std::string, std::string>;

using NodesReply = std::tuple<std::uint16_t, std::map<std::uint32_t, NodeStruct>>;
using AccessReply = std::tuple<std::uint16_t, std::map<std::uint32_t, AccessStruct>>;
using StatusReply = std::tuple<std::uint16_t, bool, std::vector<StatusStruct>>;
using ProgressReply = std::tuple<std::uint16_t, std::string, std::string, std::int32_t,
                                 std::int32_t, std::string, std::string>;
using ProgressV2Reply = std::tuple<std::uint16_t, std::string, std::string, std::int32_t,
                                   std::int32_t, std::int32_t, std::string, std::string>;
using DetailsReply = std::tuple<std::uint16_t, bool, std::vector<DetailsStruct>>;

NodesReply ToReply(const Client::NodeInfosResult& result) {
  std::map<std::uint32_t, NodeStruct> nodes;
  for (const auto& [id, info] : result.nodes) {
    nodes.emplace(id, NodeStruct(info.name, info.unique, info.address, info.full_version,
                                 info.build_num, info.nano_num, info.boot_id, info.staged_version));
  }
  return {result.code, std::move(nodes)};
}

AccessReply ToReply(const Client::RepeaterAccessInfosResult& result) {
  std::map<std::uint32_t, AccessStruct> nodes;
  for (const auto& [id, info] : result.nodes) {
    nodes.emplace(id, AccessStruct(info.parent_id, info.hops, info.wired));
  }
  return {result.code, std::move(nodes)};
}

StatusReply ToReply(const Client::MeshSystemStatus& status) {
  std::vector<StatusStruct> nodes;
  nodes.reserve(status.nodes.size());
  for (const auto& node : status.nodes) nodes.emplace_back(node.node_id, node.offline);
  return {status.code, status.syncing, std::move(nodes)};
}

ProgressReply ToReply(const Client::SystemUpdateProgress& progress) {
  return {progress.code,         progress.version,  progress.step,   progress.percent,
          progress.error_number, progress.err_desc, progress.err_msg};
}

ProgressV2Reply ToReplyV2(const Client::SystemUpdateProgress& progress) {
  return {progress.code,     progress.version,          progress.step,
          progress.percent,  progress.total_percentage, progress.error_number,
          progress.err_desc, progress.err_msg};
}

DetailsReply ToReply(const MeshDetails& details) {
  std::vector<DetailsStruct> nodes;
  nodes.reserve(details.nodes.size());
  for (const auto& node : details.nodes) {
    nodes.emplace_back(node.id, node.name, node.model, node.version, node.role, node.online,
                       node.boot_id, node.step, node.percent, node.staged_version, node.error);
  }
  return {details.code, details.update_running, std::move(nodes)};
}

// Not in a call of the bus library, which would take what is thrown. The update goes on by itself;
// its progress tells of it.
void Answer(const sdbus::Result<std::uint32_t>& reply, mesh::MeshCode code) {
  try {
    reply.returnResults(static_cast<std::uint32_t>(code));
  } catch (const sdbus::Error& e) {
    Log(LOG_ERR, "who started the update gets no answer: %s", e.what());
  }
}

}  // namespace

BusService::BusService(sdbus::IConnection& connection, MeshService& service)
    : object_(sdbus::createObject(connection, mesh::kObjectPath)) {
  RegisterNodeMethods(service);
  RegisterUpdateMethods(service);
  object_->finishRegistration();
  // Last: who finds the name finds all of the object.
  connection.requestName(mesh::kServiceName);
}

void BusService::RegisterNodeMethods(MeshService& service) {
  object_->registerMethod(mesh::method::kGetNodeInfos)
      .onInterface(mesh::kInterface)
      .withOutputParamNames("code", "nodes")
      .implementedAs([&service] { return ToReply(service.NodeInfos()); });
  object_->registerMethod(mesh::method::kGetRepeaterAccessInfos)
      .onInterface(mesh::kInterface)
      .withOutputParamNames("code", "nodes")
      .implementedAs([&service] { return ToReply(service.AccessInfos()); });
  object_->registerMethod(mesh::method::kGetMeshSystemStatus)
      .onInterface(mesh::kInterface)
      .withOutputParamNames("code", "syncing", "nodes")
      .implementedAs([&service] { return ToReply(service.SystemStatus()); });
  object_->registerMethod(mesh::method::kGetNodes)
      .onInterface(mesh::kInterface)
      .withOutputParamNames("code", "update_running", "nodes")
      .implementedAs([&service] { return ToReply(service.Details()); });
}

void BusService::RegisterUpdateMethods(MeshService& service) {
  // Answered later: the nodes are asked first, and other calls need not wait for that.
  object_->registerMethod(mesh::method::kStartSystemUpdate)
      .onInterface(mesh::kInterface)
      .withOutputParamNames("status")
      .implementedAs([this, &service](sdbus::Result<std::uint32_t>&& result) {
        const auto reply = std::make_shared<sdbus::Result<std::uint32_t>>(std::move(result));
        // The reply points into the object, and may come after this service has ended.
        service.StartUpdate(
            [object = object_, reply](mesh::MeshCode code) { Answer(*reply, code); });
      });
  object_->registerMethod(mesh::method::kGetSystemUpdateProgress)
      .onInterface(mesh::kInterface)
      .withOutputParamNames("code", "version", "step", "percent", "errno", "err_desc", "err_msg")
      .implementedAs([&service] { return ToReply(service.Progress()); });
  object_->registerMethod(mesh::method::kGetSystemUpdateProgressV2)
      .onInterface(mesh::kInterface)
      .withOutputParamNames("code", "version", "step", "percent", "total_percentage", "errno",
                            "err_desc", "err_msg")
      .implementedAs([&service] { return ToReplyV2(service.Progress()); });
}

}  // namespace kalo::meshd
