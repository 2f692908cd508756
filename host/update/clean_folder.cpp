#include <syslog.h>

#include <cerrno>
#include <cstring>

#include "host/core/folder.h"
#include "host/core/log.h"
#include "platform/update/update_util.h"

namespace KALO::MESH::SDK::Upgrade {

bool UpdateUtil::CleanFolder(const char* folder) {
  if (kalo::RemoveContents(folder) || errno == ENOENT) return true;
  kalo::Log(LOG_ERR, "cannot empty %s: %s", folder, std::strerror(errno));
  return false;
}

}  // namespace KALO::MESH::SDK::Upgrade
