#include "host/update/download/left_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>

#include "host/core/log.h"

namespace kalo::download {
namespace fs = std::filesystem;
namespace {

bool IsTemporary(const std::string& name) {
  return name.starts_with(".kalo-") || (name.starts_with("rss_v2_") && name.ends_with(".json"));
}

bool IsLeft(const fs::path& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return false;
  const auto age = std::chrono::seconds(std::time(nullptr) - status.st_mtime);
  return status.st_uid == geteuid() && age > kLeftFileAge;
}

}  // namespace

void SweepLeftFiles(const std::string& folder) {
  std::error_code error;
  for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
       entry.increment(error)) {
    const fs::path& path = entry->path();
    if (!IsTemporary(path.filename()) || !IsLeft(path) || unlink(path.c_str()) == 0) continue;
    Log(LOG_WARNING, "cannot remove %s: %s", path.c_str(), std::strerror(errno));
  }
}

}  // namespace kalo::download
