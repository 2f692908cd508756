#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {

void UpgradeHandler::PatchClean() {
  AnswerNotBuilt(*response_, __LINE__, "PatchClean");
}

}  // namespace KALO::MESH::Webapi
