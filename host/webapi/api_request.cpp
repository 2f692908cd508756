#include "platform/webapi/api_request.h"

#include <utility>

namespace KALO {

APIRequest::APIRequest(Json::Value parameters) : parameters_(std::move(parameters)) {
  if (!parameters_.isObject()) parameters_ = Json::Value(Json::objectValue);
}

std::optional<bool> APIRequest::GetAndCheckBool(const std::string& name) const {
  const Json::Value value = GetParam(name, Json::Value());
  if (!value.isBool()) return std::nullopt;
  return value.asBool();
}

std::optional<std::string> APIRequest::GetAndCheckString(const std::string& name) const {
  const Json::Value value = GetParam(name, Json::Value());
  if (!value.isString()) return std::nullopt;
  return value.asString();
}

Json::Value APIRequest::GetParam(const std::string& name, const Json::Value& fallback) const {
  return parameters_.isMember(name) ? parameters_[name] : fallback;
}

}  // namespace KALO
