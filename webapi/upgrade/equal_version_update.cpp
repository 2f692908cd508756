#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {

void UpgradeHandler::StartEqualUpdate() {
  AnswerNotBuilt(*response_, __LINE__, "StartEqualUpdate");
}

void UpgradeHandler::CancelEqualUpdate() {
  AnswerNotBuilt(*response_, __LINE__, "CancelEqualUpdate");
}

void UpgradeHandler::PatchCheckEqual() {
  AnswerNotBuilt(*response_, __LINE__, "PatchCheckEqual");
}

}  // namespace KALO::MESH::Webapi
