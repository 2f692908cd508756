#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {

void UpgradeHandler::DownloadStart() {
  AnswerNotBuilt(*response_, __LINE__, "DownloadStart");
}

void UpgradeHandler::DownloadCancel() {
  AnswerNotBuilt(*response_, __LINE__, "DownloadCancel");
}

}  // namespace KALO::MESH::Webapi
