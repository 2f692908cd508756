// The mesh as it changes, until somebody presses Ctrl-C.

#include <algorithm>
#include <iostream>
#include <sstream>
#include <thread>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/table.h"
#include "programs/kalo-mesh/terminal.h"

namespace kalo::cli {
namespace {

constexpr std::chrono::seconds kLookEvery{1};

std::string WithPercent(const std::string& word, const Json::Value& object, const char* key) {
  return object.isMember(key) ? word + ", " + std::to_string(NumberOf(object, key)) + " %" : word;
}

std::string Picture(const Json::Value& state) {
  std::ostringstream out;
  const Json::Value& status = state["status"];
  const Json::Value& download = state["download"];
  const std::string reason = TextOf(status, "reason");
  out << "Mesh:     " << WithPercent(Printable(TextOf(status, "status")), status, "percent")
      << (reason.empty() ? "" : " (" + Printable(reason) + ")") << "\n";
  out << "Download: " << WithPercent(Printable(TextOf(download, "status")), download, "percent")
      << "\n";
  std::vector<std::vector<std::string>> rows;
  for (const NodeView& node : ReadMesh(state).nodes) {
    rows.push_back({std::to_string(node.id), node.name, node.online ? "online" : "offline",
                    node.version, node.staged_version, node.step,
                    std::to_string(node.percent) + " %", node.error});
  }
  PrintTable(out, {"NODE", "NAME", "STATE", "VERSION", "STAGED", "STEP", "", "ERROR"}, rows);
  return out.str();
}

// The main router's own restart is part of what is watched.
std::string Look(ApiClient& client, bool json) {
  try {
    const Json::Value state = client.Call("KALO.Core.Mesh", 1, "events", Json::objectValue);
    return json ? WriteJson(state) + "\n" : Picture(state);
  } catch (const Refusal& e) {
    if (e.EndsSession()) throw;
    return json ? "" : std::string("The main router: ") + e.what() + "\n";
  } catch (const Failure& e) {
    if (e.Status() != kNotReachable) throw;
    return json ? "" : "The main router does not answer.\n";
  }
}

}  // namespace

int RunWatch(const CommonOptions& common, const WatchOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const bool redraws = IsTerminal() && !common.json;
  std::string shown;
  for (int looks = 0; options.count == 0 || looks < options.count; ++looks) {
    if (looks > 0) std::this_thread::sleep_for(kLookEvery);
    std::string now = Look(client, common.json);
    if (now == shown || now.empty()) continue;
    if (redraws && !shown.empty()) {
      std::cout << "\x1b[" << std::count(shown.begin(), shown.end(), '\n') << "A\x1b[J";
    }
    std::cout << now << std::flush;
    shown = std::move(now);
  }
  return kOk;
}

}  // namespace kalo::cli
