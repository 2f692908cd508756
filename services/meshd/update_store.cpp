#include "services/meshd/update_store.h"

#include <syslog.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>

#include "host/core/file_io.h"
#include "host/core/log.h"
#include "services/meshd/json_members.h"

namespace kalo::meshd {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kFileLimit = std::size_t{1} << 20;
constexpr mode_t kMode = 0600;

}  // namespace

UpdateStore::UpdateStore(const std::string& folder) : path_(folder + "/update.json") {
  std::error_code error;
  fs::create_directories(folder, error);
  if (!error) fs::permissions(folder, fs::perms::owner_all, error);
  if (error) Log(LOG_ERR, "cannot make %s: %s", folder.c_str(), error.message().c_str());
}

UpdateRecord UpdateStore::Load() {
  const std::optional<std::string> text = ReadFile(path_, kFileLimit);
  if (!text) {
    if (!IsNothingThere(errno)) throw std::system_error(errno, std::generic_category(), path_);
    if (errno != ENOENT) Log(LOG_ERR, "%s: %s", path_.c_str(), std::strerror(errno));
    return {};
  }
  try {
    UpdateRecord record = UpdateRecordFromJson(*text);
    saved_ = *text;
    return record;
  } catch (const BadJson& e) {
    Log(LOG_ERR, "%s: %s; its update is forgotten", path_.c_str(), e.what());
    return {};
  }
}

bool UpdateStore::Save(const UpdateRecord& record) {
  std::string text = ToJson(record);
  if (text == saved_) return true;
  if (!WriteFileAtomic(path_, text, kMode)) {
    if (!failing_) Log(LOG_ERR, "cannot save %s: %s", path_.c_str(), std::strerror(errno));
    failing_ = true;
    return false;
  }
  failing_ = false;
  saved_ = std::move(text);
  return true;
}

}  // namespace kalo::meshd
