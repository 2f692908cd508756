// core-mesh.so: the administrators' view of the mesh beside the upgrade module's own rows.

#include <json/value.h>
#include <syslog.h>

#include <exception>
#include <functional>

#include "host/core/log.h"
#include "host/webapi/error_codes.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_table.h"
#include "services/meshd/core_mesh/answers.h"

#pragma GCC visibility push(default)
extern "C" {

extern const KALO::APIRow gTable[5];
const KALO::APIRow* GetAPITable();
void WebapiCoreMeshNodes(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiCoreMeshEvents(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiCoreMeshHistory(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiCoreMeshReleases(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiCoreMeshDiagnosis(KALO::APIRequest* request, KALO::APIResponse* response);
}
#pragma GCC visibility pop

namespace {

void Answer(KALO::APIResponse& response, const char* what,
            const std::function<Json::Value()>& make) {
  try {
    response.SetSuccess(make());
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "%s: %s", what, e.what());
    response.SetError(kalo::webapi::kGeneralFailure, Json::Value());
  }
}

}  // namespace

const KALO::APIRow gTable[5] = {
    {"KALO.Core.Mesh", 1, "nodes", WebapiCoreMeshNodes},
    {"KALO.Core.Mesh", 1, "events", WebapiCoreMeshEvents},
    {"KALO.Core.Mesh", 1, "history", WebapiCoreMeshHistory},
    {"KALO.Core.Mesh", 1, "releases", WebapiCoreMeshReleases},
    {"KALO.Core.Mesh", 1, "diagnosis", WebapiCoreMeshDiagnosis},
};

const KALO::APIRow* GetAPITable() {
  return gTable;
}

void WebapiCoreMeshNodes(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  Answer(*response, "the mesh's nodes", kalo::core_mesh::Nodes);
}

void WebapiCoreMeshEvents(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  Answer(*response, "the mesh's state", kalo::core_mesh::State);
}

void WebapiCoreMeshHistory(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  Answer(*response, "the history of updates", kalo::core_mesh::History);
}

void WebapiCoreMeshReleases(KALO::APIRequest* request, KALO::APIResponse* response) {
  const Json::Value version = request->GetParam("version", Json::Value());
  if (!version.isString()) return response->SetError(kalo::webapi::kBadParameter, Json::Value());
  Answer(*response, "the maker's releases",
         [&] { return kalo::core_mesh::Releases(version.asString()); });
}

void WebapiCoreMeshDiagnosis(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  Answer(*response, "the diagnosis", kalo::core_mesh::Diagnosis);
}
