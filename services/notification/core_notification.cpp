// core-notification.so: what administrators are told.

#include <json/value.h>
#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "host/notification/notification_store.h"
#include "host/webapi/error_codes.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_table.h"

#pragma GCC visibility push(default)
extern "C" {

extern const KALO::APIRow gTable[2];
const KALO::APIRow* GetAPITable();
void WebapiCoreNotificationList(KALO::APIRequest* request, KALO::APIResponse* response);
void WebapiCoreNotificationDismiss(KALO::APIRequest* request, KALO::APIResponse* response);
}
#pragma GCC visibility pop

namespace {

void AnswerFailure(KALO::APIResponse& response, const std::exception& e) {
  kalo::Log(LOG_ERR, "notifications: %s", e.what());
  response.SetError(kalo::webapi::kGeneralFailure, Json::Value());
}

}  // namespace

const KALO::APIRow gTable[2] = {
    {"KALO.Core.Notification", 1, "list", WebapiCoreNotificationList},
    {"KALO.Core.Notification", 1, "dismiss", WebapiCoreNotificationDismiss},
};

const KALO::APIRow* GetAPITable() {
  return gTable;
}

void WebapiCoreNotificationList(KALO::APIRequest* /*request*/, KALO::APIResponse* response) {
  try {
    Json::Value answer(Json::objectValue);
    answer["notifications"] = Json::Value(Json::arrayValue);
    for (const kalo::Notification& one : kalo::NotificationStore().List()) {
      answer["notifications"].append(kalo::ToJson(one));
    }
    response->SetSuccess(answer);
  } catch (const std::exception& e) {
    AnswerFailure(*response, e);
  }
}

void WebapiCoreNotificationDismiss(KALO::APIRequest* request, KALO::APIResponse* response) {
  const Json::Value id = request->GetParam("id", Json::Value());
  if (!id.isInt() || id.asInt() < 1) {
    response->SetError(kalo::webapi::kBadParameter, Json::Value());
    return;
  }
  try {
    // One that somebody else dismissed meanwhile is gone, which is what was asked for.
    (void)kalo::NotificationStore().Dismiss(id.asInt());
    response->SetSuccess(Json::Value());
  } catch (const std::exception& e) {
    AnswerFailure(*response, e);
  }
}
