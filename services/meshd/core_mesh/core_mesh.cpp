// core-mesh.so: the administrators' view of the mesh's nodes.

#include <json/value.h>
#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "host/mesh/mesh_details.h"
#include "platform/mesh/client.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_table.h"

#pragma GCC visibility push(default)
extern "C" {

extern const KALO::APIRow gTable[1];
const KALO::APIRow* GetAPITable();
void WebapiCoreMeshNodes(KALO::APIRequest* request, KALO::APIResponse* response);
}
#pragma GCC visibility pop

namespace {

constexpr int kGeneralFailure = 117;

Json::Value ToJson(const kalo::MeshNodeDetails& node) {
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

void AnswerNodes(KALO::APIResponse& response) {
  const kalo::MeshDetails details = kalo::GetMeshDetails();
  if (details.code != 0) {
    kalo::Log(LOG_ERR, "the mesh's nodes are not known: %s",
              KALO::MESH::SDK::Client::ErrorCodeToSemanticString(details.code).c_str());
    response.SetError(kGeneralFailure, Json::Value());
    return;
  }
  Json::Value answer(Json::objectValue);
  answer["update_running"] = details.update_running;
  answer["nodes"] = Json::Value(Json::arrayValue);
  for (const kalo::MeshNodeDetails& node : details.nodes) answer["nodes"].append(ToJson(node));
  response.SetSuccess(answer);
}

}  // namespace

const KALO::APIRow gTable[1] = {
    {"KALO.Core.Mesh", 1, "nodes", WebapiCoreMeshNodes},
};

const KALO::APIRow* GetAPITable() {
  return gTable;
}

void WebapiCoreMeshNodes(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  try {
    AnswerNodes(*response);
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "the mesh's nodes are not known: %s", e.what());
    response->SetError(kGeneralFailure, Json::Value());
  }
}
