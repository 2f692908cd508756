#include "services/node/patch_calls.h"

#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <string>
#include <system_error>

#include "host/core/file_lock.h"
#include "host/core/folder.h"
#include "host/core/log.h"
#include "host/core/spawn.h"
#include "host/update/patch_format/version_text.h"
#include "platform/paths.h"
#include "services/node/error_codes.h"
#include "services/node/install_exit.h"
#include "services/node/install_report.h"
#include "services/node/node_info.h"
#include "services/node/slots.h"
#include "services/node/stage.h"

namespace kalo::node {
namespace {

void Refuse(KALO::APIResponse& response, int code, const std::string& why) {
  Log(LOG_ERR, "upgrade: refused with %d: %s", code, why.c_str());
  response.SetError(code, Json::Value());
}

// Whoever gives the order to install again, as its answer was lost, must be able to tell the
// installation that he asked for from anything else that is over in a moment.
void RefuseWhileBusy(KALO::APIResponse& response) {
  if (!TellsOfWork(ReadInstallReport())) {
    return Refuse(response, error::kBusy,
                  "a patch is being handed in or dropped, or a boot judged");
  }
  Refuse(response, error::kInstalling, "an installation is running");
}

// Staging and installing keep each other out by the install lock.
std::optional<FileLock> KeepInstallerOut(KALO::APIResponse& response) {
  auto lock = FileLock::TakeWithin(KALO::paths::kInstallLock, kInstallLockPatience);
  if (!lock && errno == ETIMEDOUT) {
    RefuseWhileBusy(response);
  } else if (!lock) {
    Refuse(response, error::kGeneral,
           std::string("cannot take ") + KALO::paths::kInstallLock + ": " +
               std::generic_category().message(errno));
  }
  return lock;
}

// The slot that an installation will write gives its space back first.
bool HasSpaceFor(const patch::VerifyResult& patch) {
  struct statvfs found {};
  if (statvfs(KALO::paths::kSlots, &found) != 0) return false;
  const std::uint64_t available = static_cast<std::uint64_t>(found.f_bavail) * found.f_frsize;
  // A small update alone goes onto a copy of what runs.
  const bool copies = patch::IsSmallUpdate(patch.description.version) && !StagedFull();
  const std::uint64_t needed = patch.payload_bytes + (copies ? BytesIn(slots::ActiveSlot()) : 0);
  return needed <= available + BytesIn(slots::InactiveSlot());
}

// A small update belongs to one build: the one that runs, or the one that is staged.
bool HasItsBase(const patch::PatchDescription& small, const patch::PatchDescription& running) {
  const auto full = StagedFull();
  return small.build == running.build || (full && small.build == full->build);
}

bool IsNewer(const patch::PatchDescription& patch, const patch::PatchDescription& running) {
  if (patch.build != running.build) return patch.build > running.build;
  return patch.nano > running.nano;
}

Json::Value Describe(const patch::PatchDescription& patch) {
  Json::Value answer(Json::objectValue);
  answer["unique"] = patch.unique;
  answer["version"] = patch.version;
  answer["build"] = patch.build;
  answer["nano"] = patch.nano;
  return answer;
}

// @return whether the patch may be installed here; the answer is set when not.
bool Accepts(const patch::VerifyResult& patch, KALO::APIResponse& response) {
  if (!patch.IsValid()) {
    Refuse(response, error::kNotVerified, "the patch does not verify: " + patch.reason);
    return false;
  }
  const patch::PatchDescription running = RunningVersion();
  if (patch.description.unique != running.unique) {
    Refuse(response, error::kOtherModel,
           "the patch is for " + patch.description.unique + ", this is " + running.unique);
    return false;
  }
  if (patch::IsSmallUpdate(patch.description.version) && !HasItsBase(patch.description, running)) {
    Refuse(response, error::kOtherBase,
           patch.description.version + " does not apply on " + running.version);
    return false;
  }
  if (!IsNewer(patch.description, running)) {
    Refuse(response, error::kNotNewer,
           patch.description.version + " is not newer than " + running.version);
    return false;
  }
  if (!HasSpaceFor(patch)) {
    Refuse(response, error::kNoSpace,
           std::to_string(patch.payload_bytes) + " bytes do not fit into the other slot");
    return false;
  }
  return true;
}

}  // namespace

void UploadPatch(const KALO::APIRequest& request, KALO::APIResponse& response) {
  const auto file = request.GetAndCheckString("patch_file_tmp");
  if (!file) return Refuse(response, error::kNoFile, "the request carries no patch_file");
  const auto lock = KeepInstallerOut(response);
  if (!lock) return;
  try {
    EndLeftReport();
    const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
    const patch::VerifyResult patch = patch::VerifyPatch(*file, keys);
    if (!Accepts(patch, response)) return;
    Stage(*file, patch.description, request.GetAndCheckString("base_ver_num").value_or(""));
    Log(LOG_NOTICE, "upgrade: %s is staged", patch.description.version.c_str());
    response.SetSuccess(Describe(patch.description));
  } catch (const std::system_error& e) {
    Refuse(response, e.code().value() == ENOSPC ? error::kNoSpace : error::kCannotStage, e.what());
  } catch (const std::exception& e) {
    Refuse(response, error::kCannotStage, e.what());
  }
}

void CleanPatch(const KALO::APIRequest& /*request*/, KALO::APIResponse& response) {
  const auto lock = KeepInstallerOut(response);
  if (!lock) return;
  try {
    EndLeftReport();
    // What was installed and never restarted into is dropped as well.
    if (slots::GetUse() == slots::Use::kAwaitsRestart) slots::CallOff();
    RemoveStaged();
    response.SetSuccess(Json::Value());
  } catch (const std::exception& e) {
    Refuse(response, error::kGeneral, e.what());
  }
}

void StartInstall(const KALO::APIRequest& /*request*/, KALO::APIResponse& response) {
  if (!ReadStaged()) return Refuse(response, error::kNothingStaged, "nothing is staged");
  const pid_t pid = Spawn({KALO::paths::kInstallerProgram, "start"});
  const int status = pid < 0 ? -1 : WaitForExit(pid);
  if (status == InstallExit::kOk) return response.SetSuccess(Json::Value());
  if (status == InstallExit::kBusy) return RefuseWhileBusy(response);
  Refuse(response, error::kGeneral,
         std::string(KALO::paths::kInstallerProgram) + " ended with " + std::to_string(status));
}

}  // namespace kalo::node
