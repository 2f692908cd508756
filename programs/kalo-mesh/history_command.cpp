#include <cstdint>
#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/table.h"
#include "programs/kalo-mesh/time_text.h"

namespace kalo::cli {
namespace {

std::string Took(const Json::Value& update) {
  if (!update["begun"].isInt64() || !update["ended"].isInt64()) return "";
  return std::to_string(update["ended"].asInt64() - update["begun"].asInt64()) + " s";
}

// A line for each node; what is the same for all of an update stands in its first.
void Print(const Json::Value& updates) {
  std::vector<std::vector<std::string>> rows;
  for (const Json::Value& update : updates) {
    if (!update.isObject() || !update["nodes"].isArray()) continue;
    bool first = true;
    for (const Json::Value& node : update["nodes"]) {
      rows.push_back({first ? TimeText(update["begun"]) : "", first ? TextOf(update, "cause") : "",
                      first ? TextOf(update, "result") : "", first ? Took(update) : "",
                      std::to_string(NumberOf(node, "id")) + " " + TextOf(node, "name"),
                      TextOf(node, "from"), TextOf(node, "wanted"), TextOf(node, "result"),
                      TextOf(node, "error")});
      first = false;
    }
  }
  PrintTable(std::cout,
             {"BEGAN", "BY", "RESULT", "TOOK", "NODE", "FROM", "TO", "NODE RESULT", "ERROR"}, rows);
}

}  // namespace

int RunHistory(const CommonOptions& common) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const Json::Value data = client.Call("KALO.Core.Mesh", 1, "history", Json::objectValue);
  if (common.json) {
    std::cout << WriteJson(data) << "\n";
    return kOk;
  }
  if (!data.isObject() || !data["updates"].isArray() || data["updates"].empty()) {
    std::cout << "No update was installed yet.\n";
    return kOk;
  }
  Print(data["updates"]);
  return kOk;
}

}  // namespace kalo::cli
