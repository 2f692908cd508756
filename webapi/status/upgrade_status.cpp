#include <syslog.h>

#include <algorithm>

#include "platform/mesh/client.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using SDK::Client::MeshClientFactory;
using SDK::Client::MeshSystemStatus;
using SDK::Upgrade::UpdateUtil;

// What the decision rules chose.
struct Finding {
  MESH_UPGRADE_STATUS status = MESH_UPGRADE_STATUS::NONE;
  std::string reason;
  int percent = 0;
};

bool IsAutoUpdateShown(bool automatic) {
  if (automatic || !UpdateUtil::IsAutoUpdating()) return false;
  Log(LOG_DEBUG, __LINE__, "Auto update is running");
  return true;
}

bool HasOfflineNode(const MeshSystemStatus& system) {
  return std::any_of(system.nodes.begin(), system.nodes.end(),
                     [](const auto& node) { return node.offline; });
}

// "finished" counts as downloading, until the upgrade file says that the patches are on the nodes.
Finding FindDownload(UpgradeHandler& handler) {
  Finding finding;
  std::string step;
  handler.ProgressFromFile(paths::kDownloadProgress, step, finding.percent);
  if (step == "downloading" || step == "finished") {
    finding.status = MESH_UPGRADE_STATUS::DOWNLOADING;
  }
  return finding;
}

// The node list is fetched although only version 2 looks at it: a mesh service that does not
// answer fails the request in both versions.
Finding FindStatusV1(UpgradeHandler& handler, bool automatic, bool skip_offline) {
  if (IsAutoUpdateShown(automatic)) return {MESH_UPGRADE_STATUS::UPGRADING, "", 0};
  static_cast<void>(handler.GetUpdateNodes());
  std::string step;
  int percent = 0;
  handler.ProgressFromFile(paths::kUpgradeProgress, step, percent);
  if (step == "upgrading") return {MESH_UPGRADE_STATUS::UPGRADING, "", percent};
  // The code of the system status is not looked at here, unlike in version 2.
  if (!skip_offline && HasOfflineNode(MeshClientFactory::GetClient()->GetMeshSystemStatus())) {
    return {MESH_UPGRADE_STATUS::MESH_SYSTEM_ERROR, "node_offline", percent};
  }
  if (step == "ready_upgrade") return {MESH_UPGRADE_STATUS::READY_TO_UPGRADE, "", percent};
  return FindDownload(handler);
}

MeshSystemStatus FetchSystemStatus() {
  MeshSystemStatus system = MeshClientFactory::GetClient()->GetMeshSystemStatus();
  if (system.code != 0) {
    const std::string message = "GetMeshSystemStatus failed with code [" +
                                SDK::Client::ErrorCodeToNumericalString(system.code) + "][" +
                                SDK::Client::ErrorCodeToSemanticString(system.code) + "]";
    throw WebapiException(message.c_str());
  }
  return system;
}

Finding FindStatusV2(UpgradeHandler& handler, bool automatic, bool skip_mesh_state) {
  if (IsAutoUpdateShown(automatic)) return {MESH_UPGRADE_STATUS::UPGRADING, "", 0};
  const auto nodes = handler.GetUpdateNodes();
  const MeshSystemStatus system = FetchSystemStatus();
  std::string step;
  int percent = 0;
  handler.ProgressFromFile(paths::kUpgradeProgress, step, percent);
  if (step == "upgrading") return {MESH_UPGRADE_STATUS::UPGRADING, "", percent};
  if (!skip_mesh_state && system.syncing) {
    return {MESH_UPGRADE_STATUS::MESH_SYSTEM_ERROR, "mesh_status_syncing", percent};
  }
  if (!skip_mesh_state && HasOfflineNode(system)) {
    return {MESH_UPGRADE_STATUS::MESH_SYSTEM_ERROR, "node_offline", percent};
  }
  if (step == "ready_upgrade") return {MESH_UPGRADE_STATUS::READY_TO_UPGRADE, "", percent};
  Finding finding = FindDownload(handler);
  if (finding.status == MESH_UPGRADE_STATUS::NONE && !skip_mesh_state &&
      !handler.IsAllMeshVersionEqual(nodes)) {
    finding.status = MESH_UPGRADE_STATUS::MESH_VERSION_NOT_EQUAL;
  }
  return finding;
}

