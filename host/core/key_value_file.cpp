#include "host/core/key_value_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "host/core/atomic_file.h"
#include "host/core/regular_file.h"
#include "platform/paths.h"

namespace kalo {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kKeptPermissions = 0755;
constexpr mode_t kLockFolder = 0700;
constexpr std::size_t kReadableName = 100;

bool MakeLockFolder() {
  const std::string folder = KALO::paths::kKeyValueLocks;
  if (mkdir(folder.c_str(), kLockFolder) == 0 || errno == EEXIST) return true;
  if (errno != ENOENT) return false;
  const std::string parent = fs::path(folder).parent_path();
  return (mkdir(parent.c_str(), 0755) == 0 || errno == EEXIST) &&
         (mkdir(folder.c_str(), kLockFolder) == 0 || errno == EEXIST);
}

// The lock's name is made of the folder's identity and the file's name, so that every spelling of
// a path (/var/run, /run) means one lock. Two files that share a name here just wait for each
// other, which does no harm: nobody holds two of these locks.
std::optional<std::string> LockPath(const FilePlace& place) {
  struct stat folder = {};
  if (fstat(place.folder.Get(), &folder) != 0) return std::nullopt;
  std::string name = place.name.substr(0, kReadableName);
  std::replace_if(
      name.begin(), name.end(), [](char c) { return c <= ' ' || c > '~'; }, '_');
  return std::string(KALO::paths::kKeyValueLocks) + "/" + std::to_string(folder.st_dev) + "-" +
         std::to_string(folder.st_ino) + "-" + name;
}

std::optional<FileLock> LockWriters(const FilePlace& place) {
  const auto path = LockPath(place);
  if (!path) return std::nullopt;
  auto lock = FileLock::TakeWithin(*path, kWriterPatience);
  // Made on demand: the folder is missing once in a boot.
  if (!lock && errno == ENOENT && MakeLockFolder())
    lock = FileLock::TakeWithin(*path, kWriterPatience);
  return lock;
}

std::optional<KeyValueText> ReadText(const RegularFile& file) {
  auto text = file.ReadAll(kMaxKeyValueFile);
  if (!text) return std::nullopt;
  return KeyValueText(*std::move(text));
}

// Whether an error number of RegularFile::Open says that what stands there, if anything, is no
// file of ours and may be replaced.
bool MayReplaceAfter(int error, const FilePlace& place) {
  struct stat status = {};
  if (error == ENOENT || error == ELOOP || error == EINVAL) return true;
  return error == EACCES &&
         fstatat(place.folder.Get(), place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         !RegularFile{{}, status}.IsOurs();
}

// Where others may add files, a second name of a file of ours is theirs to give.
bool IsTrusted(const RegularFile& file, const FilePlace* place) {
  if (!file.IsOurs()) return false;
  return file.status.st_nlink <= 1 ||
         (place != nullptr && SecurityOf(place->folder.Get()) == FolderSecurity::kOurs);
}

}  // namespace

std::optional<KeyValueText> ReadKeyValueFile(const std::string& path) {
  const auto file = RegularFile::Open(AT_FDCWD, path);
  if (!file) return std::nullopt;
  const auto place = file->status.st_nlink > 1 ? FilePlace::Of(path) : std::nullopt;
  if (!IsTrusted(*file, place ? &*place : nullptr)) {
    errno = EACCES;
    return std::nullopt;
  }
  return ReadText(*file);
}

std::optional<KeyValueEdit> KeyValueEdit::Begin(const std::string& path) {
  auto place = FilePlace::Of(path);
  if (!place) return std::nullopt;
  auto lock = LockWriters(*place);
  if (!lock) return std::nullopt;
  KeyValueEdit edit(*std::move(place), *std::move(lock));
  if (!edit.Read()) return std::nullopt;
  return edit;
}

bool KeyValueEdit::Read() {
  const auto file = RegularFile::Open(place_.folder.Get(), place_.name);
  if (!file) {
    absence_ = errno;
    if (MayReplaceAfter(absence_, place_)) return true;
    errno = absence_;
    return false;
  }
  if (!IsTrusted(*file, &place_)) {
    absence_ = EACCES;
    return true;
  }
  mode_ = file->status.st_mode & kKeptPermissions;
  found_ = ReadText(*file);
  return found_.has_value();
}

bool KeyValueEdit::Commit(const KeyValueText& text) const {
  if (text.Text().size() > kMaxKeyValueFile) {
    errno = EFBIG;
    return false;
  }
  if (ReplaceFile(place_, text.Text(), mode_)) return true;
  // A step that gets no percentage because nothing more fits into /tmp would block every request.
  return errno == ENOSPC && found_ && OverwriteWithinPage(place_, text.Text(), mode_);
}

}  // namespace kalo
