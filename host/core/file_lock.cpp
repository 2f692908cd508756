#include "host/core/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "host/core/file_place.h"
#include "host/core/private_folder.h"
#include "platform/core/file.h"
#include "platform/paths.h"

namespace kalo {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::microseconds kShortestPause{200};
constexpr std::chrono::microseconds kLongestPause{5000};

constexpr std::chrono::seconds kReplacing{5};
constexpr int kOpenFlags = O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool IsOurs(const struct stat& status) {
  return status.st_uid == 0 || status.st_uid == geteuid();
}

// Where others may add files, a second name of a file of ours is theirs to give.
bool IsForeign(const struct stat& status, FolderSecurity security) {
  return !IsOurs(status) ||
         (security != FolderSecurity::kOurs && S_ISREG(status.st_mode) && status.st_nlink > 1);
}

// What lies at the place, without following a link.
std::optional<struct stat> Look(const FilePlace& place) {
  struct stat status = {};
  if (fstatat(place.folder.Get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    return std::nullopt;
  }
  return status;
}

UniqueFd OpenAt(const FilePlace& place, int more_flags) {
  return UniqueFd(openat(place.folder.Get(), place.name.c_str(), kOpenFlags | more_flags, 0600));
}

// Makes the lock file in the place of what others planted there, or of nothing. All of our
// processes that do so wait for each other: else one could replace the file that another has
// locked. In a folder where others may add files, it is made nowhere else.
UniqueFd MakeLockFile(const FilePlace& place, FolderSecurity security) {
  constexpr int kKeep = -1;
  const std::string folder = KALO::paths::kRunFolder;
  if (KALOFSMkdirP(folder.c_str(), 0700, 1, kKeep, kKeep) != 0) return {};
  const auto turn = FileLock::TakeWithin(folder + "/lock-files.lock", kReplacing);
  if (!turn) return {};
  const auto found = Look(place);
  if (found && !IsForeign(*found, security)) return OpenAt(place, 0);
  return MakePrivateFile(place);
}

UniqueFd OpenOrMake(const FilePlace& place, FolderSecurity security) {
  const auto found = Look(place);
  if (found ? IsForeign(*found, security) : security != FolderSecurity::kOurs) {
    return MakeLockFile(place, security);
  }
  return OpenAt(place, security == FolderSecurity::kOurs ? O_CREAT : 0);
}

// Anyone who can open a file can lock it, so a lock file that others own or planted is replaced.
UniqueFd OpenLockFile(const std::string& path) {
  const auto place = FilePlace::Of(path);
  if (!place) return {};
  const FolderSecurity security = SecurityOf(place->folder.Get());
  if (security == FolderSecurity::kNone) {
    errno = EPERM;
    return {};
  }
  UniqueFd fd = OpenOrMake(*place, security);
  struct stat status = {};
  if (!fd || fstat(fd.Get(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
  } else if (IsForeign(status, security)) {
    errno = EACCES;  // exchanged between the look and the opening
  } else {
    return fd;
  }
  return {};
}

bool LockNow(const UniqueFd& fd) {
  return flock(fd.Get(), LOCK_EX | LOCK_NB) == 0;
}

}  // namespace

std::optional<FileLock> FileLock::TryTake(const std::string& path) {
  UniqueFd fd = OpenLockFile(path);
  if (!fd || !LockNow(fd)) return std::nullopt;
  return FileLock(std::move(fd));
}

// flock(2) has no time limit, and a timer's signal would be seen by the whole process.
std::optional<FileLock> FileLock::TakeWithin(const std::string& path,
                                             std::chrono::milliseconds patience) {
  const auto deadline = steady_clock::now() + patience;
  UniqueFd fd = OpenLockFile(path);
  if (!fd) return std::nullopt;
  for (auto pause = kShortestPause; !LockNow(fd); pause = std::min(2 * pause, kLongestPause)) {
    if (errno != EWOULDBLOCK) return std::nullopt;
    if (steady_clock::now() >= deadline) {
      errno = ETIMEDOUT;
      return std::nullopt;
    }
    std::this_thread::sleep_for(pause);
  }
  return FileLock(std::move(fd));
}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  Unlock();
  fd_ = std::move(other.fd_);
  return *this;
}

// Closing alone would leave the lock with a child that was forked meanwhile.
void FileLock::Unlock() {
  if (fd_) flock(fd_.Get(), LOCK_UN);
  fd_.Reset();
}

}  // namespace kalo
