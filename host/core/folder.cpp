#include "host/core/folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/core/unique_fd.h"

namespace kalo {
namespace {

constexpr int kDeepest = 100;  // each level holds a descriptor

struct FolderEnd {
  void operator()(DIR* folder) const { closedir(folder); }
};
using Folder = std::unique_ptr<DIR, FolderEnd>;

UniqueFd OpenFolder(int parent, const char* name) {
  return UniqueFd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

class Remover {
 public:
  explicit Remover(dev_t device) : device_(device) {}

  void Empty(UniqueFd fd, int depth) {
    const Folder folder(fdopendir(fd.Get()));
    if (!folder) return Note();
    const int place = fd.Release();
    while (const dirent* entry = readdir(folder.get())) {
      const std::string_view name = entry->d_name;
      if (name != "." && name != "..") Remove(place, entry->d_name, depth);
    }
  }

  [[nodiscard]] int Error() const { return error_; }

 private:
  void Remove(int place, const char* name, int depth) {
    if (unlinkat(place, name, 0) == 0 || errno == ENOENT) return;
    if (errno != EISDIR && errno != EPERM) return Note();
    UniqueFd inner = OpenFolder(place, name);
    struct stat status {};
    if (!inner || fstat(inner.Get(), &status) != 0) return Note();
    if (status.st_dev != device_ || depth >= kDeepest) {
      errno = status.st_dev != device_ ? EXDEV : ELOOP;
      return Note();
    }
    Empty(std::move(inner), depth + 1);
    if (unlinkat(place, name, AT_REMOVEDIR) != 0 && errno != ENOENT) Note();
  }

  // The first trouble is the one to tell.
  void Note() {
    if (error_ == 0) error_ = errno;
  }

  dev_t device_;
  int error_ = 0;
};

}  // namespace

bool RemoveContents(const std::string& folder) {
  const UniqueFd fd = OpenFolder(AT_FDCWD, folder.c_str());
  return fd && RemoveContentsAt(fd.Get());
}

bool RemoveContentsAt(int folder) {
  UniqueFd fd = OpenFolder(folder, ".");
  struct stat status {};
  if (!fd || fstat(fd.Get(), &status) != 0) return false;
  Remover remover(status.st_dev);
  remover.Empty(std::move(fd), 0);
  errno = remover.Error();
  return remover.Error() == 0;
}

std::uint64_t BytesIn(const std::filesystem::path& folder) {
  namespace fs = std::filesystem;
  std::uint64_t bytes = 0;
  std::error_code hidden;
  constexpr auto kOptions = fs::directory_options::skip_permission_denied;
  for (auto entry = fs::recursive_directory_iterator(folder, kOptions, hidden);
       !hidden && entry != fs::recursive_directory_iterator(); entry.increment(hidden)) {
    std::error_code gone;
    const std::uintmax_t size =
        entry->is_regular_file(gone) && !entry->is_symlink(gone) ? entry->file_size(gone) : 0;
    if (!gone) bytes += size;
  }
  return bytes;
}

}  // namespace kalo
