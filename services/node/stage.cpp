#include "services/node/stage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/key_value_text.h"
#include "host/core/strict_json.h"
#include "host/core/unique_fd.h"
#include "host/update/patch_format/description.h"
#include "host/update/patch_format/version_text.h"
#include "platform/paths.h"
#include "services/node/node_info.h"

namespace kalo::node {
namespace fs = std::filesystem;
namespace {

constexpr std::size_t kMaxInfo = 16384;

// Where one kind of patch stands. The info is written after the patch and removed before it: who
// finds it finds a whole patch.
struct Place {
  const char* patch;
  const char* info;

  [[nodiscard]] static fs::path Path(const char* name) {
    return fs::path(KALO::paths::kStagedPatch) / name;
  }
};

constexpr Place kFull = {"patch.pat", "info"};
constexpr Place kSmall = {"small.pat", "small.info"};

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

std::optional<patch::PatchDescription> Read(const Place& place) {
  const auto text = ReadFile(Place::Path(place.info), kMaxInfo);
  std::error_code ignored;
  if (!text || !fs::is_regular_file(Place::Path(place.patch), ignored)) return std::nullopt;
  try {
    return patch::ParseDescription(*text);
  } catch (const patch::PatchError&) {
    return std::nullopt;
  }
}

void RemoveFull() {
  Unlink(KALO::paths::kFullPatchLocator);
  Unlink(Place::Path(kFull.info));
  Unlink(Place::Path(kFull.patch));
}

void RemoveSmall() {
  Unlink(Place::Path(kSmall.info));
  Unlink(Place::Path(kSmall.patch));
}

// Where the upgrade's precheck finds the patch whose updater it asks.
void WriteLocator() {
  Json::Value locator(Json::objectValue);
  locator["patchPath"] = Place::Path(kFull.patch).string();
  if (!WriteFileAtomic(KALO::paths::kFullPatchLocator, WriteJson(locator) + "\n", 0600)) {
    ThrowErrno(std::string("writing ") + KALO::paths::kFullPatchLocator);
  }
}

}  // namespace

std::optional<StagedPatch> ReadStaged() {
  const auto full = Read(kFull);
  const auto small = Read(kSmall);
  if (!full && !small) return std::nullopt;
  StagedPatch staged;
  if (full) staged.full = Place::Path(kFull.patch);
  if (small) staged.small = Place::Path(kSmall.patch);
  staged.description = small ? *small : *full;
  return staged;
}

std::optional<patch::PatchDescription> StagedFull() {
  return Read(kFull);
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
  const bool small = patch::IsSmallUpdate(description.version);
  const auto full = StagedFull();
  RemoveSmall();
  if (!small || !full || full->build != description.build) RemoveFull();
  const Place& place = small ? kSmall : kFull;
  const fs::path target = Place::Path(place.patch);
  SyncFile(path);
  if (rename(path.c_str(), target.c_str()) != 0) ThrowErrno("moving " + path);
  if (!small && NodeId() == 0) WriteLocator();
  // From here on it is staged.
  if (!WriteFileAtomic(Place::Path(place.info), info.Text(), 0600)) {
    const int error = errno;
    if (!small) (void)unlink(KALO::paths::kFullPatchLocator);
    throw std::system_error(error, std::generic_category(),
                            "writing " + Place::Path(place.info).string());
  }
}

void RemoveStaged() {
  // The small one first: without its base it must never be found.
  RemoveSmall();
  RemoveFull();
}

}  // namespace kalo::node
