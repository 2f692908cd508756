#include "host/update/patch_format/payload_folder.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <string_view>

#include "host/core/file_io.h"
#include "host/update/patch_format/manifest.h"
#include "host/update/patch_format/patch_error.h"

namespace kalo::patch {
namespace {

constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
constexpr int kMakeFile = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

[[noreturn]] void Fail(const std::string& name) {
  const int error = errno;
  throw PatchError(VerifyOutcome::kCannotWrite, name + ": " + std::strerror(error), error);
}

struct CloseFolder {
  void operator()(DIR* folder) const { ::closedir(folder); }
};

bool IsEmpty(int folder) {
  // A descriptor of its own: reading the entries moves its position.
  UniqueFd fd(::openat(folder, ".", kOpenFolder));
  const std::unique_ptr<DIR, CloseFolder> entries(fd ? ::fdopendir(fd.Get()) : nullptr);
  if (!entries) return false;
  (void)fd.Release();
  while (const dirent* entry = ::readdir(entries.get())) {
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") return false;
  }
  return true;
}

UniqueFd EnterFolder(int parent, const std::string& name) {
  const bool made = ::mkdirat(parent, name.c_str(), kFolderMode) == 0;
  if (!made && errno != EEXIST) Fail(name);
  UniqueFd fd(::openat(parent, name.c_str(), kOpenFolder));
  // The umask may have taken bits away.
  if (!fd || (made && ::fchmod(fd.Get(), kFolderMode) != 0)) Fail(name);
  return fd;
}

}  // namespace

PayloadFolder::PayloadFolder(const std::string& path) : folder_(::open(path.c_str(), kOpenFolder)) {
  if (!folder_) Fail(path);
  if (!IsEmpty(folder_.Get())) {
    errno = ENOTEMPTY;
    Fail(path);
  }
}

void PayloadFolder::Begin(const std::string& name) {
  name_ = name;
  UniqueFd folder;
  std::size_t begin = 0;
  for (std::size_t slash = name.find('/'); slash != std::string::npos;
       slash = name.find('/', begin)) {
    folder = EnterFolder(folder ? folder.Get() : folder_.Get(), name.substr(begin, slash - begin));
    begin = slash + 1;
  }
  const int parent = folder ? folder.Get() : folder_.Get();
  file_ = UniqueFd(::openat(parent, name.c_str() + begin, kMakeFile, S_IRUSR | S_IWUSR));
  if (!file_) Fail(name_);
}

void PayloadFolder::Write(std::span<const char> bytes) {
  if (!WriteAll(file_.Get(), {bytes.data(), bytes.size()})) Fail(name_);
}

void PayloadFolder::End(mode_t mode) {
  if (::fchmod(file_.Get(), mode) != 0) Fail(name_);
  // Some file systems tell of a lack of space only here.
  if (::close(file_.Release()) != 0) Fail(name_);
}

void PayloadFolder::Sync() const {
  if (::syncfs(folder_.Get()) != 0) Fail("the target folder");
}

}  // namespace kalo::patch
