#include "services/node/installer.h"

#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/update/patch_format/description.h"
#include "platform/paths.h"
#include "services/node/error_codes.h"
#include "services/node/slots.h"

namespace kalo::node {
namespace fs = std::filesystem;
namespace {

// Shares of the whole installation. What remains to 100 is the restart and the new version's start.
constexpr std::int32_t kCheckAt = 5;
constexpr std::int32_t kProgramsAt = 20;
constexpr std::int32_t kConfigurationAt = 85;
constexpr std::int32_t kServiceAt = 90;
constexpr std::int32_t kRebootAt = 95;

// Room for the folders themselves.
constexpr std::uint64_t kSpareBytes = 1 << 20;

std::uint64_t FreeBytes(const fs::path& folder) {
  struct statvfs found {};
  if (statvfs(folder.c_str(), &found) != 0) {
    throw std::system_error(errno, std::generic_category(), "asking for free space");
  }
  return static_cast<std::uint64_t>(found.f_bavail) * found.f_frsize;
}

}  // namespace

bool Installer::Run() {
  const char* what = "reading the staged patch";
  try {
    Enter("preparing", 0);
    auto staged = ReadStaged();
    if (!staged) throw std::runtime_error("nothing is staged");
    staged_ = std::move(*staged);
    report_.version = staged_.description.version;
    slot_ = slots::InactiveSlot();
    what = "checking the patch";
    Enter("analying_system", kCheckAt);
    Check();
    what = "writing the new programs";
    Enter("updating_programs", kProgramsAt);
    WritePrograms();
    what = "writing the new configuration";
    Enter("updating_configurations", kConfigurationAt);
    WriteConfiguration();
    what = "making the new version the next boot's";
    Enter("start_service", kServiceAt);
    Activate();
    Enter("reboot", kRebootAt);
    return true;
  } catch (const patch::PatchError& e) {
    Fail(what, e.what(), e.ErrorNumber() == ENOSPC ? error::kNoSpace : error::kNotVerified);
  } catch (const std::system_error& e) {
    Fail(what, e.what(), e.code().value() == ENOSPC ? error::kNoSpace : error::kGeneral);
  } catch (const std::exception& e) {
    Fail(what, e.what(), error::kGeneral);
  }
  return false;
}

// In full, although the upload verified it: the file may have lain there since.
void Installer::Check() {
  const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
  const patch::VerifyResult result = patch::VerifyPatch(staged_.path, keys);
  if (!result.IsValid()) throw patch::PatchError(result.outcome, result.reason);
  if (result.description.version != staged_.description.version) {
    throw std::runtime_error("the patch is not the one that was staged");
  }
  payload_bytes_ = result.payload_bytes;
}

void Installer::WritePrograms() {
  fs::remove_all(slot_);
  fs::create_directory(slot_);
  const std::uint64_t wanted = payload_bytes_ + kSpareBytes;
  const std::uint64_t available = FreeBytes(slot_);
  if (wanted > available) {
    throw std::system_error(ENOSPC, std::generic_category(),
                            "the new version needs " + std::to_string(wanted) +
                                " bytes, free are " + std::to_string(available));
  }
  const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
  const auto progress = [this](std::uint64_t done, std::uint64_t total) {
    if (total == 0) return;
    const auto share = static_cast<std::int32_t>(done * (kConfigurationAt - kProgramsAt) / total);
    Advance(kProgramsAt + share);
  };
  static_cast<void>(patch::ExtractPayload(staged_.path, keys, slot_, progress));
}

void Installer::WriteConfiguration() {
  if (access((slot_ / "sbin/webapid").c_str(), X_OK) != 0) {
    throw std::runtime_error("the patch brings no server: sbin/webapid is missing");
  }
  // Last of all: a slot with a version file counts as a firmware.
  if (!WriteFileAtomic(slot_ / "VERSION", patch::WriteDescription(staged_.description), 0644)) {
    throw std::system_error(errno, std::generic_category(), "writing VERSION");
  }
}

void Installer::Activate() {
  sync();
  slots::ActivateForTrial(staged_.description.version);
}

void Installer::Enter(const char* step, std::int32_t percent) {
  Log(LOG_NOTICE, "install: %s", step);
  report_.step = step;
  report_.percent = percent;
  if (!WriteInstallReport(report_)) {
    throw std::system_error(errno, std::generic_category(), "writing the report");
  }
}

// A report that cannot be written does not stop a half-written slot: the next step says so.
void Installer::Advance(std::int32_t percent) {
  if (percent <= report_.percent) return;
  report_.percent = percent;
  static_cast<void>(WriteInstallReport(report_));
}

void Installer::Fail(const char* what, const std::string& why, int error_number) {
  Log(LOG_ERR, "install: %s failed: %s", what, why.c_str());
  report_.step = "failed";
  report_.error_number = error_number;
  report_.err_desc = std::string(what) + " failed";
  report_.err_msg = why;
  if (!WriteInstallReport(report_)) Log(LOG_ERR, "install: the report cannot be written");
}

}  // namespace kalo::node
