#include "platform/webapi/api_runner.h"

#include <syslog.h>

#include <exception>

#include "host/core/log.h"
#include "host/webapi/api_registry.h"
#include "host/webapi/error_codes.h"
#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"

namespace kalo::webapi {
namespace {

const ApiRegistry*& InstalledRegistry() {
  static const ApiRegistry* registry = nullptr;
  return registry;
}

Json::Value ErrorEnvelope(int code) {
  Json::Value envelope(Json::objectValue);
  envelope["success"] = false;
  envelope["error"]["code"] = code;
  return envelope;
}

Json::Value Envelope(const KALO::APIResponse& response) {
  if (!response.HasAnswer()) return ErrorEnvelope(kGeneralFailure);
  if (!response.IsSuccess()) return ErrorEnvelope(response.ErrorCode());
  Json::Value envelope(Json::objectValue);
  envelope["success"] = true;
  envelope["data"] = response.Data();
  return envelope;
}

}  // namespace

void InstallApiRegistry(const ApiRegistry* registry) {
  InstalledRegistry() = registry;
}

}  // namespace kalo::webapi

namespace KALO {

void APIRunner::Exec(Json::Value& result, const std::string& api, int version,
                     const std::string& method, const Json::Value& params,
                     const std::string& /*user*/) {
  const kalo::webapi::ApiRegistry* registry = kalo::webapi::InstalledRegistry();
  const APIHandler handler = registry == nullptr ? nullptr : registry->Find(api, version, method);
  if (handler == nullptr) {
    result = kalo::webapi::ErrorEnvelope(kalo::webapi::kUnknownApi);
    return;
  }
  APIRequest request(params);
  APIResponse response;
  try {
    handler(&request, &response);
  } catch (const std::exception& e) {
    kalo::Log(LOG_ERR, "nested %s %d %s threw: %s", api.c_str(), version, method.c_str(), e.what());
    response.SetError(kalo::webapi::kGeneralFailure, Json::Value());
  }
  result = kalo::webapi::Envelope(response);
}

}  // namespace KALO
