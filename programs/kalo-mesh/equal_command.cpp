// One version on every node: step by step, each of which brings those furthest behind to the next
// version on their way.

#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "host/core/strict_json.h"
#include "programs/kalo-mesh/api_client.h"
#include "programs/kalo-mesh/bars.h"
#include "programs/kalo-mesh/commands.h"
#include "programs/kalo-mesh/failure.h"
#include "programs/kalo-mesh/mesh_view.h"
#include "programs/kalo-mesh/silence.h"
#include "programs/kalo-mesh/terminal.h"
#include "programs/kalo-mesh/update_report.h"
#include "programs/kalo-mesh/update_watch.h"

namespace kalo::cli {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds kBeginPatience{30};
constexpr std::chrono::milliseconds kLookEvery{200};

// Asks about all nodes unless some are named: the router itself would look at node 0 alone.
Json::Value Check(ApiClient& client, const std::vector<int>& nodes) {
  Json::Value params(Json::objectValue);
  params["nodes"] = Json::Value(Json::arrayValue);
  if (nodes.empty()) {
    for (const NodeView& node : ReadMesh(FetchNodes(client)).nodes) params["nodes"].append(node.id);
  } else {
    for (const int id : nodes) params["nodes"].append(id);
  }
  return client.Call("KALO.Mesh.Upgrade.Patch.Check", 1, "equal", params, ApiClient::kLongPatience);
}

std::string Sentence(const Json::Value& data) {
  if (!IsTrue(data, "available")) return "No node lags behind.";
  std::string ids;
  for (const Json::Value& id : data["nodes"]) ids += " " + (id.isInt() ? id.asString() : "?");
  return "Behind the others:" + ids + ". Next version: " + Printable(TextOf(data, "version"));
}

// The router answers before the work begins.
void WaitForBegin(ApiClient& client) {
  const auto end = Clock::now() + kBeginPatience;
  while (TextOf(client.Call("KALO.Mesh.Upgrade", 2, "status", Json::objectValue), "status") !=
         "upgrading") {
    if (Clock::now() >= end) {
      throw Failure(kFailed, "the update did not begin; the main router's system log says why");
    }
    std::this_thread::sleep_for(kLookEvery);
  }
}

void RunRound(ApiClient& client, const CommonOptions& common, std::chrono::seconds deadline) {
  const MeshView before = ReadMesh(FetchNodes(client));
  client.Call("KALO.Mesh.Upgrade.Equal", 1, "start", Json::objectValue);
  WaitForBegin(client);
  Silence silence;
  BarBoard board(common.json ? silence.Stream() : std::cout, !common.json && IsTerminal());
  UpdateWatch watch(client, before);
  const bool ended = watch.Follow(board, deadline);
  if (!common.json) PrintResults(watch);
  if (!ended) throw Failure(kFailed, "the update had not ended when the time was up (--timeout)");
}

}  // namespace

int RunEqualCheck(const CommonOptions& common, const EqualOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  const Json::Value data = Check(client, options.nodes);
  if (common.json) {
    std::cout << WriteJson(data) << "\n";
    return kOk;
  }
  std::cout << Sentence(data) << "\n";
  if (IsTrue(data, "available")) std::cout << "Next: kalo-mesh equal start\n";
  return kOk;
}

int RunEqualStart(const CommonOptions& common, const EqualOptions& options) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  int rounds = 0;
  Json::Value offer = Check(client, options.nodes);
  while (IsTrue(offer, "available")) {
    if (!common.json) std::cout << Sentence(offer) << "\n";
    RunRound(client, common, options.deadline);
    ++rounds;
    const Json::Value next = Check(client, options.nodes);
    // A round that changed nothing will change nothing the next time.
    if (next == offer) {
      throw Failure(kFailed, "the nodes still lag behind; the main router's system log says why");
    }
    offer = next;
  }
  if (common.json) {
    Json::Value root(Json::objectValue);
    root["success"] = true;
    root["rounds"] = rounds;
    std::cout << WriteJson(root) << "\n";
  } else {
    std::cout << (rounds > 0 ? "Every node has caught up.\n" : "No node lags behind.\n");
  }
  return kOk;
}

int RunEqualCancel(const CommonOptions& common) {
  ApiClient client(OpenSession(common), common.connect_deadline);
  client.Call("KALO.Mesh.Upgrade.Equal", 1, "cancel", Json::objectValue);
  std::cout << (common.json ? "{}" : "It ends as soon as it can. Nodes that install already go on.")
            << "\n";
  return kOk;
}

}  // namespace kalo::cli
