#include "platform/update/response.h"

namespace KALO::MESH::SDK {

Response Response::FromEnvelope(const Json::Value& envelope) {
  Response response;
  if (!envelope.isObject() || !envelope["success"].isBool()) return response;
  if (envelope["success"].asBool()) {
    response.valid_ = true;
    response.success_ = true;
    response.data_ = envelope["data"];
    return response;
  }
  const Json::Value& error = envelope["error"];
  if (!error.isObject() || !error["code"].isInt()) return response;
  response.valid_ = true;
  response.error_number_ = error["code"].asInt();
  return response;
}

bool Response::GetData(Json::Value& data) const {
  if (data_.isNull()) return false;
  data = data_;
  return true;
}

}  // namespace KALO::MESH::SDK
