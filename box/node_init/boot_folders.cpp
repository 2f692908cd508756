#include "box/node_init/boot_folders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <optional>
#include <system_error>

#include "host/core/file_io.h"
#include "platform/paths.h"

namespace kalo::box {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kBootIdBytes = 16;

std::optional<std::uint64_t> MountOf(const fs::path& path) {
  struct statx found {};
  if (statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW, STATX_MNT_ID, &found) != 0) return {};
  return found.stx_mnt_id;
}

void EmptyWithinMount(const fs::path& folder, std::uint64_t mount) {
  std::error_code ignored;
  for (const auto& entry : fs::directory_iterator(folder, ignored)) {
    if (MountOf(entry.path()) != mount) continue;
    if (entry.is_directory(ignored) && !entry.is_symlink(ignored)) {
      EmptyWithinMount(entry.path(), mount);
    }
    fs::remove(entry.path(), ignored);  // fails for a folder that holds a mount
  }
}

void MakeFolder(const fs::path& folder, fs::perms mode) {
  fs::create_directories(folder);
  fs::permissions(folder, mode);
}

}  // namespace

void EmptyFolder(const fs::path& folder) {
  if (const auto mount = MountOf(folder)) EmptyWithinMount(folder, *mount);
}

void MakeBootFolders() {
  constexpr fs::perms kPublic = static_cast<fs::perms>(0755);
  for (const char* folder : {"/tmp", "/run"}) EmptyFolder(folder);
  MakeFolder("/tmp", kPublic);
  MakeFolder("/tmp/lock", kPublic);
  MakeFolder("/run", kPublic);
  MakeFolder("/run/lock", kPublic);
  MakeFolder("/run/kalo", fs::perms::owner_all);
  MakeFolder("/run/dbus", kPublic);
  MakeFolder("/var/log", kPublic);
}

std::string WriteBootId() {
  std::string id = RandomHex(kBootIdBytes);
  if (!WriteFileAtomic(KALO::paths::kBootId, id + "\n", 0644)) {
    throw std::system_error(errno, std::generic_category(), KALO::paths::kBootId);
  }
  return id;
}

}  // namespace kalo::box
