#include "services/webapid/worker_message.h"

#include <utility>

#include "host/core/strict_json.h"

namespace kalo::webapid {

std::string WorkerMessage(const webapi::RowDescription& row, Json::Value parameters) {
  Json::Value message(Json::objectValue);
  message["api"] = row.api;
  message["version"] = row.version;
  message["method"] = row.method;
  message["parameters"] = std::move(parameters);
  return WriteJson(message);
}

}  // namespace kalo::webapid
