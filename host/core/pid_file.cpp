#include "host/core/pid_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <sstream>
#include <string_view>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/regular_file.h"
#include "platform/core/process.h"

namespace kalo {
namespace {

constexpr std::size_t kLongestNumber = 32;
constexpr std::size_t kLongestStat = 4096;
constexpr std::string_view kBlanks = " \t\r\n";

using std::chrono::nanoseconds;

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

// @return the number in the text, with blanks around it or not; 0 for anything else.
pid_t ReadNumber(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  text.remove_suffix(text.size() - (text.find_last_not_of(kBlanks) + 1));
  pid_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size() && number > 0 ? number : 0;
}

nanoseconds ToDuration(const struct timespec& time) {
  return std::chrono::seconds(time.tv_sec) + nanoseconds(time.tv_nsec);
}

nanoseconds Now(clockid_t clock) {
  struct timespec now = {};
  clock_gettime(clock, &now);
  return ToDuration(now);
}

nanoseconds ClockTick() {
  return nanoseconds(std::chrono::seconds(1)) / sysconf(_SC_CLK_TCK);
}

// @return when a living process started, by the wall clock; empty when there is none.
std::optional<nanoseconds> StartOf(pid_t pid) {
  constexpr int kFieldsBetween = 18;  // from the state, field 3, to the start time, field 22
  const auto stat = ReadFile("/proc/" + std::to_string(pid) + "/stat", kLongestStat);
  if (!stat) return std::nullopt;
  // The name before is in brackets and may hold anything, brackets included.
  std::istringstream fields(stat->substr(std::min(stat->rfind(')') + 1, stat->size())));
  char state = 0;
  std::string skipped;
  std::int64_t ticks = 0;
  fields >> state;
  for (int i = 0; i < kFieldsBetween; ++i) fields >> skipped;
  if (!(fields >> ticks) || state == 'Z' || state == 'X') return std::nullopt;
  return Now(CLOCK_REALTIME) - Now(CLOCK_BOOTTIME) + ticks * ClockTick();
}

// Whether the process that has the number is the one that wrote the file. One that got the number
// later started after that. A tick of tolerance: the kernel takes a file's time from a coarse
// clock.
bool StartedBefore(pid_t pid, const struct stat& file) {
  const auto start = StartOf(pid);
  return start && *start <= ToDuration(file.st_mtim) + ClockTick();
}

// A clock that is set while the process runs would mislead the comparison; a lock is never wrong.
bool HoldsLock(pid_t pid, int fd) {
  struct flock lock = WholeFile();
  return fcntl(fd, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK && lock.l_pid == pid;
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
  if (!file->IsOurs() || (file->status.st_mode & (S_IWGRP | S_IWOTH)) != 0) return 0;
  const pid_t pid = ReadNumber(file->ReadAll(kLongestNumber).value_or(""));
  if (pid == 0) return 0;
  return HoldsLock(pid, file->fd.Get()) || StartedBefore(pid, file->status) ? pid : 0;
}

}  // namespace kalo

int KLIBCReadPidFile(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return kalo::PidFile::Running(path);
}
