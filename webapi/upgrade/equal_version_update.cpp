// One version on every node: which nodes lag behind, and the outside program that brings them
// along.

#include <sys/types.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/core/key_value.h"
#include "platform/core/process.h"
#include "platform/paths.h"
#include "platform/update/system_update.h"
#include "webapi/error_codes.h"
#include "webapi/exceptions.h"
#include "webapi/log.h"
#include "webapi/upgrade_handler.h"

namespace KALO::MESH::Webapi {
namespace {

using UpdateNode = UpgradeHandler::UpdateNode;

// Fixed numbers in the log lines of this file, which support staff search for.
namespace line {
constexpr int kProgramNotRun = 129;
constexpr int kCancelFailed = 153;
constexpr int kParameter = 200;
constexpr int kNoParameter = 204;
constexpr int kNoUpgradePath = 256;
constexpr int kBadHighest = 294;
constexpr int kBadLowestStop = 299;
constexpr int kBadNodeVersion = 317;
}  // namespace line

struct OldKey {
  const char* key;
  const char* name;  ///< in the log
  int line;
};

// What an earlier check left. The groups' keys stay: without their availability nobody reads them.
constexpr std::array<OldKey, 5> kOldKeys = {{
    {"avaliable_full", "full available", 209},
    {"patch_full", "full version", 213},
    {"avaliable_nano", "nano available", 217},
    {"over_version", "over version", 221},
    {"patch_nano", "nano version", 225},
}};

// A version in numbers.
struct Numbers {
  std::string name;
  int build = 0;
  int nano = 0;
};

// The lowest version on the way to the highest one, and the nodes whose way leads over it.
struct LowestStop {
  std::string version;
  std::vector<int> nodes;  ///< an id stands here once for each time that its way passes
};

using Paths = std::map<std::uint32_t, std::vector<std::string>>;

std::vector<int> AskedNodes(const APIRequest& request) {
  const Json::Value nodes = request.GetParam("nodes", Json::Value());
  if (!nodes.isArray() || nodes.empty()) {
    Log(LOG_DEBUG, line::kNoParameter, "No parameter, set default");
    return {0};
  }
  std::vector<int> ids;
  for (const Json::Value& node : nodes) {
    ids.push_back(node.asInt());
    Log(LOG_DEBUG, line::kParameter, "Get parameter %d", ids.back());
  }
  return ids;
}

void RemoveOldRecords() {
  for (const OldKey& old : kOldKeys) {
    if (KLIBCFileRemoveKey(paths::kPatchInformation, old.key) >= 0) continue;
    Log(LOG_ERR, old.line, "Remove %s error", old.name);
  }
}

std::string HighestVersion(UpgradeHandler& handler, const std::vector<UpdateNode>& nodes) {
  std::string highest;
  for (const UpdateNode& node : nodes) {
    const std::string& version = node.GetFullVersion();
    if (highest.empty() || handler.CompareVersion(highest, version) < 0) highest = version;
  }
  return highest;
}

Paths FindPaths(const std::vector<int>& ids, const std::vector<UpdateNode>& nodes,
                const std::string& highest) {
  Paths paths;
  for (const int id : ids) {
    SDK::Upgrade::Upgrade upgrade;
    for (const UpdateNode& node : nodes) {
      if (node.GetNodeID() != id) continue;
      try {
        std::vector<std::string> path =
            upgrade.GetUpgradePath(highest, node.GetFullVersion(), node.GetUnique());
        if (!path.empty()) paths[static_cast<std::uint32_t>(id)] = std::move(path);
      } catch (const std::exception& e) {
        Log(LOG_ERR, line::kNoUpgradePath, "Get upgrade path expeption with %s", e.what());
      }
    }
  }
  return paths;
}

LowestStop FindLowestStop(UpgradeHandler& handler, const Paths& paths, const std::string& highest) {
  LowestStop stop{highest, {}};
  for (const auto& [id, path] : paths) {
    for (const std::string& version : path) {
      if (handler.CompareVersion(stop.version, version) > 0) {
        stop = {version, {static_cast<int>(id)}};
      } else if (handler.CompareVersion(stop.version, version) == 0) {
        stop.nodes.push_back(static_cast<int>(id));
      }
    }
  }
  return stop;
}

// Which of the stop nodes need a full patch to get there, and which a small one.
struct Needs {
  std::vector<std::int32_t> full;
  std::vector<std::int32_t> small;
};

// @return empty, after a log line, when a node's version cannot be read.
std::optional<Needs> Classify(UpgradeHandler& handler, const std::vector<int>& stop_nodes,
                              const std::vector<UpdateNode>& nodes, const Numbers& stop) {
  Needs needs;
  for (const int id : stop_nodes) {
    for (const UpdateNode& node : nodes) {
      if (node.GetNodeID() != id) continue;
      Numbers now;
      if (!handler.ParseVersion(node.GetFullVersion(), now.name, now.build, now.nano)) {
        Log(LOG_ERR, line::kBadNodeVersion, "Parse node %d current version %s fail", id,
            node.GetFullVersion().c_str());
        return std::nullopt;
      }
      const bool lacks_build = now.build < stop.build;
      const bool lacks_nano = now.build == stop.build && now.nano < stop.nano;
      if (lacks_build) needs.full.push_back(id);
      if (stop.nano > 0 && (lacks_build || lacks_nano)) needs.small.push_back(id);
    }
  }
  return needs;
}

// @return empty, after a log line, when the text cannot be read.
std::optional<Numbers> Parse(UpgradeHandler& handler, const std::string& version, const char* name,
                             int log_line) {
  Numbers numbers;
  if (!handler.ParseVersion(version, numbers.name, numbers.build, numbers.nano)) {
    Log(LOG_ERR, log_line, "Parse %s version %s fail", name, version.c_str());
    return std::nullopt;
  }
  return numbers;
}

// Records what the stop nodes need.
// @return false, after a log line, when a version cannot be read; nothing is recorded then.
bool Record(UpgradeHandler& handler, const std::vector<UpdateNode>& nodes, const LowestStop& stop,
            const std::string& highest) {
  const auto top = Parse(handler, highest, "highest_version", line::kBadHighest);
  if (!top) return false;
  auto target = Parse(handler, stop.version, "min_upgrade_version", line::kBadLowestStop);
  if (!target) return false;
  if (top->build == target->build) target->nano = top->nano;
  const std::optional<Needs> needs = Classify(handler, stop.nodes, nodes, *target);
  if (!needs) return false;
  UpgradeHandler::PatchInfo record;
  record.available = !needs->full.empty();
  record.type = "hbx";
  record.version = "VXM " + target->name + "-" + std::to_string(target->build);
  record.build_num = target->build;
  // Written also when nobody needs it: it says so then.
  handler.PatchAvailableToFile(needs->full, record, false);
  if (needs->small.empty()) return true;
  record.available = true;
  record.version = top->build == target->build ? highest : stop.version;
  record.type = "smallupdate";
  handler.PatchAvailableToFile(needs->small, record, false);
  return true;
}

Json::Value Describe(const LowestStop& stop) {
  Json::Value data(Json::objectValue);
  data["available"] = true;
  Json::Value ids(Json::arrayValue);
  for (const int id : stop.nodes) ids.append(id);
  data["nodes"] = ids;
  data["version"] = stop.version;
  return data;
}

// Exceptions of the node list and of the version comparison pass through to PatchCheckEqual.
void CheckEqual(UpgradeHandler& handler, const APIRequest& request, APIResponse& response) {
  const SDK::Upgrade::SystemUpdate unasked;
  const std::vector<int> ids = AskedNodes(request);
  RemoveOldRecords();
  const std::vector<UpdateNode> nodes = handler.GetUpdateNodes();
  const std::string highest = HighestVersion(handler, nodes);
  const LowestStop stop = FindLowestStop(handler, FindPaths(ids, nodes, highest), highest);
  if (stop.nodes.empty()) {
    Json::Value none(Json::objectValue);
    none["available"] = false;
    response.SetSuccess(none);
    return;
  }
  if (!Record(handler, nodes, stop, highest)) {
    response.SetError(error::kGeneral, Json::Value());
    return;
  }
  response.SetSuccess(Describe(stop));
}

}  // namespace

void UpgradeHandler::PatchCheckEqual() {
  try {
    CheckEqual(*this, *request_, *response_);
  } catch (const std::exception& e) {
    AnswerException(*response_, __LINE__, "Exception", e, error::kGeneral);
  } catch (...) {
    Log(LOG_ERR, __LINE__, "Exception: unknown");
    response_->SetError(error::kGeneral, Json::Value());
  }
}

void UpgradeHandler::StartEqualUpdate() {
  if (ForkAndReturnWebapi(Json::Value()) != 0) return;
  // The program reports by itself: its exit status says nothing that anybody waits for.
  if (KLIBCExec(paths::kEqualUpdateProgram, "--updatecaptoequal", nullptr, nullptr, nullptr) >= 0) {
    return;
  }
  Log(LOG_ERR, line::kProgramNotRun, "Fail to exec command kalomeshupgrade --updatecaptoequal");
  unlink(paths::kUpgradeProgress);
}

void UpgradeHandler::CancelEqualUpdate() {
  try {
    const int pid = KLIBCReadPidFile(paths::kEqualUpdatePid);
    if (pid < 0) throw WebapiException("Update to equal is not running");
    if (pid == 0) throw WebapiException("Invalid pid");
    if (kill(pid, SIGTERM) < 0) throw WebapiException("Failed to kill update to equal");
    response_->SetSuccess(Json::Value());
  } catch (const std::exception& e) {
    AnswerException(*response_, line::kCancelFailed, "Unknown Exception", e, error::kGeneral);
  }
}

}  // namespace KALO::MESH::Webapi
