// The web API framework.

#include "platform/webapi/api_request.h"
#include "platform/webapi/api_response.h"
#include "platform/webapi/api_runner.h"
#include "tests/fake/json_text.h"
#include "tests/fake/platform.h"

using fake::Platform;
using fake::ToText;

namespace KALO {

APIRequest::APIRequest(Json::Value parameters) : parameters_(std::move(parameters)) {
  if (!parameters_.isObject()) parameters_ = Json::Value(Json::objectValue);
}

std::optional<bool> APIRequest::GetAndCheckBool(const std::string& name) const {
  Platform::Current().Note("bool " + name);
  const Json::Value& value = parameters_[name];
  return value.isBool() ? std::optional<bool>(value.asBool()) : std::nullopt;
}

std::optional<std::string> APIRequest::GetAndCheckString(const std::string& name) const {
  Platform::Current().Note("string " + name);
  const Json::Value& value = parameters_[name];
  return value.isString() ? std::optional<std::string>(value.asString()) : std::nullopt;
}

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& fallback) const {
  Platform::Current().Note("param " + name);
  return parameters_.isMember(name) ? parameters_[name] : fallback;
}

void APIResponse::SetSuccess(const Json::Value& data) {
  Platform::Current().journal.Add("success " + ToText(data));
  has_answer_ = true;
  success_ = true;
  error_code_ = 0;
  data_ = data;
}

void APIResponse::SetError(int code, const Json::Value& data) {
  Platform::Current().journal.Add("error " + std::to_string(code) + " " + ToText(data));
  has_answer_ = true;
  success_ = false;
  error_code_ = code;
  data_ = data;
}

void APIRunner::Exec(Json::Value& result, const std::string& api, int version,
                     const std::string& method, const Json::Value& params,
                     const std::string& user) {
  Platform::Current().Note("call " + api + " " + std::to_string(version) + " " + method + " " +
                           ToText(params) + " " + user);
  result = Platform::Current().exec_envelope;
}

}  // namespace KALO
