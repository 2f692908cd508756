#include <stdexcept>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/strict_json.h"
#include "host/mesh/mesh_details.h"
#include "host/update/transfer_note.h"
#include "platform/core/process.h"
#include "platform/mesh/client.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"
#include "platform/webapi/api_runner.h"
#include "services/meshd/core_mesh/answers.h"

namespace kalo::core_mesh {
namespace {

constexpr std::size_t kLargestHistory = std::size_t{1} << 20;
constexpr const char* kUpgrade = "KALO.Mesh.Upgrade";

Json::Value ToJson(const MeshNodeDetails& node) {
  Json::Value value(Json::objectValue);
  value["id"] = node.id;
  value["name"] = node.name;
  value["model"] = node.model;
  value["version"] = node.version;
  value["role"] = node.role;
  value["online"] = node.online;
  value["boot_id"] = node.boot_id;
  value["step"] = node.step;
  value["percent"] = node.percent;
  value["staged_version"] = node.staged_version;
  value["error"] = node.error;
  return value;
}

// Another row's data, or {"error": code}.
Json::Value Ask(const std::string& api, int version, const std::string& method,
                const Json::Value& params = Json::objectValue) {
  Json::Value envelope;
  KALO::APIRunner::Exec(envelope, api, version, method, params, "");
  if (envelope["success"].asBool()) return envelope["data"];
  Json::Value error(Json::objectValue);
  error["error"] = envelope["error"]["code"];
  return error;
}

// What stands ready is told also while a node is away or the versions differ.
Json::Value StatusWhateverTheMesh() {
  Json::Value params(Json::objectValue);
  params["skip_re_status"] = true;
  return Ask(kUpgrade, 2, "status", params);
}

Json::Value Transfers() {
  Json::Value list(Json::arrayValue);
  for (const Transfer& transfer : TransfersUnderWay()) {
    Json::Value value(Json::objectValue);
    value["name"] = transfer.name;
    value["done"] = Json::UInt64{transfer.done};
    value["whole"] = Json::UInt64{transfer.whole};
    list.append(value);
  }
  return list;
}

// Of what is told elsewhere only so much that a page sees when to ask.
Json::Value NewestNotification() {
  const Json::Value list = Ask("KALO.Core.Notification", 1, "list")["notifications"];
  Json::Value newest(Json::objectValue);
  newest["count"] = list.isArray() ? list.size() : 0;
  newest["newest"] = list.isArray() && !list.empty() ? list[0]["id"] : Json::Value(0);
  return newest;
}

}  // namespace

Json::Value Nodes() {
  const MeshDetails details = GetMeshDetails();
  if (details.code != 0) {
    throw std::runtime_error(KALO::MESH::SDK::Client::ErrorCodeToSemanticString(details.code));
  }
  Json::Value answer(Json::objectValue);
  answer["update_running"] = details.update_running;
  answer["nodes"] = Json::Value(Json::arrayValue);
  for (const MeshNodeDetails& node : details.nodes) answer["nodes"].append(ToJson(node));
  return answer;
}

Json::Value History() {
  Json::Value answer(Json::objectValue);
  Json::Value& updates = answer["updates"] = Json::Value(Json::arrayValue);
  const auto text = ReadFile(KALO::paths::kUpdateHistory, kLargestHistory);
  const auto list = text ? ParseStrictJson(*text) : std::nullopt;
  if (!list || !list->isArray()) return answer;
  for (Json::ArrayIndex i = list->size(); i > 0; --i) updates.append((*list)[i - 1]);
  return answer;
}

Json::Value State() {
  Json::Value state = Nodes();
  state["status"] = Ask(kUpgrade, 2, "status");
  state["status_whatever_the_mesh"] = StatusWhateverTheMesh();
  state["update"] = Ask(kUpgrade, 2, "progress");
  state["download"] = Ask("KALO.Mesh.Upgrade.Download", 2, "progress");
  state["automatic"] = KALO::MESH::SDK::Upgrade::UpdateUtil::IsAutoUpdating();
  state["equal"] = KLIBCReadPidFile(KALO::paths::kEqualUpdatePid) > 0;
  state["transfers"] = Transfers();
  state["notifications"] = NewestNotification();
  const Json::Value updates = History()["updates"];
  state["last_update"] = updates.empty() ? Json::Value() : updates[0];
  return state;
}

}  // namespace kalo::core_mesh
