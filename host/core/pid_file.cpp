#include "host/core/pid_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <string_view>
#include <utility>

#include "host/core/regular_file.h"
#include "platform/core/process.h"

namespace kalo {
namespace {

constexpr std::size_t kLongestNumber = 32;

struct flock WholeFile() {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return lock;
}

bool IsAt(int fd, const std::string& path) {
  struct stat held = {};
  struct stat named = {};
  return fstat(fd, &held) == 0 && lstat(path.c_str(), &named) == 0 && held.st_ino == named.st_ino &&
         held.st_dev == named.st_dev;
}

bool WriteNumber(int fd) {
  const std::string text = std::to_string(getpid()) + "\n";
  return ftruncate(fd, 0) == 0 &&
         pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size());
}

// @return the number in the text; 0 for anything else.
pid_t ReadNumber(std::string_view text) {
  if (text.ends_with('\n')) text.remove_suffix(1);
  pid_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number > 0 ? number : 0;
}

}  // namespace

std::optional<PidFile> PidFile::TryTake(const std::string& path) {
  while (true) {
    UniqueFd fd(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600));
    struct stat status = {};
    if (!fd || fstat(fd.Get(), &status) != 0) return std::nullopt;
    if (!S_ISREG(status.st_mode) || status.st_uid != geteuid()) {
      errno = EACCES;
      return std::nullopt;
    }
    struct flock lock = WholeFile();
    if (fcntl(fd.Get(), F_SETLK, &lock) != 0) {
      if (errno == EACCES) errno = EWOULDBLOCK;
      return std::nullopt;
    }
    // The one before may have removed its file between our opening and our locking it.
    if (!IsAt(fd.Get(), path)) continue;
    if (fchmod(fd.Get(), 0600) != 0 || !WriteNumber(fd.Get())) return std::nullopt;
    return PidFile(path, std::move(fd));
  }
}

PidFile::~PidFile() {
  if (fd_) unlink(path_.c_str());
}

pid_t PidFile::Running(const std::string& path) {
  const auto file = RegularFile::Open(AT_FDCWD, path);
  if (!file) return -1;
  if (file->status.st_uid != 0 || (file->status.st_mode & (S_IWGRP | S_IWOTH)) != 0) return 0;
  struct flock lock = WholeFile();
  if (fcntl(file->fd.Get(), F_GETLK, &lock) != 0 || lock.l_type == F_UNLCK) return 0;
  const pid_t written = ReadNumber(file->ReadAll(kLongestNumber).value_or(""));
  return written == lock.l_pid ? written : 0;
}

}  // namespace kalo

int KLIBCReadPidFile(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return kalo::PidFile::Running(path);
}
