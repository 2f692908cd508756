#include "services/meshd/state_file_keeper.h"

#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <optional>
#include <string>

#include "host/core/file_lock.h"
#include "host/core/key_value_file.h"
#include "host/core/log.h"
#include "host/update/download/recovery.h"
#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"

namespace kalo::meshd {
namespace {

namespace paths = KALO::paths;

constexpr std::size_t kValueSize = 8192;

std::string InFile(const char* key) {
  std::array<char, kValueSize> value{};
  const int length =
      KLIBCFileGetKeyValue(paths::kUpgradeProgress, key, value.data(), value.size(), 0);
  return length > 0 ? std::string(value.data()) : std::string();
}

// The equal-version update has come some way before its nodes install: that is not to fall.
int PercentToShow(int total) {
  if (InFile("step") != "upgrading") return total;
  const std::string text = InFile("percent");
  int shown = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), shown);
  const bool is_percent =
      error == std::errc() && end == text.data() + text.size() && shown >= 0 && shown <= 100;
  return is_percent ? std::max(shown, total) : total;
}

// The step first, as every writer of this file does: readers bear a new step with an old percent.
// An unchanged value writes nothing.
bool WriteProgress(const char* step, int percent) {
  const std::string number = std::to_string(percent);
  return KLIBCFileSetKeyValue(paths::kUpgradeProgress, "step", step, 0) > 0 &&
         KLIBCFileSetKeyValue(paths::kUpgradeProgress, "percent", number.c_str(), 0) > 0;
}

// The equal-version update died at its work, before the service began to install for it: its
// process id file is there and is nobody's, and the service's last update is older.
bool EqualUpdateDied(const UpdateRecord& record) {
  struct stat file {};
  return KLIBCReadPidFile(paths::kEqualUpdatePid) == 0 &&
         lstat(paths::kEqualUpdatePid, &file) == 0 && record.begun < file.st_mtim.tv_sec;
}

void RemoveDownloadProgress() {
  const auto lock = FileLock::TryTake(paths::kPatchLock);
  if (!lock) return;
  if (unlink(paths::kDownloadProgress) != 0 && errno != ENOENT) {
    Log(LOG_ERR, "cannot remove %s: %s", paths::kDownloadProgress, std::strerror(errno));
  }
}

bool LacksPercentage(const std::optional<KeyValueText>& text) {
  return text && !text->Get("step").value_or("").empty() &&
         text->Get("percent").value_or("").empty();
}

bool MendPercentage(const char* path) {
  if (!LacksPercentage(ReadKeyValueFile(path))) return true;
  const auto edit = KeyValueEdit::Begin(path);
  if (!edit || !LacksPercentage(edit->Found())) return edit.has_value();
  KeyValueText text = *edit->Found();
  return text.Set("percent", "0") && edit->Commit(text);
}

}  // namespace

void StateFileKeeper::Keep(const UpdateRecord& record) {
  bool written = true;
  if (record.state == UpdateState::kRunning) {
    written = WriteProgress("upgrading", PercentToShow(record.total));
  } else if (InFile("step") == "upgrading" && KLIBCReadPidFile(paths::kEqualUpdatePid) <= 0) {
    // The download's file first: once the upgrade's no longer says "upgrading" nobody comes back
    // for it.
    RemoveDownloadProgress();
    const bool finished = record.state == UpdateState::kFinished && !EqualUpdateDied(record);
    written = WriteProgress(finished ? "finished" : "failed", finished ? 100 : 0);
  }
  for (const char* path : {paths::kDownloadProgress, paths::kUpgradeProgress}) {
    written = MendPercentage(path) && written;
  }
  download::RecoverDownload();
  if (!written && !complained_) {
    Log(LOG_ERR, "cannot write the progress files: %s", std::strerror(errno));
  }
  complained_ = !written;
}

}  // namespace kalo::meshd
