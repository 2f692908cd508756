#include <syslog.h>

#include <cstdlib>

#include "platform/core/file.h"
#include "webapi/exceptions.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

// Compared as unsigned, so that a negative number is out of range too.
bool IsPercentage(int percent) {
  return static_cast<std::uint32_t>(percent) <= 100;
}

}  // namespace

void UpgradeHandler::ProgressFromFile(const char* path, std::string& step, int& percent) {
  step = "none";
  percent = 0;
  if (KLIBCFileExist(path) == 0) return;
  KeyValue value = ReadKeyValue(path, "step");
  if (value.length <= 0) return;
  step = value.text;
  value = ReadKeyValue(path, "percent");
  if (value.length <= 0) {
    Log(LOG_ERR, __LINE__, "Failed to get progress percentage from %s", path);
    throw WebapiException("Failed to get progress percentage");
  }
  percent = static_cast<int>(std::strtol(value.text.c_str(), nullptr, 10));
  if (!IsPercentage(percent)) {
    Log(LOG_ERR, __LINE__, "Invaild progress percentage [%d] from %s", percent, path);
    throw WebapiException("Invaild progress percentage");
  }
}

void UpgradeHandler::ProgressToFile(const char* path, const std::string& step, const int& percent) {
  if (path == nullptr || step.empty() || !IsPercentage(percent)) {
    Log(LOG_ERR, __LINE__, "Invalid parameters: sz_filename [%s], step [%s], percentage [%d]",
        path != nullptr ? path : "(null)", step.c_str(), percent);
    throw WebapiException("Invalid parameters for writing progress file");
  }
  // Unlike every other writer, a result of 0 fails here too.
  if (KLIBCFileSetKeyValue(path, "step", step.c_str(), 0) <= 0) {
    Log(LOG_ERR, __LINE__, "Failed to set progress step to %s", path);
    throw WebapiException("Failed to set progress step");
  }
  if (KLIBCFileSetKeyValue(path, "percent", std::to_string(percent).c_str(), 0) <= 0) {
    Log(LOG_ERR, __LINE__, "Failed to set progress percentage to %s", path);
    throw WebapiException("Failed to set progress percentage");
  }
}

}  // namespace KALO::MESH::Webapi
