#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "host/core/file_lock.h"
#include "platform/core/file.h"

namespace {

constexpr int kExclusiveNoWait = 1;

}  // namespace

int KLIBCFileExist(const char* path) {
  struct stat status = {};
  return path != nullptr && stat(path, &status) == 0 ? 1 : 0;
}

int KLIBCFileLockByFile(const char* path, int mode, int* fd) {
  if (path == nullptr || fd == nullptr || mode != kExclusiveNoWait) {
    errno = EINVAL;
    return 0;
  }
  auto lock = kalo::FileLock::TryTake(path);
  if (!lock) return 0;
  *fd = lock->Release();
  return 1;
}

int KLIBCFileUnlockByFile(int fd) {
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  // LOCK_UN first: closing alone would leave the lock with a process that shares it. Closing frees
  // it from this process whatever that says.
  const bool is_free = flock(fd, LOCK_UN) == 0;
  close(fd);
  return is_free ? 0 : -1;
}

int KLIBCSysRename(const char* from, const char* to) {
  if (from == nullptr || to == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return std::rename(from, to) == 0 ? 0 : -1;
}
