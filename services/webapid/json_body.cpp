#include "services/webapid/json_body.h"

#include <optional>
#include <utility>

#include "host/core/strict_json.h"
#include "host/webapi/error_codes.h"
#include "services/webapid/file_names.h"

namespace kalo::webapid {

void JsonBody::Feed(std::string_view data) {
  too_large_ = too_large_ || data.size() > limit_ - text_.size();
  if (!too_large_) text_ += data;
}

BodyResult JsonBody::Finish() {
  if (too_large_) return {webapi::kBodyTooLarge, {}};
  if (text_.empty() || text_ == "{}") return {0, Json::Value(Json::objectValue)};
  std::optional<Json::Value> value = ParseStrictJson(text_);
  if (!value || !value->isObject()) return {webapi::kMalformedRequest, {}};
  for (const std::string& name : value->getMemberNames()) {
    if (IsReservedParameter(name)) return {webapi::kReservedParameter, {}};
    if (!IsParameterName(name)) return {webapi::kMalformedRequest, {}};
  }
  return {0, std::move(*value)};
}

}  // namespace kalo::webapid
