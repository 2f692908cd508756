#include "programs/kalo-mesh/update_watch.h"

#include <algorithm>
#include <thread>

#include "programs/kalo-mesh/failure.h"

namespace kalo::cli {
namespace {

using namespace std::chrono_literals;

constexpr auto kLookEvery = 500ms;

}  // namespace

UpdateWatch::UpdateWatch(ApiClient& client, const MeshView& before, bool is_auto)
    : client_(client) {
  status_params_["auto"] = is_auto;
  for (const NodeView& node : before.nodes) {
    NodeResult result;
    result.before = node;
    result.wanted = node.online ? node.staged_version : "";
    result.version = node.version;
    result.boot_id = node.boot_id;
    results_[node.id] = result;
    latest_[node.id] = node;
  }
}

bool UpdateWatch::Follow(BarBoard& board, std::chrono::seconds deadline) {
  const auto end = begin_ + deadline;
  while (true) {
    Look();
    Draw(board);
    if (IsSettled()) return true;
    if (Clock::now() >= end) return false;
    std::this_thread::sleep_for(kLookEvery);
  }
}

// The main router restarts in the middle: until the deadline a look that fails is only noted.
void UpdateWatch::Look() {
  try {
    trouble_.clear();
    const MeshView mesh = ReadMesh(FetchNodes(client_));
    running_ = mesh.update_running;
    for (const NodeView& node : mesh.nodes) Take(node);
    status_ = TextOf(client_.Call("KALO.Mesh.Upgrade", 2, "status", status_params_), "status");
    const Json::Value progress =
        client_.Call("KALO.Mesh.Upgrade", 2, "progress", Json::objectValue);
    total_ = std::max(total_, NumberOf(progress, "total_percentage"));
  } catch (const Refusal& e) {
    if (e.EndsSession()) throw;
    trouble_ = "the router does not answer yet";
  } catch (const Failure&) {
    trouble_ = "the router restarts";
  }
}

void UpdateWatch::Take(const NodeView& node) {
  const auto found = results_.find(node.id);
  if (found == results_.end()) return;
  latest_[node.id] = node;
  NodeResult& result = found->second;
  // What is staged is known for sure only since the service asked the nodes anew, at the start.
  const bool is_before = node.online && node.boot_id == result.before.boot_id;
  if (is_before && !node.staged_version.empty()) result.wanted = node.staged_version;
  if (!node.version.empty()) result.version = node.version;
  if (!node.boot_id.empty()) result.boot_id = node.boot_id;
  result.error = node.error;
  const bool is_new = node.online && !result.wanted.empty() && node.version == result.wanted &&
                      node.boot_id != result.before.boot_id;
  if (!is_new || result.updated) return;
  result.updated = true;
  result.seconds = std::chrono::duration<double>(Clock::now() - begin_).count();
}

// After the main router's restart the mesh is asked anew: it is settled when that is over too.
bool UpdateWatch::IsSettled() const {
  const bool over = trouble_.empty() && !running_ && status_ != "upgrading";
  if (!over) return false;
  return status_ != "mesh_system_error" || AllAsWanted() ||
         std::all_of(latest_.begin(), latest_.end(),
                     [](const auto& entry) { return !entry.second.boot_id.empty(); });
}

bool UpdateWatch::AllAsWanted() const {
  return std::all_of(results_.begin(), results_.end(),
                     [](const auto& entry) { return entry.second.AsWanted(); });
}

void UpdateWatch::Draw(BarBoard& board) const {
  std::vector<Bar> bars;
  for (const auto& [id, result] : results_) {
    const NodeView& node = latest_.at(id);
    Bar bar{std::to_string(id) + " " + result.before.name, node.percent, node.step};
    if (result.updated) {
      bar.percent = 100;
      bar.note = "runs " + result.version;
    } else if (result.wanted.empty()) {
      bar.percent = 0;
      bar.note = node.online ? "nothing to do" : "offline";
    } else if (!node.error.empty()) {
      bar.note = node.error;
    }
    bars.push_back(bar);
  }
  const bool done = !running_ && AllAsWanted();
  bars.push_back({"Mesh", done ? 100 : total_, trouble_.empty() ? status_ : trouble_});
  board.Show(bars);
}

}  // namespace kalo::cli
