#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <fstream>
#include <sstream>
#include <system_error>

#include "host/core/key_value_file.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "services/meshd/core_mesh/answers.h"

namespace kalo::core_mesh {
namespace {

namespace paths = KALO::paths;

constexpr std::array kFiles = {paths::kUpgradeProgress, paths::kDownloadProgress,
                               paths::kPatchInformation};
constexpr std::array kLocks = {paths::kPatchLock, paths::kPrecheckLock, paths::kAutoUpdateLock,
                               paths::kInstallLock};

Json::Value FileState(const char* path) {
  Json::Value value(Json::objectValue);
  value["path"] = path;
  const auto text = ReadKeyValueFile(path);
  value["there"] = text.has_value() || errno != ENOENT;
  if (text) {
    value["text"] = text->Text();
  } else if (errno != ENOENT) {
    value["error"] = std::generic_category().message(errno);
  }
  return value;
}

// From the kernel's list: to try a lock, even for a moment, would make its next owner fail.
bool IsHeld(const char* path) {
  struct stat status {};
  if (stat(path, &status) != 0) return false;
  std::ostringstream place;
  place << std::hex;
  for (const unsigned part : {major(status.st_dev), minor(status.st_dev)}) {
    place.width(2);
    place.fill('0');
    place << part << ':';
  }
  place << std::dec << status.st_ino << ' ';
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    if (line.find(" " + place.str()) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

Json::Value Diagnosis() {
  Json::Value answer(Json::objectValue);
  answer["files"] = Json::Value(Json::arrayValue);
  for (const char* path : kFiles) answer["files"].append(FileState(path));
  answer["locks"] = Json::Value(Json::arrayValue);
  for (const char* path : kLocks) {
    Json::Value lock(Json::objectValue);
    lock["path"] = path;
    lock["held"] = IsHeld(path);
    answer["locks"].append(lock);
  }
  answer["equal_update_runs"] = KLIBCReadPidFile(paths::kEqualUpdatePid) > 0;
  return answer;
}

}  // namespace kalo::core_mesh
