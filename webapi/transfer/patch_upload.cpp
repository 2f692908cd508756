#include <syslog.h>
#include <unistd.h>

#include <algorithm>

#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using UploadWork = UpgradeHandler::UploadWork;

void UploadOne(UploadWork& work) {
  try {
    Json::Value params(Json::objectValue);
    params["base_ver_num"] = work.baseVerNum;
    work.response =
        work.node->Upload("KALO.Core.Upgrade.Patch", "upload", 1, params, work.patchPath);
  } catch (const std::exception& e) {
    Log(LOG_ERR, __LINE__, "Exception: %s", e.what());
  }
}

// Makes room before the router takes its own patch. At error priority: a file goes for good.
void RemoveOtherPatches(const std::vector<UploadWork>& works, const UploadWork& local) {
  for (const UploadWork& work : works) {
    if (work.patchPath == local.patchPath) continue;
    Log(LOG_ERR, __LINE__, "Is going to remove %s", work.patchPath.c_str());
    unlink(work.patchPath.c_str());
  }
}

}  // namespace

UpgradeHandler::UploadWork UpgradeHandler::createUploadWork(UpdateNode& node,
                                                            const std::string& patch_path,
                                                            const std::string& base_version) {
  return {std::make_shared<UpdateNode>(node), patch_path, SDK::Response(), base_version};
}

UpgradeHandler::UploadWork UpgradeHandler::createUploadWork(int node_id,
                                                            const std::string& patch_path,
                                                            const std::string& base_version) {
  std::vector<UpdateNode> nodes = GetUpdateNodes();
  const auto node = std::find_if(
      nodes.begin(), nodes.end(),
      [node_id](const UpdateNode& candidate) { return candidate.GetNodeID() == node_id; });
  if (node == nodes.end()) {
    Log(LOG_ERR, __LINE__, "Failed to find update node for node [%d]", node_id);
    throw WebapiException("Failed to create upload work");
  }
  return createUploadWork(*node, patch_path, base_version);
}

void UpgradeHandler::UploadPatch(std::vector<UploadWork>& works) {
  Log(LOG_DEBUG, __LINE__, "Start Upload Patch");
  UploadWork* local = nullptr;
  for (UploadWork& work : works) {
    if (work.node->GetNodeID() == 0) {
      local = &work;
    } else {
      UploadOne(work);
    }
  }
  if (local == nullptr) return;
  RemoveOtherPatches(works, *local);
  UploadOne(*local);
}

bool UpgradeHandler::UploadResultToFile(const std::vector<UploadWork>& works) {
  std::string uploaded;
  bool result = true;
  for (const UploadWork& work : works) {
    if (work.response.IsSuccess()) {
      uploaded += " " + std::to_string(work.node->GetNodeID());
    } else {
      Log(LOG_ERR, __LINE__, "%d is failed", work.node->GetNodeID());
      result = false;
    }
  }
  if (KLIBCFileSetKeyValue(paths::kPatchInformation, "uploaded_list", uploaded.c_str(), 0) < 0) {
    Log(LOG_ERR, __LINE__, "Failed to write uploaded list");
    result = false;
  }
  return result;
}

}  // namespace KALO::MESH::Webapi
