#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {

void UpgradeHandler::PatchCheck() {
  AnswerNotBuilt(*response_, __LINE__, "PatchCheck");
}

}  // namespace KALO::MESH::Webapi
