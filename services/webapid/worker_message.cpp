#include "services/webapid/worker_message.h"

#include "host/core/strict_json.h"

namespace kalo::webapid {

std::string WorkerMessage(const webapi::RowDescription& row, const Json::Value& parameters) {
  const std::string name = row.api + " " + std::to_string(row.version) + " " + row.method + "\n";
  // Most requests are polls, and have none.
  return name + (parameters.empty() ? "{}" : WriteJson(parameters));
}

}  // namespace kalo::webapid
