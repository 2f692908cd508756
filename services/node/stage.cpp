#include "services/node/stage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/key_value_text.h"
#include "host/core/unique_fd.h"
#include "host/update/patch_format/description.h"
#include "platform/paths.h"

namespace kalo::node {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kMaxInfo = 16384;

fs::path PatchFile() {
  return fs::path(KALO::paths::kStagedPatch) / "patch.pat";
}
// Written after the patch and removed before it: who finds it finds a whole patch.
fs::path InfoFile() {
  return fs::path(KALO::paths::kStagedPatch) / "info";
}

[[noreturn]] void ThrowErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void Unlink(const fs::path& path) {
  if (unlink(path.c_str()) != 0 && errno != ENOENT) ThrowErrno("removing " + path.string());
}

void SyncFile(const std::string& path) {
  const UniqueFd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
  if (!fd || fchmod(fd.Get(), 0600) != 0 || fsync(fd.Get()) != 0) ThrowErrno("syncing " + path);
}

}  // namespace

std::optional<StagedPatch> ReadStaged() {
  const auto text = ReadFile(InfoFile(), kMaxInfo);
  std::error_code ignored;
  if (!text || !fs::is_regular_file(PatchFile(), ignored)) return std::nullopt;
  try {
    return StagedPatch{PatchFile(), patch::ParseDescription(*text)};
  } catch (const patch::PatchError&) {
    return std::nullopt;
  }
}

void Stage(const std::string& path, const patch::PatchDescription& description,
           const std::string& base_version) {
  KeyValueText info(patch::WriteDescription(description));
  if (!info.Set("base", base_version)) {
    throw std::system_error(EINVAL, std::generic_category(), "base version of the patch");
  }
  if (mkdir(KALO::paths::kStagedPatch, 0700) != 0 && errno != EEXIST) {
    ThrowErrno(std::string("making ") + KALO::paths::kStagedPatch);
  }
  RemoveStaged();
  SyncFile(path);
  if (rename(path.c_str(), PatchFile().c_str()) != 0) ThrowErrno("moving " + path);
  if (!WriteFileAtomic(InfoFile(), info.Text(), 0600)) ThrowErrno("writing " + InfoFile().string());
}

void RemoveStaged() {
  Unlink(InfoFile());
  Unlink(PatchFile());
}

}  // namespace kalo::node
