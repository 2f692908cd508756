#include "host/core/file_place.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

namespace kalo {

std::optional<FilePlace> FilePlace::Of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const bool bare = slash == std::string::npos;
  std::string name = bare ? path : path.substr(slash + 1);
  if (name.empty() || name == "." || name == "..") {
    errno = EINVAL;
    return std::nullopt;
  }
  const std::string folder = bare ? "." : path.substr(0, slash + 1);
  UniqueFd fd(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd) return std::nullopt;
  return FilePlace{std::move(fd), std::move(name)};
}

FolderSecurity SecurityOf(int folder) {
  struct stat status = {};
  if (fstat(folder, &status) != 0 || (status.st_uid != 0 && status.st_uid != geteuid())) {
    return FolderSecurity::kNone;
  }
  if ((status.st_mode & (S_IWGRP | S_IWOTH)) == 0) return FolderSecurity::kOurs;
  return (status.st_mode & S_ISVTX) != 0 ? FolderSecurity::kSticky : FolderSecurity::kNone;
}

}  // namespace kalo
