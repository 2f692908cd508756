#include "host/update/patch_format/source_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include "host/core/unique_fd.h"
#include "host/update/patch_format/patch_error.h"
#include "host/update/patch_format/sha256.h"

namespace kalo::patch {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kPiece = 256UL * 1024;

[[noreturn]] void Fail(const std::string& path, const std::string& reason, int error = 0) {
  throw PatchError(VerifyOutcome::kCannotRead, path + ": " + reason, error);
}

[[noreturn]] void FailErrno(const std::string& path) {
  const int error = errno;
  Fail(path, std::strerror(error), error);
}

UniqueFd OpenRegular(const std::string& path, struct stat& status) {
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!fd || ::fstat(fd.Get(), &status) != 0) FailErrno(path);
  if (!S_ISREG(status.st_mode)) Fail(path, "a patch carries regular files only");
  return fd;
}

}  // namespace

void ReadInPieces(const std::string& path, const std::function<void(std::span<const char>)>& take) {
  struct stat status {};
  const UniqueFd fd = OpenRegular(path, status);
  std::vector<char> buffer(kPiece);
  for (;;) {
    const ssize_t count = ::read(fd.Get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) FailErrno(path);
    if (count == 0) return;
    take(std::span(buffer).first(static_cast<std::size_t>(count)));
  }
}

SourceFile ScanFile(const std::string& path, std::string_view name) {
  SourceFile file;
  file.path = path;
  file.member.name = name;
  struct stat status {};
  (void)OpenRegular(path, status);
  file.member.mode = (status.st_mode & S_IXUSR) != 0 ? kProgramMode : kFileMode;
  Sha256 hash;
  ReadInPieces(path, [&](std::span<const char> bytes) {
    hash.Update(bytes);
    file.member.size += bytes.size();
  });
  file.member.sha256 = hash.Finish();
  return file;
}

std::vector<SourceFile> ScanFolder(const std::string& folder, std::string_view prefix) {
  std::vector<SourceFile> files;
  std::error_code error;
  for (fs::recursive_directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const std::string path = entry->path();
    const fs::file_status status = entry->symlink_status(error);
    if (error) break;
    if (fs::is_directory(status)) {
      if (fs::is_empty(path, error)) Fail(path, "a patch carries no empty folders");
      if (error) break;
      continue;
    }
    const std::string name = entry->path().lexically_relative(folder);
    files.push_back(ScanFile(path, std::string(prefix) + name));
  }
  if (error) Fail(folder, error.message(), error.value());
  std::sort(files.begin(), files.end(),
            [](const SourceFile& a, const SourceFile& b) { return a.member.name < b.member.name; });
  return files;
}

}  // namespace kalo::patch
