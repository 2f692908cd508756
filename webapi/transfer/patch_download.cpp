// The requests that start and cancel a download, and the child process in which it runs: one patch
// for each model, handed on to the model's nodes before the next one is fetched.

#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/core/file.h"
#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "platform/update/credentials.h"
#include "platform/update/group_update.h"
#include "platform/update/update_util.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using SDK::Upgrade::GroupUpdate;
using SDK::Upgrade::UpdateUtil;
using IdGroup = UpgradeHandler::IdGroup;
using UploadWork = UpgradeHandler::UploadWork;

// What the last check found, for one kind of patch.
struct Wanted {
  UpgradeHandler::PatchInfo info;
  std::vector<IdGroup> groups;
};

// What one download fetches.
struct DownloadPlan {
  bool promotion = false;
  Wanted full;
  Wanted nano;

  void Read(UpgradeHandler& handler) {
    handler.PatchAvailableFromFile(full.info, full.groups, false, promotion);
    handler.PatchAvailableFromFile(nano.info, nano.groups, true, promotion);
  }
  [[nodiscard]] bool HasAny() const { return full.info.available || nano.info.available; }
};

DownloadPlan MakePlan(UpgradeHandler& handler, bool promotion) {
  DownloadPlan plan;
  plan.promotion = promotion;
  plan.Read(handler);
  if (plan.HasAny()) return plan;
  handler.PatchCheckImpl(false);
  plan.Read(handler);
  if (!plan.HasAny()) throw WebapiException("Failed to get patch available info");
  return plan;
}

void RecreateStore(const char* folder, const char* failure) {
  KLIBCExec("/bin/rm", "-rf", folder, nullptr, nullptr);
  if (KALOFSMkdirP(folder, 0, 1, -1, -1) < 0) throw WebapiException(failure);
}

void PrepareDownload(UpgradeHandler& handler) {
  unlink(paths::kDownloadProgress);
  unlink(paths::kUpgradeProgress);
  handler.ProgressToFile(paths::kDownloadProgress, "downloading", 0);
  RecreateStore(paths::kFullStore, "Failed to create folder for full patches");
  RecreateStore(paths::kNanoStore, "Failed to create folder for nano patches");
}

void CleanNodes(UpgradeHandler& handler) {
  try {
    UpdateUtil::SendWebAPIs(handler.GetUpdateNodes(), "KALO.Core.Upgrade.Patch", "clean", 1);
  } catch (...) {
    Log(LOG_ERR, __LINE__, "Failed to cleanup patchs");
  }
}

void DownloadAndUpload(UpgradeHandler& handler, const DownloadPlan& plan,
                       const std::string& version) {
  int total = 0;
  if (plan.full.info.available) total += static_cast<int>(plan.full.groups.size());
  if (plan.nano.info.available) total += static_cast<int>(plan.nano.groups.size());
  int second = 0;
  int third = 0;
  int fourth = 0;
  std::vector<UploadWork> works;
  if (KLIBCFileSetKeyValue(paths::kDownloadProgress, "version", version.c_str(), 0) < 0) {
    throw WebapiException("Fail to write download version");
  }
  handler.DownloadPatches(plan.full.info.version, plan.full.groups, false, "", total, second, third,
                          fourth, works, plan.promotion);
  // A small update applies on top of the full one of the same download.
  handler.DownloadPatches(plan.nano.info.version, plan.nano.groups, true, plan.full.info.version,
                          total, second, third, fourth, works, plan.promotion);
  if (!handler.UploadResultToFile(works)) {
    throw WebapiException("Upload may failed or write to file failed");
  }
  handler.ProgressToFile(paths::kUpgradeProgress, "ready_upgrade", 0);
  UpdateUtil::SendNotification(true, false, version);
}

void RecordFailure(UpgradeHandler& handler, const std::string& version) {
  // One that fails must not keep the other from being done, nor the child from its end.
  try {
    handler.ProgressToFile(paths::kDownloadProgress, "failed", 0);
  } catch (const std::exception& e) {
    Log(LOG_ERR, __LINE__, "Exception: %s", e.what());
  } catch (...) {
    Log(LOG_ERR, __LINE__, "Exception: unknown");
  }
  try {
    UpdateUtil::SendNotification(false, false, version);
  } catch (...) {
    Log(LOG_ERR, __LINE__, "Failed to send notification");
  }
}

// Everything behind the fork. Whatever happens in here ends here, with the lock freed: the caller
// is a copy of a request that is answered already.
[[noreturn]] void RunInChild(UpgradeHandler& handler, const DownloadPlan& plan, int lock) {
  CleanNodes(handler);
  const std::string version =
      plan.nano.info.available ? plan.nano.info.version : plan.full.info.version;
  try {
    DownloadAndUpload(handler, plan, version);
  } catch (const std::exception& e) {
    Log(LOG_ERR, __LINE__, "Exception: %s", e.what());
    RecordFailure(handler, version);
  } catch (...) {
    Log(LOG_ERR, __LINE__, "Exception: unknown");
    RecordFailure(handler, version);
  }
  KLIBCFileUnlockByFile(lock);
  _exit(0);
}

}  // namespace

