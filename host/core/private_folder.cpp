#include "host/core/private_folder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"
#include "host/core/folder.h"
#include "host/core/log.h"

namespace kalo {
namespace {

constexpr int kTries = 1000;
constexpr std::size_t kNameBytes = 8;
constexpr mode_t kFolderMode = 0700;
constexpr mode_t kFileMode = 0600;
constexpr const char* kNew = "new";

UniqueFd OpenFolder(int parent, const char* name) {
  return UniqueFd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Makes a folder, whatever the umask is.
UniqueFd MakeFolder(int parent, const char* name) {
  if (mkdirat(parent, name, kFolderMode) != 0) return {};
  UniqueFd folder = OpenFolder(parent, name);
  if (!folder || fchmod(folder.Get(), kFolderMode) != 0) return {};
  return folder;
}

// A folder beside a place in which others can reach nothing. What is left in it goes with it.
class Workshop {
 public:
  explicit Workshop(int parent) : parent_(parent) {
    if (SecurityOf(parent) == FolderSecurity::kNone) {
      errno = EPERM;
      return;
    }
    try {
      name_ = ".kalo-" + RandomHex(kNameBytes);
    } catch (const std::system_error& e) {
      errno = e.code().value();
      return;
    }
    fd_ = MakeFolder(parent, name_.c_str());
  }
  Workshop(const Workshop&) = delete;
  Workshop& operator=(const Workshop&) = delete;
  ~Workshop() {
    if (!fd_) return;
    const int saved = errno;
    // A process that works in a folder which was replaced may go on adding to it.
    if (!RemoveContentsAt(fd_.Get()) || unlinkat(parent_, name_.c_str(), AT_REMOVEDIR) != 0) {
      Log(LOG_WARNING, "cannot remove %s: %s", name_.c_str(), strerror(errno));
    }
    errno = saved;
  }

  [[nodiscard]] int Fd() const { return fd_.Get(); }

  // Puts what is called "new" in place; what lay there is called "new" afterwards.
  [[nodiscard]] bool Exchange(const FilePlace& place) const {
    for (int i = 0; i < kTries; ++i) {
      if (Rename(place, RENAME_NOREPLACE)) return true;
      if (errno != EEXIST) return false;
      if (Rename(place, RENAME_EXCHANGE)) return true;
      if (errno != ENOENT) return false;  // else its owner took it away meanwhile
    }
    errno = EBUSY;
    return false;
  }

 private:
  [[nodiscard]] bool Rename(const FilePlace& place, unsigned flags) const {
    return renameat2(Fd(), kNew, place.folder.Get(), place.name.c_str(), flags) == 0;
  }

  int parent_;
  std::string name_;
  UniqueFd fd_;
};

}  // namespace

bool MakePrivateFolder(const std::string& path) {
  const auto place = FilePlace::Of(path);
  if (!place) return false;
  const Workshop workshop(place->folder.Get());
  return workshop.Fd() >= 0 && MakeFolder(workshop.Fd(), kNew) && workshop.Exchange(*place);
}

UniqueFd OpenPrivateFolder(const std::string& path) {
  const auto place = FilePlace::Of(path);
  if (!place) return {};
  if (SecurityOf(place->folder.Get()) == FolderSecurity::kNone) {
    errno = EPERM;
    return {};
  }
  UniqueFd folder = OpenFolder(place->folder.Get(), place->name.c_str());
  struct stat status = {};
  if (!folder || fstat(folder.Get(), &status) != 0) return {};
  if (status.st_uid == geteuid() && (status.st_mode & (S_IRWXG | S_IRWXO)) == 0) return folder;
  errno = EACCES;
  return {};
}

UniqueFd MakePrivateFile(const FilePlace& place) {
  const Workshop workshop(place.folder.Get());
  if (workshop.Fd() < 0) return {};
  UniqueFd file(
      openat(workshop.Fd(), kNew, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kFileMode));
  if (!file || fchmod(file.Get(), kFileMode) != 0 || !workshop.Exchange(place)) return {};
  return file;
}

}  // namespace kalo
