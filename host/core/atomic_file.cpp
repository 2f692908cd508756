#include "host/core/atomic_file.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "host/core/unique_fd.h"

namespace kalo {
namespace {

constexpr std::size_t kNameBytes = 8;
constexpr mode_t kPrivate = 0600;

// @return empty with errno set when there is no randomness to be had: callers are told by a result.
std::string MakeName() {
  try {
    return ".kalo-" + RandomHex(kNameBytes);
  } catch (const std::system_error& e) {
    errno = e.code().value();
    return "";
  }
}

// The half-written file: gone again unless it took its place.
class TemporaryFile {
 public:
  explicit TemporaryFile(int folder)
      : folder_(folder),
        name_(MakeName()),
        fd_(name_.empty()
                ? -1
                : openat(folder, name_.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPrivate)) {}
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;
  ~TemporaryFile() {
    if (!fd_ || renamed_) return;
    const int saved = errno;
    unlinkat(folder_, name_.c_str(), 0);
    errno = saved;
  }

  [[nodiscard]] int Fd() const { return fd_.Get(); }

  [[nodiscard]] bool RenameTo(const std::string& name) {
    renamed_ = renameat(folder_, name_.c_str(), folder_, name.c_str()) == 0;
    return renamed_;
  }

 private:
  int folder_;
  std::string name_;
  UniqueFd fd_;
  bool renamed_ = false;
};

// A file with a second name would carry the contents to another place.
bool IsOursAlone(const struct stat& status) {
  return S_ISREG(status.st_mode) && status.st_nlink == 1 &&
         (status.st_uid == 0 || status.st_uid == geteuid());
}

bool SurvivesPowerLoss(int folder) {
  struct statfs status = {};
  return fstatfs(folder, &status) != 0 || status.f_type != TMPFS_MAGIC;
}

}  // namespace

bool WriteAll(int fd, std::string_view contents) {
  while (!contents.empty()) {
    const ssize_t written = write(fd, contents.data(), contents.size());
    if (written < 0 && errno == EINTR) continue;
    if (written < 0) return false;
    contents.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

bool ReplaceFile(const FilePlace& place, std::string_view contents, mode_t mode) {
  const int folder = place.folder.Get();
  TemporaryFile file(folder);
  if (file.Fd() < 0 || fchmod(file.Fd(), mode) != 0 || !WriteAll(file.Fd(), contents)) {
    return false;
  }
  const bool durable = SurvivesPowerLoss(folder);
  if (durable && fsync(file.Fd()) != 0) return false;
  if (!file.RenameTo(place.name)) return false;
  // The new file stands; calling this a failure would promise that the old one still does.
  if (durable && fsync(folder) != 0) {
    Log(LOG_WARNING, "Cannot make the folder of %s durable: %s", place.name.c_str(),
        strerror(errno));
  }
  return true;
}

bool OverwriteWithinPage(const FilePlace& place, std::string_view contents, mode_t mode) {
  constexpr std::size_t kSmallestPage = 4096;
  const UniqueFd fd(openat(place.folder.Get(), place.name.c_str(),
                           O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  struct stat status = {};
  const bool is_ours =
      fd && !SurvivesPowerLoss(fd.Get()) && fstat(fd.Get(), &status) == 0 && IsOursAlone(status);
  const auto old_size = static_cast<std::size_t>(status.st_size);
  const std::size_t size = std::max(contents.size(), old_size);
  // One write, up to the old end at least: no reader sees a rest of the old text after the new one.
  std::string text(contents);
  text.resize(std::min(size, kSmallestPage), '\n');
  if (!is_ours || old_size == 0 || size > kSmallestPage || fchmod(fd.Get(), mode) != 0 ||
      pwrite(fd.Get(), text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) {
    errno = ENOSPC;
    return false;
  }
  return ftruncate(fd.Get(), static_cast<off_t>(contents.size())) == 0;
}

bool WriteFileAtomic(const std::string& path, std::string_view contents, mode_t mode) {
  const auto place = FilePlace::Of(path);
  return place && ReplaceFile(*place, contents, mode);
}

}  // namespace kalo
