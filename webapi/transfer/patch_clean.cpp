// The request that throws away every patch that the mesh holds.

#include <syslog.h>

#include "platform/core/key_value.h"
#include "platform/paths.h"
#include "platform/update/update_util.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using SDK::Upgrade::UpdateUtil;

// Both keys under one text: support staff look for it.
void ForgetUpload(const char* key) {
  if (KLIBCFileRemoveKey(paths::kPatchInformation, key) >= 0) return;
  Log(LOG_ERR, __LINE__, "Remove upload version error");
}

}  // namespace

// Takes no lock: it may empty the store under a running download, which then fails.
void UpgradeHandler::PatchClean() {
  try {
    ProgressToFile(paths::kDownloadProgress, "canceled", 0);
    ProgressToFile(paths::kUpgradeProgress, "none", 0);
    UpdateUtil::SendWebAPIs(GetUpdateNodes(), "KALO.Core.Upgrade.Patch", "clean", 1);
    if (!UpdateUtil::CleanFolder(paths::kFullStore)) {
      throw WebapiException("Failed to clean full patch");
    }
    if (!UpdateUtil::CleanFolder(paths::kNanoStore)) {
      throw WebapiException("Failed to clean nano patch");
    }
    ForgetUpload("patch_upload");
    ForgetUpload("uploaded_list");
    response_->SetSuccess(Json::Value());
  } catch (const WebapiParamException& e) {
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

}  // namespace KALO::MESH::Webapi
