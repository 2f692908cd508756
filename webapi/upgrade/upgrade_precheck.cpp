#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {

void UpgradeHandler::RunUpgradePrecheck() {
  AnswerNotBuilt(*response_, __LINE__, "RunUpgradePrecheck");
}

}  // namespace KALO::MESH::Webapi
