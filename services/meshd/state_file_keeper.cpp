#include "services/meshd/state_file_keeper.h"

#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>

#include "host/core/file_lock.h"
#include "host/core/log.h"
#include "host/core/unique_fd.h"
#include "platform/core/key_value.h"
#include "platform/paths.h"

namespace kalo::meshd {
namespace {

namespace paths = KALO::paths;

constexpr std::size_t kValueSize = 8192;

std::string StepInFile() {
  std::array<char, kValueSize> value{};
  const int length =
      KLIBCFileGetKeyValue(paths::kUpgradeProgress, "step", value.data(), value.size(), 0);
  return length > 0 ? std::string(value.data()) : std::string();
}

// The step first, as every writer of this file does: readers bear a new step with an old percent.
// An unchanged value writes nothing.
bool WriteProgress(const char* step, int percent) {
  const std::string number = std::to_string(percent);
  return KLIBCFileSetKeyValue(paths::kUpgradeProgress, "step", step, 0) > 0 &&
         KLIBCFileSetKeyValue(paths::kUpgradeProgress, "percent", number.c_str(), 0) > 0;
}

// A shared lock is refused while the equal-version update holds its exclusive one. It is never
// created here, and held for an instant only.
bool EqualUpdateRuns() {
  const UniqueFd file(open(paths::kEqualUpdatePid, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  return file && flock(file.Get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

void RemoveDownloadProgress() {
  const auto lock = FileLock::TryTake(paths::kPatchLock);
  if (!lock) return;
  if (unlink(paths::kDownloadProgress) != 0 && errno != ENOENT) {
    Log(LOG_ERR, "cannot remove %s: %s", paths::kDownloadProgress, std::strerror(errno));
  }
}

}  // namespace

void StateFileKeeper::Keep(const UpdateRecord& record) {
  bool written = true;
  if (record.state == UpdateState::kRunning) {
    written = WriteProgress("upgrading", record.total);
  } else if (StepInFile() == "upgrading" && !EqualUpdateRuns()) {
    // The download's file first: once the upgrade's no longer says "upgrading" nobody comes back
    // for it.
    RemoveDownloadProgress();
    const bool finished = record.state == UpdateState::kFinished;
    written = WriteProgress(finished ? "finished" : "failed", finished ? 100 : 0);
  }
  if (!written && !complained_) {
    Log(LOG_ERR, "cannot write %s: %s", paths::kUpgradeProgress, std::strerror(errno));
  }
  complained_ = !written;
}

}  // namespace kalo::meshd
