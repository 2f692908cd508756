#include "services/webapid/upload_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include "host/core/file_io.h"

namespace kalo::webapid {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kNameBytes = 16;

}  // namespace

UploadFolder::UploadFolder(UploadFolder&& other) noexcept
    : path_(std::exchange(other.path_, {})),
      files_(other.files_),
      current_(std::move(other.current_)) {}

UploadFolder::~UploadFolder() {
  if (path_.empty()) return;
  std::error_code ignored;  // the next start sweeps what is left
  fs::remove_all(path_, ignored);
}

std::optional<fs::path> UploadFolder::StartFile() {
  const fs::path file = path_ / std::to_string(files_++);
  current_ = UniqueFd(
      open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!current_) return std::nullopt;
  return file;
}

bool UploadFolder::Append(std::string_view data) {
  return WriteAll(current_.Get(), data);
}

bool UploadFolder::Close() {
  return !current_ || close(current_.Release()) == 0;
}

bool UploadStore::Prepare() const {
  if (mkdir(folder_.c_str(), S_IRWXU) != 0 && errno != EEXIST) return false;
  struct stat info {};
  if (lstat(folder_.c_str(), &info) != 0) return false;
  if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid()) {
    errno = ENOTDIR;
    return false;
  }
  if (chmod(folder_.c_str(), S_IRWXU) != 0) return false;
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder_, ignored)) {
    fs::remove_all(entry.path(), ignored);
  }
  return true;
}

std::optional<UploadFolder> UploadStore::MakeFolder() const {
  const fs::path path = folder_ / RandomHex(kNameBytes);
  if (mkdir(path.c_str(), S_IRWXU) != 0) return std::nullopt;
  return UploadFolder(path);
}

}  // namespace kalo::webapid
