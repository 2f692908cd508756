#include "platform/update/credentials.h"

#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "host/update/mesh_credentials.h"

namespace KALO::MESH::SDK::Webapi {

int KaloCredInit(bool /*load*/) {
  try {
    kalo::CheckMeshCredentials();
    return 0;
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "%s", e.what());
    return -1;
  }
}

}  // namespace KALO::MESH::SDK::Webapi
