#include "tests/hostile/known_rows.h"

#include <filesystem>

#include "host/core/strict_json.h"
#include "tests/services/webapid/server_fixture.h"

namespace kalo::hostile {
namespace {

// What a description calls him.
std::set<std::string> WordsFor(Caller caller) {
  switch (caller) {
    case Caller::kAdministrator:
      return {"administrators"};
    case Caller::kNode0:
      return {"mesh_node_0", "mesh_nodes"};
    case Caller::kOtherNode:
      return {"mesh_nodes"};
    case Caller::kNobody:
    case Caller::kUser:
      break;
  }
  return {};
}

}  // namespace

std::string KnownRow::Name() const {
  return api + "/" + std::to_string(version) + "/" + method;
}

bool KnownRow::Allows(Caller caller) const {
  for (const std::string& word : WordsFor(caller)) {
    if (allow.contains(word)) return true;
  }
  return false;
}

Json::Value ReadDescriptions() {
  Json::Value rows(Json::arrayValue);
  for (const char* name : {"mesh-upgrade", "core-mesh", "core-upgrade", "core-notification"}) {
    const auto file = std::filesystem::path(DESCRIPTIONS) / (std::string(name) + ".json");
    const Json::Value module =
        ParseStrictJson(test::ReadTestFile(file)).value_or(Json::Value(Json::objectValue));
    for (const Json::Value& row : module["rows"]) rows.append(row);
  }
  return rows;
}

std::vector<KnownRow> KnownRows(const Json::Value& descriptions) {
  std::vector<KnownRow> rows;
  for (const Json::Value& row : descriptions) {
    KnownRow known{row["api"].asString(),    row["version"].asInt(),
                   row["method"].asString(), {},
                   row["files"].asBool(),    false};
    for (const Json::Value& word : row["allow"]) known.allow.insert(word.asString());
    rows.push_back(std::move(known));
  }
  for (const char* method : {"login", "logout"}) {
    rows.push_back({"KALO.Core.Auth", 1, method, {}, false, true});
  }
  return rows;
}

}  // namespace kalo::hostile
