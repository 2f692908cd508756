#include <cmath>
#include <cstdio>
#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/silence.h"
#include "programs/kalo-mesh/table.h"
#include "programs/kalo-mesh/terminal.h"
#include "programs/kalo-mesh/update_watch.h"

namespace kalo::cli {
namespace {

std::string Seconds(const NodeResult& result) {
  if (!result.updated) return "-";
  const long tenths = std::lround(result.seconds * 10);
  return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + " s";
}

std::string Outcome(const NodeResult& result) {
  if (result.updated) return "updated";
  if (!result.wanted.empty()) return result.error.empty() ? "NOT updated" : result.error;
  return result.before.online ? "had nothing to do" : "was offline";
}

void PrintResults(const UpdateWatch& watch) {
  std::vector<std::vector<std::string>> rows;
  for (const auto& [id, result] : watch.Results()) {
    rows.push_back({std::to_string(id), result.before.name, result.before.model,
                    result.before.version, result.version, Seconds(result), Outcome(result)});
  }
  std::cout << "\n";
  PrintTable(std::cout, {"NODE", "NAME", "MODEL", "BEFORE", "AFTER", "TIME", "RESULT"}, rows);
}

void PrintResultsAsJson(const UpdateWatch& watch, bool success) {
  Json::Value root(Json::objectValue);
  root["success"] = success;
  root["nodes"] = Json::Value(Json::arrayValue);
  for (const auto& [id, result] : watch.Results()) {
    Json::Value node(Json::objectValue);
    node["id"] = id;
    node["name"] = result.before.name;
    node["model"] = result.before.model;
    node["before"] = result.before.version;
    node["wanted"] = result.wanted;
    node["after"] = result.version;
    node["updated"] = result.updated;
    node["seconds"] = result.seconds;
    node["error"] = result.error;
    root["nodes"].append(node);
  }
  std::cout << WriteJson(root) << "\n";
}

int Follow(ApiClient& client, const MeshView& before, const CommonOptions& common,
           const StartOptions& options) {
  Silence silence;
  BarBoard board(common.json ? silence.Stream() : std::cout, !common.json && IsTerminal());
  UpdateWatch watch(client, before, options.is_auto);
  const bool ended = watch.Follow(board, options.deadline);
  const bool success = ended && watch.AllAsWanted();
  if (common.json) {
    PrintResultsAsJson(watch, success);
  } else {
    PrintResults(watch);
  }
  if (!ended) throw Failure(kFailed, "the update had not ended when the time was up (--timeout)");
  if (!success) throw Failure(kFailed, "not every node runs the new version; see the table");
  return kOk;
}

}  // namespace

int RunStart(const CommonOptions& common, const StartOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const MeshView before = options.wait ? ReadMesh(FetchNodes(client)) : MeshView{};
  client.Call("KALO.Mesh.Upgrade", 1, "start", Json::objectValue);
  if (options.wait) return Follow(client, before, common, options);
  if (common.json) {
    std::cout << "{}\n";
  } else {
    std::cout << "The update has started. Do not switch off any node. See kalo-mesh progress.\n";
  }
  return kOk;
}

}  // namespace kalo::cli