Json::Value ToAnswer(UpgradeHandler& handler, const Finding& finding) {
  Json::Value answer(Json::objectValue);
  handler.SetStatusResp(finding.status, finding.reason, finding.percent, answer);
  return answer;
}

void SetStatus(Json::Value& out, bool allow_upgrade, const char* status) {
  out["allow_upgrade"] = allow_upgrade;
  out["status"] = status;
}

void SetReady(UpgradeHandler& handler, Json::Value& out) {
  try {
    Json::Value patch(Json::objectValue);
    handler.GetPatchInfo(patch);
    SetStatus(out, true, "ready_upgrade");
    out["patch_info"] = patch;
  } catch (...) {
    Log(LOG_WARNING, __LINE__, "READY_TO_UPGRADE but patch info unavailable, falling back to NONE");
    SetStatus(out, true, "none");
  }
}

}  // namespace

void UpgradeHandler::GetPatchInfo(Json::Value& out) {
  const auto is_available = [](const char* key) {
    const KeyValue value = ReadKeyValue(paths::kPatchInformation, key);
    return value.length > 0 && value.text == "true";
  };
  const bool full = is_available("avaliable_full");
  const bool nano = is_available("avaliable_nano");
  const bool promo = is_available("avaliable_promo");
  if (promo || full) {
    out["upgradetype"] = "hbxupdate";
  } else if (nano) {
    out["upgradetype"] = "smallupdate";
  } else {
    throw WebapiException("Failed to get patch type");
  }
  out["reboot"] = true;
  out["restart_all"] = false;
  out["restart_some"] = false;
}

void UpgradeHandler::SetStatusResp(MESH_UPGRADE_STATUS status, const std::string& reason,
                                   int percent, Json::Value& out) {
  switch (status) {
    case MESH_UPGRADE_STATUS::NONE:
      SetStatus(out, true, "none");
      return;
    case MESH_UPGRADE_STATUS::READY_TO_UPGRADE:
      SetReady(*this, out);
      return;
    case MESH_UPGRADE_STATUS::UPGRADING:
      SetStatus(out, false, "upgrading");
      out["percent"] = percent;
      return;
    case MESH_UPGRADE_STATUS::DOWNLOADING:
      SetStatus(out, false, "downloading");
      out["percent"] = percent;
      return;
    case MESH_UPGRADE_STATUS::MESH_SYSTEM_ERROR:
      SetStatus(out, false, "mesh_system_error");
      out["reason"] = reason;
      return;
    case MESH_UPGRADE_STATUS::SYSTEM_BUSY:
      SetStatus(out, false, "system_busy");
      out["reason"] = reason;
      return;
    case MESH_UPGRADE_STATUS::MESH_VERSION_NOT_EQUAL:
      // An upgrade is what brings the nodes level again.
      SetStatus(out, true, "mesh_version_not_equal");
      return;
  }
  SetStatus(out, false, "none");
}

void UpgradeHandler::StatusGetV1() {
  try {
    const bool automatic = request_->GetAndCheckBool("auto").value_or(false);
    const bool skip_offline = request_->GetAndCheckBool("skip_offline").value_or(false);
    response_->SetSuccess(ToAnswer(*this, FindStatusV1(*this, automatic, skip_offline)));
  } catch (const WebapiParamException& e) {
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

void UpgradeHandler::StatusGetV2() {
  try {
    const bool automatic = request_->GetAndCheckBool("auto").value_or(false);
    const bool skip_mesh_state = request_->GetAndCheckBool("skip_re_status").value_or(false);
    response_->SetSuccess(ToAnswer(*this, FindStatusV2(*this, automatic, skip_mesh_state)));
  } catch (const WebapiParamException& e) {
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

}  // namespace KALO::MESH::Webapi
