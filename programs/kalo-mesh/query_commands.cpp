#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/table.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

int PrintJson(const Json::Value& data) {
  std::cout << WriteJson(data) << "\n";
  return kOk;
}

// One line a member, in the answer's own words.
void PrintMembers(const Json::Value& data, const std::string& indent) {
  if (!data.isObject()) return;
  for (const std::string& key : data.getMemberNames()) {
    const Json::Value& value = data[key];
    std::cout << indent << Printable(key) << ": ";
    if (value.isObject()) {
      std::cout << "\n";
      PrintMembers(value, indent + "  ");
    } else if (value.isString()) {
      std::cout << Printable(value.asString()) << "\n";
    } else {
      std::cout << WriteJson(value) << "\n";
    }
  }
}

int Query(const CommonOptions& common, const std::string& api, int version,
          const std::string& method, const Json::Value& params) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const Json::Value data = client.Call(api, version, method, params);
  if (common.json) return PrintJson(data);
  PrintMembers(data, "");
  return kOk;
}

}  // namespace

int RunStatus(const CommonOptions& common, const StatusOptions& options) {
  Json::Value params(Json::objectValue);
  if (options.skip_offline) params["skip_offline"] = true;
  if (options.skip_mesh_state) params["skip_re_status"] = true;
  return Query(common, "KALO.Mesh.Upgrade", options.version1 ? 1 : 2, "status", params);
}

int RunProgress(const CommonOptions& common, const ProgressOptions& options) {
  const char* api = options.download ? "KALO.Mesh.Upgrade.Download" : "KALO.Mesh.Upgrade";
  return Query(common, api, options.version1 ? 1 : 2, "progress", Json::objectValue);
}

int RunNodes(const CommonOptions& common) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const Json::Value data = FetchNodes(client);
  if (common.json) return PrintJson(data);
  std::vector<std::vector<std::string>> rows;
  for (const NodeView& node : ReadMesh(data).nodes) {
    rows.push_back({std::to_string(node.id), node.name, node.model, node.role,
                    node.online ? "online" : "offline", node.version, node.staged_version});
  }
  PrintTable(std::cout, {"NODE", "NAME", "MODEL", "ROLE", "STATE", "VERSION", "STAGED"}, rows);
  return kOk;
}

}  // namespace kalo::cli
