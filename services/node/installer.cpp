#include "services/node/installer.h"

#include <sys/statvfs.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/folder.h"
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

// Without its version file: the copy is not yet a firmware.
void CopyWhatRuns(const fs::path& slot) {
  for (const auto& entry : fs::directory_iterator(slots::ActiveSlot())) {
    if (entry.path().filename() == "VERSION") continue;
    fs::copy(entry.path(), slot / entry.path().filename(),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks);
  }
}

// Where a small update is written before it goes into the slot.
fs::path SmallFolder(const fs::path& slot) {
  return slot.native() + ".small";
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
    slots::ActivateForTrial(staged_.description.version);
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

// In full, although the upload verified it: the files may have lain there since.
void Installer::Check() {
  const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
  std::string last;
  for (const std::string& path : {staged_.full, staged_.small}) {
    if (path.empty()) continue;
    const patch::VerifyResult result = patch::VerifyPatch(path, keys);
    if (!result.IsValid()) throw patch::PatchError(result.outcome, result.reason);
    payload_bytes_ += result.payload_bytes;
    last = result.description.version;
  }
  if (last != staged_.description.version) {
    throw std::runtime_error("the patch is not the one that was staged");
  }
}

void Installer::WritePrograms() {
  slots::Discard(slot_);
  fs::remove_all(SmallFolder(slot_));
  fs::create_directory(slot_);
  const std::uint64_t copied = staged_.full.empty() ? BytesIn(slots::ActiveSlot()) : 0;
  const std::uint64_t wanted = copied + payload_bytes_ + kSpareBytes;
  const std::uint64_t available = FreeBytes(slot_);
  if (wanted > available) {
    throw std::system_error(ENOSPC, std::generic_category(),
                            "the new version needs " + std::to_string(wanted) +
                                " bytes, free are " + std::to_string(available));
  }
  if (staged_.full.empty()) {
    CopyWhatRuns(slot_);
  } else {
    Extract(staged_.full, slot_);
  }
  if (!staged_.small.empty()) AddSmallUpdate();
}

void Installer::Extract(const std::string& patch, const fs::path& folder) {
  const auto keys = patch::KeyRing::Load(KALO::paths::kPatchKeys);
  std::uint64_t of_this = 0;
  const auto progress = [&](std::uint64_t done, std::uint64_t /*total*/) {
    of_this = done;
    const std::uint64_t all = std::max<std::uint64_t>(payload_bytes_, 1);
    const std::uint64_t share = (extracted_bytes_ + done) * (kConfigurationAt - kProgramsAt) / all;
    Advance(std::min(kProgramsAt + static_cast<std::int32_t>(share), kConfigurationAt));
  };
  static_cast<void>(patch::ExtractPayload(patch, keys, folder, progress));
  extracted_bytes_ += of_this;
}

// Its files take the places of those of the same names.
void Installer::AddSmallUpdate() {
  const fs::path folder = SmallFolder(slot_);
  fs::create_directory(folder);
  Extract(staged_.small, folder);
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const fs::path target = slot_ / entry.path().lexically_relative(folder);
    if (entry.is_directory()) {
      fs::create_directories(target);
    } else {
      fs::rename(entry.path(), target);
    }
  }
  fs::remove_all(folder);
}

void Installer::WriteConfiguration() {
  if (access((slot_ / "sbin/webapid").c_str(), X_OK) != 0) {
    throw std::runtime_error("the patch brings no server: sbin/webapid is missing");
  }
  // Last of all, and when everything else is on the disk: a slot with a version file counts as a
  // firmware.
  sync();
  if (!WriteFileAtomic(slot_ / "VERSION", patch::WriteDescription(staged_.description), 0644)) {
    throw std::system_error(errno, std::generic_category(), "writing VERSION");
  }
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
