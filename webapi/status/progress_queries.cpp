#include <syslog.h>

#include "platform/core/file.h"
#include "platform/mesh/client.h"
#include "platform/paths.h"
#include "platform/webapi/api_runner.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/key_value.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using SDK::Client::MeshClientFactory;
using SDK::Client::SystemUpdateProgress;

constexpr std::size_t kVersionSize = 512;

enum class DownloadAnswer { kStepOnly, kWithSpaceReason };

Json::Value DownloadProgress(UpgradeHandler& handler, DownloadAnswer form) {
  std::string status = "none";
  int percent = 0;
  Json::Value answer(Json::objectValue);
  if (KLIBCFileExist(paths::kDownloadProgress) != 0) {
    handler.ProgressFromFile(paths::kDownloadProgress, status, percent);
    const KeyValue version = ReadKeyValue<kVersionSize>(paths::kDownloadProgress, "version");
    if (version.length < 0) throw WebapiException("Fail to get download version");
    answer["version"] = version.text;
    if (form == DownloadAnswer::kWithSpaceReason && status == "failed" &&
        ReadKeyValue(paths::kDownloadProgress, "need_bytes").length > 0) {
      status = "no_enough_free_space";
    }
  }
  answer["status"] = status;
  answer["percent"] = percent;
  return answer;
}

void AddError(const SystemUpdateProgress& progress, Json::Value& answer) {
  answer["errno"] = progress.error_number;
  answer["err_desc"] = progress.err_desc;
  answer["err_msg"] = progress.err_msg;
}

// "success" and "data" of an envelope from outside: JsonCpp throws for anything unexpected.
bool HoldsData(const Json::Value& envelope) {
  return envelope.isObject() && envelope["success"].isBool() && envelope["success"].asBool() &&
         envelope.isMember("data");
}

// The node's own update API knows no total, and its percentages are not the mesh's: neither is
// copied.
Json::Value AnswerFromNode(const Json::Value& data) {
  Json::Value answer(Json::objectValue);
  if (!data.isObject()) return answer;
  for (const char* key : {"version", "step"}) {
    if (data.isMember(key)) answer[key] = data[key].asString();
  }
  if (data.isMember("errno")) answer["errno"] = data["errno"].asInt();
  for (const char* key : {"err_desc", "err_msg"}) {
    if (data.isMember(key)) answer[key] = data[key].asString();
  }
  return answer;
}

}  // namespace

void UpgradeHandler::DownloadProgressGet() {
  try {
    response_->SetSuccess(DownloadProgress(*this, DownloadAnswer::kStepOnly));
  } catch (const WebapiParamException& e) {
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

void UpgradeHandler::DownloadProgressGetV2() {
  try {
    response_->SetSuccess(DownloadProgress(*this, DownloadAnswer::kWithSpaceReason));
  } catch (const WebapiParamException& e) {
    AnswerException(*response_, __LINE__, "Parameter Error", e, error::kBadParameter);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

void UpgradeHandler::ProgressGet() {
  try {
    const SystemUpdateProgress progress = MeshClientFactory::GetClient()->GetSystemUpdateProgress();
    if (progress.code != 0) {
      Log(LOG_ERR, __LINE__, "Progress from dbus error");
      response_->SetError(error::kGeneral, Json::Value());
      return;
    }
    Json::Value answer(Json::objectValue);
    answer["version"] = progress.version;
    answer["step"] = progress.step;
    answer["percent"] = progress.percent;
    AddError(progress, answer);
    response_->SetSuccess(answer);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

void UpgradeHandler::ProgressGetV2() {
  try {
    const SystemUpdateProgress progress =
        MeshClientFactory::GetClient()->GetSystemUpdateProgressV2();
    if (progress.code == 0) {
      Json::Value answer(Json::objectValue);
      answer["version"] = progress.version;
      answer["step"] = progress.step;
      answer["total_percentage"] = progress.total_percentage;
      answer["percent"] = progress.percent;
      AddError(progress, answer);
      response_->SetSuccess(answer);
      return;
    }
    Json::Value envelope;
    APIRunner::Exec(envelope, "KALO.Core.Upgrade", 1, "progress", Json::Value(), "admin");
    Log(LOG_ERR, __LINE__, "Progress from dbus error, fallback to KALO.Core.Upgrade");
    if (!HoldsData(envelope)) {
      Log(LOG_ERR, __LINE__, "Upgrade progress fetch failed.");
      response_->SetError(error::kGeneral, Json::Value());
      return;
    }
    response_->SetSuccess(AnswerFromNode(envelope["data"]));
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  }
}

}  // namespace KALO::MESH::Webapi
