#include "programs/kalo-mesh/update_report.h"

#include <cmath>
#include <iostream>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/table.h"

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

}  // namespace

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

}  // namespace kalo::cli
