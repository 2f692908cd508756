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

constexpr const char* kApi = "KALO.Core.Notification";

void Print(const Json::Value& data) {
  const Json::Value& list = data["notifications"];
  if (!list.isArray() || list.empty()) {
    std::cout << "No notifications.\n";
    return;
  }
  std::vector<std::vector<std::string>> rows;
  for (const Json::Value& one : list) {
    if (!one.isObject()) continue;
    rows.push_back(
        {std::to_string(NumberOf(one, "id")), TimeText(one["time"]), TextOf(one, "text")});
  }
  PrintTable(std::cout, {"ID", "TIME", "TEXT"}, rows);
}

}  // namespace

int RunNotifications(const CommonOptions& common, const NotificationsOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  if (options.dismiss != 0) {
    Json::Value params(Json::objectValue);
    params["id"] = options.dismiss;
    client.Call(kApi, 1, "dismiss", params);
    if (common.json) std::cout << "{}\n";
    return kOk;
  }
  const Json::Value data = client.Call(kApi, 1, "list", Json::objectValue);
  if (common.json) {
    std::cout << WriteJson(data) << "\n";
  } else if (data.isObject()) {
    Print(data);
  }
  return kOk;
}

}  // namespace kalo::cli
