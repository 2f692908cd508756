// kalo-download-recovery: the web API server runs it after each background task that ended,
// after a worker that died, and when it starts itself (webapi/mesh-upgrade.json names it).

#include <syslog.h>

#include <exception>
#include <filesystem>

#include "host/core/log.h"
#include "host/update/download/left_files.h"
#include "host/update/download/recovery.h"
#include "platform/paths.h"

namespace {

// Where the module and the platform beneath it write files whole.
void SweepAll() {
  namespace paths = KALO::paths;
  for (const char* file : {paths::kDownloadProgress, paths::kConfiguration, paths::kNotifications,
                           paths::kFullPatchLocator, paths::kUpdateHistory}) {
    kalo::download::SweepLeftFiles(std::filesystem::path(file).parent_path());
  }
  for (const char* folder : {paths::kFeedState, paths::kStagedPatch, paths::kSlots}) {
    kalo::download::SweepLeftFiles(folder);
  }
}

}  // namespace

int main() {
  openlog("kalo-download-recovery", 0, LOG_DAEMON);
  try {
    kalo::download::RecoverDownload();
    SweepAll();
    return 0;
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "%s", e.what());
    return 1;
  }
}