void UpgradeHandler::DownloadStart() {
  DownloadPlan plan;
  // No scope guard: from the fork on the lock is the child's, and this process's end of scope
  // would free it for both.
  int lock = -1;
  try {
    const bool promotion = request_->GetAndCheckBool("is_promotion").value_or(false);
    if (SDK::Webapi::KaloCredInit(true) != 0) {
      throw WebapiException("Fail to init kalocredential");
    }
    plan = MakePlan(*this, promotion);
    if (KLIBCFileLockByFile(paths::kPatchLock, 1, &lock) == 0) {
      throw WebapiException("Get patch lock failed");
    }
    PrepareDownload(*this);
    if (ForkAndReturnWebapi(Json::Value()) != 0) return;
  } catch (const WebapiParamException& e) {
    KLIBCFileUnlockByFile(lock);
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
    return;
  } catch (const std::exception& e) {
    KLIBCFileUnlockByFile(lock);
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
    return;
  } catch (...) {
    KLIBCFileUnlockByFile(lock);
    Log(LOG_ERR, __LINE__, "Exception: unknown");
    response_->SetError(error::kGeneral, Json::Value());
    return;
  }
  RunInChild(*this, plan, lock);
}

void UpgradeHandler::DownloadCancel() {
  try {
    // Stops the transfer in whatever process it runs; the child goes on to its own end.
    if (!GroupUpdate().CancelDownload()) {
      response_->SetError(error::kGeneral, Json::Value());
      return;
    }
    std::string step;
    int percent = 0;
    ProgressFromFile(paths::kDownloadProgress, step, percent);
    if (step != "finished") ProgressToFile(paths::kDownloadProgress, "canceled", 0);
    response_->SetSuccess(Json::Value());
  } catch (const WebapiParamException& e) {
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

// The base versions by value: the signatures are part of the module's contract.
// NOLINTBEGIN(performance-unnecessary-value-param)
void UpgradeHandler::DownloadPatches(const std::string& target, const std::vector<IdGroup>& groups,
                                     bool nano, std::string base, int& total, int& second,
                                     int& third, int& fourth, std::vector<UploadWork>& works,
                                     bool promotion) {
  if (groups.empty()) return;
  Log(LOG_DEBUG, __LINE__, "Start Download Patches, target version is [%s], base version is [%s]",
      target.c_str(), base.c_str());
  // The CAP's own group goes last; of several that claim the CAP the last one counts.
  IdGroup held_back;
  for (const IdGroup& group : groups) {
    if (group.has_cap) {
      held_back = group;
    } else {
      DownloadPatchAndUpload(target, group, nano, base, total, second, third, fourth, works,
                             promotion);
    }
  }
  if (held_back.ids.empty()) return;
  DownloadPatchAndUpload(target, held_back, nano, base, total, second, third, fourth, works,
                         promotion);
}

void UpgradeHandler::DownloadPatchAndUpload(const std::string& target, const IdGroup& group,
                                            bool nano, std::string base, int& total, int& second,
                                            int& third, int& fourth, std::vector<UploadWork>& works,
                                            bool promotion) {
  constexpr const char* kNoVersion = "Failed to convert version string to pure version number";
  Log(LOG_DEBUG, __LINE__, "Start Download Patch and Upload");
  GroupUpdate download;
  std::string pure_target;
  if (!download.ConvertVersion(target, pure_target)) throw WebapiException(kNoVersion);
  std::string pure_base;
  if (!base.empty() && !download.ConvertVersion(base, pure_base)) throw WebapiException(kNoVersion);
  const std::string folder = nano ? paths::kNanoStore : paths::kFullStore;
  download.AppendTarget(group.unique, target);
  download.SetJobStatus(total, second, third, fourth);
  if (!download.Download(folder, false, promotion)) {
    throw WebapiException("Failed to start download process");
  }
  download.GetJobStatus(total, second, third, fourth);
  std::string path;
  // Without a file the uploads fail one by one, and the result says for whom.
  static_cast<void>(download.GetPatchPath(group.unique, pure_target, path));
  std::vector<UploadWork> uploads;
  for (const std::int32_t id : group.ids) {
    uploads.push_back(createUploadWork(id, path, pure_base));
  }
  UploadPatch(uploads);
  works.insert(works.end(), uploads.begin(), uploads.end());
  // The CAP's own patch stays: the upgrade's precheck looks into it.
  if (!group.has_cap) download.PatchClean(folder);
}
// NOLINTEND(performance-unnecessary-value-param)

}  // namespace KALO::MESH::Webapi
