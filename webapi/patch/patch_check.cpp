// The request that looks for a newer firmware, and how administrators hear of one.

#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/patch/promotion.h"
#include "webapi/program_flags.h"
#include "webapi/transfer/patch_lock.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using SDK::Upgrade::UpdateUtil;

constexpr const char* kAdminCenter = "KALO.WDX.PQMAdminCenter.Instance";
constexpr const char* kAdminCenterMain = "KALO.WDX.PQMAdminCenter.Administration.Main";
constexpr const char* kAdministrators = "@administrators";
constexpr const char* kNotifiedVersion = "patch_check_notified_version";

struct OldKey {
  const char* key;
  const char* name;  ///< in the log
};

// What an earlier check left. The groups' keys stay: without their availability nobody reads them.
constexpr std::array<OldKey, 7> kOldKeys = {{
    {"avaliable_full", "full available"},
    {"patch_full", "full version"},
    {"avaliable_nano", "nano available"},
    {"over_version", "over version"},
    {"patch_nano", "nano version"},
    {"avaliable_promo", "promotion available"},
    {"patch_promo", "promotion version"},
}};

void RemoveOldRecords() {
  for (const OldKey& old : kOldKeys) {
    if (KLIBCFileRemoveKey(paths::kPatchInformation, old.key) >= 0) continue;
    const int error = errno;
    if (error != ENOENT) Log(LOG_ERR, __LINE__, "Remove %s error (%d)", old.name, error);
  }
}

Json::Value Describe(const UpgradeHandler::PatchInfo& info) {
  Json::Value data(Json::objectValue);
  if (IsPromotion(info.build_num)) {
    data["available"] = false;
    data["promotion"] = true;
    data["promotion_version"] = info.version;
    data["beta_version"] = info.is_beta;
  } else {
    data["available"] = true;
    data["version"] = info.version;
  }
  data["over_version"] = info.over_version;
  data["type"] = info.type;
  return data;
}

// Drops a download that is not what is offered now; while somebody transfers it, it stays, and the
// answer names it.
void DropStaleDownload(UpgradeHandler& handler, const UpgradeHandler::PatchInfo& info,
                       Json::Value& data) {
  const KeyValue downloaded = ReadKeyValue(paths::kDownloadProgress, "version");
  if (downloaded.length <= 0 || handler.CompareVersion(info.version, downloaded.text) == 0) return;
  const PatchLock lock;
  if (lock.IsTaken()) {
    unlink(paths::kDownloadProgress);
    unlink(paths::kUpgradeProgress);
    UpdateUtil::SendWebAPIs(handler.GetUpdateNodes(), "KALO.Core.Upgrade.Patch", "clean", 1);
    return;
  }
  data["available"] = info.available;
  data["over_version"] = info.over_version;
  data["type"] = info.type;
  data["version"] = downloaded.text;
}

}  // namespace

void UpgradeHandler::PatchCheck() {
  try {
    const bool is_auto = request_->GetAndCheckBool("auto").value_or(false);
    if (is_auto) {
      Log(LOG_DEBUG, __LINE__, "Start auto patch check");
      // An automatic check is part of the automatic update that may be running.
      static_cast<void>(UpdateUtil::IsAutoUpdating());
    } else if (UpdateUtil::IsAutoUpdating()) {
      Log(LOG_ERR, __LINE__, "Is Autoupdating, can not check update now");
      response_->SetError(error::kAutoUpdating, Json::Value());
      return;
    }
    RemoveOldRecords();
    const PatchInfo info = PatchCheckImpl(is_auto);
    if (!info.available) {
      Json::Value data(Json::objectValue);
      data["available"] = false;
      data["over_version"] = info.over_version;
      ClearAppNotify();
      response_->SetSuccess(data);
      return;
    }
    Json::Value data = Describe(info);
    DropStaleDownload(*this, info, data);
    // A promotion's answer has no version: it is announced as the empty one.
    SendAppNotify(data.get("version", "").asString());
    response_->SetSuccess(data);
  } catch (const WebapiParamException& e) {
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

void UpgradeHandler::SendAppNotify(const std::string& version) {
  if (KLIBCFileCheckKeyValue(paths::kConfiguration, kNotifiedVersion, version.c_str(), 0) != 0) {
    return;
  }
  if (KLIBCExecl(paths::kNotifyProgram, kQuietProgram, "-c", kAdminCenter, "-f", kAdminCenterMain,
                 "-u", "1", kAdministrators, nullptr) != 0) {
    Log(LOG_ERR, __LINE__, "Fail to exec command [%s] (send upgrade notification to admin center)",
        paths::kNotifyProgram);
  }
  // Also after a failure: nobody wants the same complaint at every check.
  if (KLIBCINFOSetKeyValue(kNotifiedVersion, version.c_str()) == -1) {
    Log(LOG_ERR, __LINE__, "Failed to write notified version [%s=%s]", kNotifiedVersion,
        version.c_str());
  }
}

void UpgradeHandler::ClearAppNotify() {
  if (KLIBCExecl(paths::kNotifyProgram, kQuietProgram, "-c", kAdminCenter, "-f", kAdminCenterMain,
                 "-r", kAdministrators, nullptr) != 0) {
    Log(LOG_ERR, __LINE__, "Fail to exec command [%s] (clear upgrade notification to admin center)",
        paths::kNotifyProgram);
  }
}

}  // namespace KALO::MESH::Webapi
