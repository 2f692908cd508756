#include "host/core/file_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

namespace kalo {
namespace {

using std::chrono::steady_clock;

constexpr std::chrono::microseconds kShortestPause{200};
constexpr std::chrono::microseconds kLongestPause{5000};

// Anybody who can open a file can lock it, so a lock file that others own or planted is refused.
UniqueFd OpenLockFile(const std::string& path) {
  UniqueFd fd(
      open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0600));
  struct stat status = {};
  if (!fd || fstat(fd.Get(), &status) != 0) return {};
  if (!S_ISREG(status.st_mode)) {
    errno = EINVAL;
  } else if (status.st_uid != 0 && status.st_uid != geteuid()) {
    errno = EACCES;
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
