// The module core-upgrade.so: what every node, node 0 included, offers to node 0.

#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "platform/webapi/api_table.h"
#include "services/node/error_codes.h"
#include "services/node/node_info.h"
#include "services/node/patch_calls.h"

using KALO::APIRequest;
using KALO::APIResponse;

namespace {

void AnswerWith(Json::Value (*answer)(), APIResponse& response) {
  try {
    response.SetSuccess(answer());
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "upgrade: %s", e.what());
    response.SetError(kalo::node::error::kGeneral, Json::Value());
  }
}

void Info(APIRequest* /*request*/, APIResponse* response) {
  AnswerWith(kalo::node::NodeInfo, *response);
}

void Progress(APIRequest* /*request*/, APIResponse* response) {
  AnswerWith(kalo::node::InstallProgress, *response);
}

void Start(APIRequest* request, APIResponse* response) {
  kalo::node::StartInstall(*request, *response);
}

void Upload(APIRequest* request, APIResponse* response) {
  kalo::node::UploadPatch(*request, *response);
}

void Clean(APIRequest* request, APIResponse* response) {
  kalo::node::CleanPatch(*request, *response);
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {
extern const KALO::APIRow gTable[5];
const KALO::APIRow* GetAPITable();
}
#pragma GCC visibility pop

// clang-format off
const KALO::APIRow gTable[5] = {
    {"KALO.Core.Upgrade",       1, "info",     Info},
    {"KALO.Core.Upgrade",       1, "progress", Progress},
    {"KALO.Core.Upgrade",       1, "start",    Start},
    {"KALO.Core.Upgrade.Patch", 1, "upload",   Upload},
    {"KALO.Core.Upgrade.Patch", 1, "clean",    Clean},
};
// clang-format on

const KALO::APIRow* GetAPITable() {
  return gTable;
}
